#include "score/spectrogram.h"

#include <algorithm>
#include <cmath>

#include "score/keyboard.h"
#include "score/percentile_value.h"

namespace {

constexpr double kOneOver87 = 0.011494252873563218;
constexpr double kLog2E = 1.4426950408889634;
constexpr double kMaxBands = 1 << 16;

}  // namespace

void Spectrogram::Initialize(double start_time_, double stop_time_, double freqs_per_note_) {
  start_time = start_time_;
  stop_time = stop_time_;
  CalculateTimes(start_time_, stop_time_);
  CalculateFrequencies(freqs_per_note_);
  std::vector<std::vector<float>>().swap(amplitudes);
  amplitudes.assign(num_freqs, std::vector<float>(num_times, 0.0f));
}

void Spectrogram::CalculateFrequencies(double b) {
  const std::vector<double>& keys = Keyboard::key_freqs_;
  const double step = std::pow(keys[87] / keys[0], kOneOver87 / b);
  const double half = std::trunc(b * 0.5);
  const double count = std::trunc(88.0 * b + 0.5);
  // A resolution from a damaged project file must not turn into a wild band count.
  num_freqs = count >= 0.0 && count <= kMaxBands ? static_cast<int>(count) : 0;
  const double base = keys[87] / std::pow(step, half + 87.0 * b);
  frequencies.resize(num_freqs);
  for (int i = 0; i < num_freqs; ++i) frequencies[i] = std::pow(step, i) * base;

  freqs_per_note = b;
  if (num_freqs > 1) {
    freqs_per_octave = (num_freqs - 1) / (std::log(frequencies.back() / frequencies.front()) * kLog2E);
  }
  const double divisor = num_freqs > 0 ? num_freqs : 1.0;
  lowest_key_position = (half + 0.5) / divisor;
  highest_key_position = (half + 87.0 * b + 0.5) / divisor;
  harmonic_offsets.clear();
  harmonic_offsets.push_back(0.0);
  for (double h = 2.0; h <= 20.0; h += 1.0) harmonic_offsets.push_back(freqs_per_octave * std::log(h) * kLog2E);
}

void Spectrogram::CalculateTimes(double start_time_, double stop_time_) {
  const double steps = std::trunc((stop_time_ - start_time_) / time_step);
  // Written to fail safe on NaN and on spans too long for the column count.
  num_times = steps >= 1.0 && steps < 2147483647.0 ? static_cast<int>(steps) : 1;
  times.resize(num_times);
  for (int i = 0; i < num_times; ++i) times[i] = i * time_step + start_time_;
}

void Spectrogram::CalculateStatistics() {
  if (num_freqs > 0 && num_times > 0) {
    min_amplitude = max_amplitude = amplitudes[0][0];
    for (const std::vector<float>& row : amplitudes) {
      const auto [lo, hi] = std::minmax_element(row.begin(), row.end());
      if (lo == row.end()) continue;
      min_amplitude = std::min(min_amplitude, *lo);
      max_amplitude = std::max(max_amplitude, *hi);
    }
  }
  percentile_low_value = PercentileValue(amplitudes, num_freqs, num_times, percentile_low, 2, 2, percentile_high,
                                         &percentile_high_value);
  if (percentile_high_value == 0.0f) {
    percentile_high_value = 1.0f;
    if (max_amplitude < 1.0f) max_amplitude = 1.0f;
  }
  statistics_ready = true;
}

void Spectrogram::CopyStatistics(const Spectrogram& other) {
  percentile_low = other.percentile_low;
  percentile_high = other.percentile_high;
  min_amplitude = other.min_amplitude;
  max_amplitude = other.max_amplitude;
  percentile_low_value = other.percentile_low_value;
  percentile_high_value = other.percentile_high_value;
  statistics_ready = true;
}

void Spectrogram::Scale(double factor) {
  for (std::vector<float>& row : amplitudes) {
    for (float& cell : row) cell = static_cast<float>(cell * factor);
  }
  if (statistics_ready) {
    min_amplitude = static_cast<float>(min_amplitude * factor);
    max_amplitude = static_cast<float>(max_amplitude * factor);
    percentile_low_value = static_cast<float>(percentile_low_value * factor);
    percentile_high_value = static_cast<float>(percentile_high_value * factor);
  }
  scale *= factor;
}

float Spectrogram::DisplayAmplitude(float x) const {
  if (x <= percentile_low_value) return x;
  return percentile_low_value +
         (percentile_high_value - percentile_low_value) * (x - percentile_low_value) /
             (max_amplitude - percentile_low_value);
}

void Spectrogram::Close() {
  frequencies.clear();
  times.clear();
  amplitudes.clear();
  scale = 1.0;
  statistics_ready = false;
}
