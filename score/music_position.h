#pragma once

#include <cstdint>

// A point on the musical grid. A quarter note has `smallest_notes_per_quarter` grid steps and
// each step has kPositionsPerStep fine units, so the thirds of a triplet land on whole units.
// Only NoteData and Triplet make these; all comparisons look at `fine_position` alone.
struct MusicPosition {
  static constexpr int kPositionsPerStep = 6;

  // An unset position: every field is -1.
  MusicPosition() = default;
  MusicPosition(double time, int measure_idx, int measure_position, double step_seconds, int position_idx,
                int64_t fine_position)
      : time(time),
        measure_idx(measure_idx),
        measure_position(measure_position),
        step_seconds(step_seconds),
        position_idx(position_idx),
        fine_position(fine_position) {}

  bool operator<(const MusicPosition& other) const { return fine_position < other.fine_position; }
  bool operator>(const MusicPosition& other) const { return fine_position > other.fine_position; }
  bool operator==(const MusicPosition& other) const { return fine_position == other.fine_position; }
  bool operator!=(const MusicPosition& other) const { return fine_position != other.fine_position; }
  bool operator>=(const MusicPosition& other) const { return fine_position >= other.fine_position; }
  bool operator<=(const MusicPosition& other) const { return fine_position <= other.fine_position; }

  double time = -1.0;          // seconds from the start of the audio
  int measure_idx = -1;        // measure holding the position, from 0
  int measure_position = -1;   // grid steps from the first position of that measure
  double step_seconds = -1.0;  // one grid step here; 0.0 at the end of the song and inside triplets
  int position_idx = -1;       // grid steps from the first beat of the song
  int64_t fine_position = -1;  // position_idx * kPositionsPerStep on the plain grid
};
