#pragma once

#include <memory>
#include <vector>

#include "output/midi_event.h"

// The events of one track. The list owns its events; their addresses stay fixed while the
// list is sorted or grows, so links between events survive both.
class MidiEventList {
 public:
  MidiEventList() = default;
  MidiEventList(const MidiEventList&) = delete;
  MidiEventList& operator=(const MidiEventList&) = delete;

  int size() const { return static_cast<int>(events.size()); }
  bool empty() const { return events.empty(); }
  MidiEvent& operator[](int i) { return *events[i]; }
  const MidiEvent& operator[](int i) const { return *events[i]; }
  MidiEvent& last() { return *events.back(); }
  // Takes ownership of `event`.
  void push_back_no_copy(MidiEvent* event) { events.emplace_back(event); }
  MidiEvent* append(const MidiEvent& event);
  void clear() { events.clear(); }
  // Hands every event over to the caller, leaving the list empty.
  std::vector<std::unique_ptr<MidiEvent>> release() { return std::move(events); }
  // Sorts in the order of MidiFile::sortTracks; a stable sort, so equal events keep their order.
  void sort();
  // Links each note-off to the oldest open note-on of its channel and key.
  void linkNotePairs();
  void clearLinks();

 private:
  std::vector<std::unique_ptr<MidiEvent>> events;
};
