#include "analysis/beat_hmm.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr double kMinusInfinity = -std::numeric_limits<double>::infinity();
constexpr uint16_t kNotTaken = 0xFFFF;

float Activation(const std::vector<float>& row, size_t i) { return i < row.size() ? row[i] : 0.0f; }

}  // namespace

BeatHMM::BeatHMM(int num_beats_, const BeatStateSpace& beat_space)
    : num_beats(num_beats_), space(num_beats_, beat_space), transitions(space), observations(space) {
  const int states = space.num_states;
  initial_distribution.assign(states, 1.0 / states);
  chain_sources_.resize(states);
  chain_log_probs_.resize(states);
  wide_index_.assign(states, -1);
  for (int s = 0; s < states; ++s) {
    const int begin = transitions.indptr[s];
    if (transitions.indptr[s + 1] - begin == 1) {
      chain_sources_[s] = transitions.indices[begin];
      chain_log_probs_[s] = transitions.log_probabilities[begin];
    } else {
      chain_sources_[s] = s;
      chain_log_probs_[s] = kMinusInfinity;
      wide_index_[s] = static_cast<int>(wide_states_.size());
      wide_states_.push_back(s);
    }
  }
}

void BeatHMM::Calculate(const std::vector<std::vector<float>>& activations) {
  if (activations.empty()) return;
  const int frames = static_cast<int>(activations.size());
  auto reaches = [&](int t) {
    return static_cast<double>(Activation(activations[t], 0)) >= threshold ||
           static_cast<double>(Activation(activations[t], 1)) >= threshold;
  };
  first_frame = 0;
  while (first_frame < frames && !reaches(first_frame)) ++first_frame;
  if (first_frame == frames) {
    first_frame = 0;
    last_frame = frames;
  } else {
    last_frame = frames;
    while (last_frame > first_frame && !reaches(last_frame - 1)) --last_frame;
  }
  Viterbi(activations);
}

void BeatHMM::FrameObservations(const std::vector<float>& row, double* log_densities) const {
  const float beat = Activation(row, 0);
  const float downbeat = Activation(row, 1);
  const float sum = beat + downbeat;
  log_densities[0] = std::log((1.0 - static_cast<double>(sum)) * (1.0 / (observations.observation_lambda - 1)));
  log_densities[1] = static_cast<double>(std::log(beat));
  log_densities[2] = static_cast<double>(std::log(downbeat));
}

size_t BeatHMM::CompactBackPointerBytes(int frames) const {
  return static_cast<size_t>(frames) * wide_states_.size() * sizeof(uint16_t);
}

size_t BeatHMM::PlainBackPointerBytes(int frames) const {
  return static_cast<size_t>(frames) * space.num_states * sizeof(int);
}

void BeatHMM::Viterbi(const std::vector<std::vector<float>>& activations) {
  const int frames = last_frame - first_frame;
  path.clear();
  log_probability = kMinusInfinity;
  if (frames <= 0) return;
  const int states = space.num_states;
  const int wide = static_cast<int>(wide_states_.size());
  std::vector<uint16_t> wide_pointers(static_cast<size_t>(frames) * wide);

  std::vector<double> previous(states), current(states);
  for (int s = 0; s < states; ++s) previous[s] = std::log(initial_distribution[s]);
  const int* pointers = observations.pointers.data();
  const int* sources = chain_sources_.data();
  const double* chain_logs = chain_log_probs_.data();
  const int* indptr = transitions.indptr.data();
  const int* indices = transitions.indices.data();
  const double* log_probs = transitions.log_probabilities.data();

  double obs[3];
  for (int t = 0; t < frames; ++t) {
    FrameObservations(activations[first_frame + t], obs);
    const double* prev = previous.data();
    double* cur = current.data();
    for (int s = 0; s < states; ++s) {
      const double v = prev[sources[s]] + obs[pointers[s]] + chain_logs[s];
      cur[s] = v > kMinusInfinity ? v : kMinusInfinity;
    }
    uint16_t* row_pointers = wide_pointers.data() + static_cast<size_t>(t) * wide;
    for (int m = 0; m < wide; ++m) {
      const int s = wide_states_[m];
      const double observation = obs[pointers[s]];
      double best = kMinusInfinity;
      uint16_t best_k = kNotTaken;
      for (int k = indptr[s]; k < indptr[s + 1]; ++k) {
        const double v = prev[indices[k]] + observation + log_probs[k];
        if (v > best) {
          best = v;
          best_k = static_cast<uint16_t>(k - indptr[s]);
        }
      }
      cur[s] = best;
      row_pointers[m] = best_k;
    }
    previous.swap(current);
  }

  int state = 0;
  for (int s = 0; s < states; ++s)
    if (previous[s] > log_probability) {
      log_probability = previous[s];
      state = s;
    }
  path.resize(frames);
  path[frames - 1] = state;
  for (int t = frames - 1; t > 0; --t) {
    // A one-entry state is only ever reached through a taken pointer from a state of finite
    // value, so its own value was finite and its single source was taken.
    int source = chain_sources_[state];
    const int m = wide_index_[state];
    if (m >= 0) {
      source = 0;
      const uint16_t k = wide_pointers[static_cast<size_t>(t) * wide + m];
      if (k != kNotTaken) source = indices[indptr[state] + k];
    }
    path[t - 1] = source;
    state = source;
  }
}

void BeatHMM::ViterbiReference(const std::vector<std::vector<float>>& activations) {
  const int frames = last_frame - first_frame;
  path.clear();
  log_probability = kMinusInfinity;
  if (frames <= 0) return;
  const int states = space.num_states;
  std::vector<int> back_pointers(static_cast<size_t>(frames) * states, 0);
  std::vector<double> previous(states), current(states);
  for (int s = 0; s < states; ++s) previous[s] = std::log(initial_distribution[s]);
  double obs[3];
  for (int t = 0; t < frames; ++t) {
    FrameObservations(activations[first_frame + t], obs);
    for (int s = 0; s < states; ++s) {
      current[s] = kMinusInfinity;
      const double observation = obs[observations.pointers[s]];
      for (int k = transitions.indptr[s]; k < transitions.indptr[s + 1]; ++k) {
        const double v = previous[transitions.indices[k]] + observation + transitions.log_probabilities[k];
        if (v > current[s]) {
          current[s] = v;
          back_pointers[static_cast<size_t>(t) * states + s] = transitions.indices[k];
        }
      }
    }
    previous.swap(current);
  }
  int state = 0;
  for (int s = 0; s < states; ++s)
    if (previous[s] > log_probability) {
      log_probability = previous[s];
      state = s;
    }
  path.resize(frames);
  path[frames - 1] = state;
  for (int t = frames - 1; t > 0; --t) {
    state = back_pointers[static_cast<size_t>(t) * states + state];
    path[t - 1] = state;
  }
}
