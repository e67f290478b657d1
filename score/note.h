#pragma once

#include <memory>

#include "score/music_position.h"

class Triplet;

// One note or candidate. `stop_time` 0.0 means an automatic stop at the next onset in any key.
// Copies share the Triplet. Read a note's place through MusicStart() and MusicStop() only.
struct Note {
  int key_idx = -1;  // piano key 0 to 87
  double start_time = 0.0;
  double stop_time = 0.0;   // seconds as asked for; 0.0: automatic
  double frequency = -1.0;  // Hz of the key
  float score = 0.0f;       // confidence of note finding; notes the user adds have 2.0
  int volume = 64;          // 0 to 127
  int group = 1;            // note group 0 to 14: staff and track
  int triplet_idx = -1;     // place in the triplet, 0 to 2
  bool locked = false;      // survives threshold changes
  std::shared_ptr<Triplet> triplet;
  bool has_candidate = false;  // a candidate stood at this key and start when the note was placed
  double candidate_start_time = -1.0;
  MusicPosition music_start;  // onset on the plain grid
  MusicPosition music_stop;   // end on the plain grid

  // The triplet's part at `triplet_idx` when the note is in a valid triplet, else the plain grid.
  const MusicPosition& MusicStart() const;
  const MusicPosition& MusicStop() const;
  // The time from which the stop is recomputed: `stop_time`, or the triplet's stop for an
  // automatic note of a triplet.
  double StopTimeForUpdate() const;
  bool InValidTriplet() const;
};
