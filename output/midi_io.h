#pragma once

#include <map>
#include <memory>

class TranscriptionJob;

// MIDI export of a job's notes (reading MIDI as job input comes with the piano samples).
class MidiIo {
 public:
  // Writes the job's notes to its MIDI filename, making the folders, with the tempo treatment
  // of `midi_tempo`: 0 a tempo at every beat from the beat times, 1 the user's tempos, 2 a
  // constant 120 per quarter at 120 ticks per quarter, where a note's onset is its start_time
  // to the tick. Track 0 holds tempo and signatures; a note of group g goes on track g.
  // Runs on the thread that owns the job. False if the file could not be written.
  static bool SaveMidiFile(std::shared_ptr<TranscriptionJob> job);
};

// `time` in seconds to a tick, linearly between the two entries of `ticks_by_time` around it;
// -1 when `time` is at or before the first entry, after the last, or the map is empty.
int InterpolateTicks(const std::map<double, int>& ticks_by_time, double time);
