#include "analysis/beat_state_space.h"

BeatStateSpace::BeatStateSpace()
    : intervals{28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47,
                48, 49, 50, 51, 52, 53, 54, 55, 56, 58, 59, 60, 61, 63, 64, 65, 67, 68, 70, 71,
                73, 74, 76, 78, 79, 81, 83, 84, 86, 88, 90, 92, 94, 96, 98, 100, 102, 105, 107, 109} {
  num_intervals = static_cast<int>(intervals.size());
  for (int interval : intervals) {
    first_states.push_back(num_states);
    for (int p = 0; p < interval; ++p) {
      state_positions.push_back(static_cast<double>(p) / interval);
      state_intervals.push_back(interval);
    }
    num_states += interval;
    last_states.push_back(num_states - 1);
  }
}
