#pragma once

#include <vector>

#include "analysis/beat_state_space.h"

// The states of a whole measure: `num_beats` copies of the beat state space, numbered beat by
// beat, then tempo by tempo, then position by position.
class MeasureStateSpace {
 public:
  MeasureStateSpace(int num_beats, const BeatStateSpace& beat_space);

  int num_beats;
  int num_states;
  std::vector<double> state_positions;  // beat index + position within the beat
  std::vector<int> state_intervals;
  std::vector<std::vector<int>> first_states;  // [beat][tempo]
  std::vector<std::vector<int>> last_states;   // [beat][tempo]
  float min_interval = 27.906977f;             // 60 * 100 / 215 frames
  float max_interval = 109.09091f;             // 60 * 100 / 55 frames
  int num_intervals;
};
