#pragma once

#include <vector>

// The states of one beat for all 60 tempi: a tempo with an interval of n frames (10 ms each)
// has n states, one per position inside the beat. Read-only once built; shared by the HMMs.
class BeatStateSpace {
 public:
  BeatStateSpace();

  std::vector<int> intervals;          // beat length in frames per tempo, 28 to 109
  std::vector<int> first_states;       // first state of each tempo
  std::vector<int> last_states;        // last state of each tempo
  std::vector<double> state_positions;  // position within the beat, 0 up to below 1
  std::vector<int> state_intervals;    // interval of each state's tempo
  int num_states = 0;                  // 3719
  int num_intervals = 0;               // 60
};
