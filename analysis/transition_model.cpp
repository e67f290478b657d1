#include "analysis/transition_model.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

TransitionModel::TransitionModel(const MeasureStateSpace& space) {
  num_states = space.num_states;
  std::vector<char> is_first(num_states, 0);
  for (const auto& beat : space.first_states)
    for (int s : beat) is_first[s] = 1;

  std::vector<std::tuple<int, int, double>> entries;
  entries.reserve(num_states + space.num_beats * space.num_intervals * space.num_intervals);
  for (int s = 0; s < num_states; ++s)
    if (!is_first[s]) entries.emplace_back(s, s - 1, 1.0);

  std::vector<std::vector<double>> matrix;
  for (int b = 0; b < space.num_beats; ++b) {
    const int previous = b == 0 ? space.num_beats - 1 : b - 1;
    const auto& sources = space.last_states[previous];
    const auto& destinations = space.first_states[b];
    std::vector<int> from_intervals, to_intervals;
    for (int s : sources) from_intervals.push_back(space.state_intervals[s]);
    for (int s : destinations) to_intervals.push_back(space.state_intervals[s]);
    ExponentialTransition(from_intervals, to_intervals, &matrix);
    for (size_t f = 0; f < sources.size(); ++f)
      for (size_t t = 0; t < destinations.size(); ++t)
        if (matrix[f][t] != 0.0) entries.emplace_back(destinations[t], sources[f], matrix[f][t]);
  }

  const int64_t n = num_states;
  std::stable_sort(entries.begin(), entries.end(), [n](const auto& a, const auto& b) {
    return std::get<0>(a) * n + std::get<1>(a) < std::get<0>(b) * n + std::get<1>(b);
  });
  MakeSparse(entries);
  log_probabilities.resize(probabilities.size());
  for (size_t k = 0; k < probabilities.size(); ++k) log_probabilities[k] = std::log(probabilities[k]);
}

void TransitionModel::ExponentialTransition(const std::vector<int>& from_intervals,
                                            const std::vector<int>& to_intervals,
                                            std::vector<std::vector<double>>* matrix) const {
  matrix->assign(from_intervals.size(), std::vector<double>(to_intervals.size(), 0.0));
  for (size_t f = 0; f < from_intervals.size(); ++f) {
    auto& row = (*matrix)[f];
    double sum = 0.0;
    for (size_t t = 0; t < to_intervals.size(); ++t) {
      const double ratio = static_cast<double>(to_intervals[t]) / from_intervals[f];
      double value = std::exp(-transition_lambda * std::abs(ratio - 1.0));
      if (value < kEpsilon) value = 0.0;
      row[t] = value;
      sum += value;
    }
    const double norm = sum == 0.0 ? kEpsilon : sum;
    for (double& value : row) value /= norm;
  }
}

void TransitionModel::MakeSparse(const std::vector<std::tuple<int, int, double>>& entries) {
  indices.clear();
  probabilities.clear();
  indptr.assign(1, 0);
  indices.reserve(entries.size());
  probabilities.reserve(entries.size());
  int destination = 0;
  for (const auto& [to, from, probability] : entries) {
    // Close the rows of every destination up to this one, repeating the count for empty rows.
    while (destination < to) {
      indptr.push_back(static_cast<int>(indices.size()));
      ++destination;
    }
    indices.push_back(from);
    probabilities.push_back(probability);
  }
  while (destination < num_states) {
    indptr.push_back(static_cast<int>(indices.size()));
    ++destination;
  }
  num_transitions = static_cast<int>(indices.size());
}
