#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "analysis/beat_state_space.h"
#include "analysis/measure_state_space.h"
#include "analysis/observation_model.h"
#include "analysis/transition_model.h"

// A hidden Markov model of a measure of `num_beats` beats, decoded with Viterbi over frames of
// 10 ms. One object per measure length; used by one worker at a time.
class BeatHMM {
 public:
  BeatHMM(int num_beats, const BeatStateSpace& beat_space);

  // Activations hold one row per frame: [beat, downbeat]. Trims leading and trailing frames
  // where both stay below `threshold` (all frames if none reaches it), then decodes.
  // Fills first_frame, last_frame, log_probability and path (path[0] is first_frame).
  void Calculate(const std::vector<std::vector<float>>& activations);
  // Decodes frames first_frame .. last_frame - 1. Back-pointers are stored only for the states
  // whose row does not have exactly one entry (the beat-boundary states: 240 of 14876 in 4),
  // as a 16-bit index into the row: a one-entry state is only ever reached from a state of
  // finite value, so its single source is the one taken. A pointer never taken reads as
  // state 0, as in a zero-filled table; the result equals ViterbiReference.
  void Viterbi(const std::vector<std::vector<float>>& activations);
  // The same decoding with a plain table of one int per frame and state; for tests.
  void ViterbiReference(const std::vector<std::vector<float>>& activations);

  // Bytes of back-pointer storage that Viterbi needs for `frames` frames (compact), and what
  // the plain table would take.
  size_t CompactBackPointerBytes(int frames) const;
  size_t PlainBackPointerBytes(int frames) const;

  int num_beats;
  MeasureStateSpace space;
  TransitionModel transitions;
  ObservationModel observations;
  std::vector<double> initial_distribution;
  double threshold = 0.05;
  int first_frame = 0;
  int last_frame = 0;
  double log_probability = 0.0;
  std::vector<int> path;

 private:
  // Observation log-densities of one frame, by pointer.
  void FrameObservations(const std::vector<float>& row, double* log_densities) const;
  std::vector<int> chain_sources_;        // the single source of a one-entry row, else the state itself
  std::vector<double> chain_log_probs_;   // its log-probability, -inf for other rows
  std::vector<int> wide_states_;          // states whose row does not have exactly one entry
  std::vector<int> wide_index_;           // position in wide_states_, or -1
};
