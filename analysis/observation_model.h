#pragma once

#include <vector>

#include "analysis/measure_state_space.h"

// Which activation each state reads: 2 in the first sixteenth of the measure (downbeat),
// 1 in the first sixteenth of any other beat, 0 elsewhere.
class ObservationModel {
 public:
  explicit ObservationModel(const MeasureStateSpace& space);

  std::vector<int> pointers;
  int observation_lambda = 16;
};
