#pragma once

#include <tuple>
#include <vector>

#include "analysis/measure_state_space.h"

// Sparse transition matrix of a measure, one compressed row per destination state. Inside a
// beat the position only moves on (a single entry of probability 1 from the state before); at
// a beat boundary the last state of every tempo of the previous beat leads to the first state
// of every tempo, weighted by exp(-lambda |t / f - 1|).
class TransitionModel {
 public:
  explicit TransitionModel(const MeasureStateSpace& space);

  static constexpr double kEpsilon = 2.220446049250313e-16;

  // matrix[source][destination] for each from-interval f and to-interval t; values below
  // kEpsilon become 0, then each source row is normalised by its sum (kEpsilon if 0).
  void ExponentialTransition(const std::vector<int>& from_intervals, const std::vector<int>& to_intervals,
                             std::vector<std::vector<double>>* matrix) const;
  // `entries` are (destination, source, probability), sorted by destination then source.
  void MakeSparse(const std::vector<std::tuple<int, int, double>>& entries);

  std::vector<int> indices;  // source of each entry
  std::vector<int> indptr;   // num_states + 1: where each destination's entries begin
  std::vector<double> probabilities;
  std::vector<double> log_probabilities;
  int num_states = 0;
  int num_transitions = 0;
  int transition_lambda = 100;
};
