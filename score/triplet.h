#pragma once

#include <utility>
#include <vector>

#include "score/music_position.h"

struct Note;

// Three equal parts of a span of 4, 8, 16... grid steps, shared by its notes through
// std::shared_ptr. A triplet that turns out invalid keeps its old positions, and its notes
// fall back on their own plain positions.
class Triplet {
 public:
  using PositionPair = std::pair<MusicPosition, MusicPosition>;

  Triplet(const MusicPosition& start, const MusicPosition& stop, int positions_per_step);

  // Decides whether start to stop can be a triplet and, if so, lays out its three parts.
  void CalculatePositions(const MusicPosition& start, const MusicPosition& stop, int positions_per_step);
  // The part at the note's `triplet_idx`; a negative or too large index takes the first part.
  const PositionPair& TripletPositions(const Note* note) const;
  // Grid steps from the start of the first part to the stop of the last.
  int Span() const;
  PositionPair StartStop() const;

  double start_time = 0.0;  // seconds
  double stop_time = 0.0;   // seconds
  bool valid = false;
  int level = -1;  // 1 for a span of 4 steps, 2 for 8, 3 for 16...
  int count = 3;
  std::vector<PositionPair> positions;
};
