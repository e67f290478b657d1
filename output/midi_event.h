#pragma once

#include "output/midi_message.h"

// A MIDI message placed in time: `tick` is a delta or an absolute tick as the owning MidiFile's
// state says; `seconds` is filled by MidiFile::doTimeAnalysis(). `linked_event` joins a note-on
// to its note-off both ways after MidiFile::linkNotePairs(); it points into the same track.
class MidiEvent : public MidiMessage {
 public:
  MidiEvent() = default;
  MidiEvent(int tick, int track, const MidiMessage& message)
      : MidiMessage(message), tick(tick), track(track) {}

  // Seconds from this event to its linked partner; 0 without a link.
  double getDurationInSeconds() const;
  MidiEvent* getLinkedEvent() const { return linked_event; }
  void linkEvent(MidiEvent* other);
  void unlinkEvent();

  int tick = 0;
  int track = 0;
  double seconds = 0.0;
  int seq = 0;  // breaks ties in sorting; 0 unless set
  MidiEvent* linked_event = nullptr;
};
