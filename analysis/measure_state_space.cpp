#include "analysis/measure_state_space.h"

MeasureStateSpace::MeasureStateSpace(int num_beats_, const BeatStateSpace& beat_space)
    : num_beats(num_beats_),
      num_states(num_beats_ * beat_space.num_states),
      num_intervals(beat_space.num_intervals) {
  state_positions.reserve(num_states);
  state_intervals.reserve(num_states);
  for (int b = 0; b < num_beats; ++b) {
    const int offset = b * beat_space.num_states;
    for (double position : beat_space.state_positions) state_positions.push_back(b + position);
    state_intervals.insert(state_intervals.end(), beat_space.state_intervals.begin(),
                           beat_space.state_intervals.end());
    first_states.emplace_back();
    last_states.emplace_back();
    for (int i = 0; i < num_intervals; ++i) {
      first_states.back().push_back(offset + beat_space.first_states[i]);
      last_states.back().push_back(offset + beat_space.last_states[i]);
    }
  }
}
