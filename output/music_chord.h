#pragma once

#include <set>
#include <vector>

#include "output/note_type.h"
#include "score/music_position.h"

// A vertical slice of one staff in which every sounding key starts and ends together. A slice
// never crosses a bar line; a key that goes on past it is tied into the next slice. No keys
// makes a rest.
struct MusicChord {
  MusicChord(const MusicPosition& start, const MusicPosition& stop) : start(start), stop(stop) {}

  MusicPosition start;
  MusicPosition stop;
  const NoteType* note_type = nullptr;  // set for a slice of a triplet
  int triplet_position = -1;            // 0, 1 or 2 inside a triplet
  std::vector<int> keys;                // ascending
  std::set<int> ties_onward;            // keys that go on into the next slice
  std::set<int> ties_back;              // keys that come from the previous slice
};
