#pragma once

#include <QMetaType>
#include <QString>
#include <vector>

// The time-frequency amplitude grid of the program: `amplitudes[band][column]`, bands on
// the 88-key axis at `freqs_per_note` bands per semitone (band of key k = half + k * b, half
// = trunc(b / 2)), columns `time_step` seconds apart from `start_time`. Frequencies in Hz,
// times in seconds. The grid owns its vectors; everyone else borrows a pointer from the
// job that owns it. Not thread-safe: a grid is written by one stage, then only read.
class Spectrogram {
 public:
  // Lays out both axes for [start_time, stop_time) and zeroes the amplitudes. time_step,
  // q_factor, filter_passes and the percent fields are set by the caller beforehand and
  // left alone.
  void Initialize(double start_time, double stop_time, double freqs_per_note);
  void CalculateFrequencies(double freqs_per_note);
  // At least one column; a last partial step is dropped.
  void CalculateTimes(double start_time, double stop_time);

  // Extremes and the two display percentiles over every second row and column. A silent
  // grid gets percentile_high_value 1.0, so that scaling by it stays harmless.
  void CalculateStatistics();
  void CopyStatistics(const Spectrogram& other);
  // Multiplies every cell (and the statistics, if ready) by `factor`.
  void Scale(double factor);
  // The colour-map knee: values above percentile_low_value are squeezed so that the range
  // up to max_amplitude fits between the two percentiles.
  float DisplayAmplitude(float x) const;
  // Frees the axes and cells; the configuration stays so the grid can be laid out again.
  void Close();

  double q_factor = 1.0;
  double freqs_per_note = 0.0;
  double freqs_per_octave = 1.0;
  double time_step = 1.0;
  int filter_passes = 1;
  std::vector<double> frequencies;
  std::vector<double> times;
  std::vector<std::vector<float>> amplitudes;
  int num_freqs = 0;
  int num_times = 0;
  double lowest_key_position = 0.0;
  double highest_key_position = 0.0;
  std::vector<double> harmonic_offsets;  // bands from a fundamental to harmonics 1 .. 20
  float min_amplitude = 0.0f;
  float max_amplitude = 0.0f;
  float percentile_low_value = 0.0f;
  float percentile_high_value = 0.0f;
  float percentile_low = 0.0f;
  float percentile_high = 0.0f;
  bool statistics_ready = false;
  double scale = 1.0;
  double start_time = 0.0;
  double stop_time = 0.0;
  QString name;
};

Q_DECLARE_METATYPE(const Spectrogram*)
