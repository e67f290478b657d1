#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "score/keyboard.h"
#include "score/spectrogram.h"

namespace {

Spectrogram Grid(double time_step, double start, double stop, double freqs_per_note) {
  Spectrogram grid;
  grid.time_step = time_step;
  grid.percentile_low = 97.0f;
  grid.percentile_high = 98.0f;
  grid.Initialize(start, stop, freqs_per_note);
  return grid;
}

TEST(SpectrogramFrequencies, FourBandsPerNoteCentreEveryKeyTwoBandsUp) {
  const Spectrogram grid = Grid(0.01, 0.0, 1.0, 4.0);
  ASSERT_EQ(grid.num_freqs, 352);
  ASSERT_EQ(grid.frequencies.size(), 352u);
  EXPECT_NEAR(grid.frequencies[2], 27.5, 1e-9);
  EXPECT_NEAR(grid.frequencies[350], 4186.0, 1e-9);
  for (int k = 0; k < 88; ++k) EXPECT_NEAR(grid.frequencies[2 + 4 * k] / Keyboard::key_freqs_[k], 1.0, 3e-4);
  // Band 351 lies one band above the top key, band 0 two below the bottom one.
  const double ratio = grid.frequencies[351] / grid.frequencies[350];
  EXPECT_NEAR(ratio, std::pow(4186.0 / 27.5, 1.0 / 348.0), 1e-12);
  EXPECT_NEAR(grid.frequencies[0] * ratio * ratio, 27.5, 1e-9);
  EXPECT_EQ(grid.freqs_per_note, 4.0);
  EXPECT_NEAR(grid.freqs_per_octave, 48.0, 1e-3);
  EXPECT_DOUBLE_EQ(grid.lowest_key_position, 2.5 / 352.0);
  EXPECT_DOUBLE_EQ(grid.highest_key_position, 350.5 / 352.0);
  ASSERT_EQ(grid.harmonic_offsets.size(), 20u);
  EXPECT_EQ(grid.harmonic_offsets[0], 0.0);
  EXPECT_NEAR(grid.harmonic_offsets[3], 2.0 * grid.freqs_per_octave, 1e-12);  // the fourth harmonic
  EXPECT_NEAR(grid.harmonic_offsets[19], grid.freqs_per_octave * std::log2(20.0), 1e-9);
}

TEST(SpectrogramFrequencies, OneAndFractionalBandsPerNote) {
  const Spectrogram one = Grid(0.01, 0.0, 1.0, 1.0);
  EXPECT_EQ(one.num_freqs, 88);
  EXPECT_NEAR(one.frequencies[0], 27.5, 1e-9);  // half = 0: band k is key k
  EXPECT_NEAR(one.frequencies[87], 4186.0, 1e-9);

  const Spectrogram preview = Grid(0.005, 0.0, 1.0, 0.602);
  EXPECT_EQ(preview.num_freqs, 53);
  EXPECT_NEAR(preview.frequencies[0], 27.5, 1e-9);
  EXPECT_DOUBLE_EQ(preview.lowest_key_position, 0.5 / 53.0);
  // The top key lies 87 * 0.602 = 52.374 bands up, beyond the last band.
  EXPECT_NEAR(preview.frequencies[52], 27.5 * std::pow(4186.0 / 27.5, 52.0 / 52.374), 1e-6);
}

TEST(SpectrogramTimes, DropsTheLastPartialStepAndKeepsOneColumnAtLeast) {
  Spectrogram grid = Grid(0.25, 1.0, 2.1, 1.0);
  ASSERT_EQ(grid.num_times, 4);
  EXPECT_EQ(grid.times, (std::vector<double>{1.0, 1.25, 1.5, 1.75}));
  EXPECT_EQ(grid.start_time, 1.0);
  EXPECT_EQ(grid.stop_time, 2.1);

  grid.CalculateTimes(1.0, 1.2);  // shorter than a step
  EXPECT_EQ(grid.num_times, 1);
  EXPECT_EQ(grid.times, std::vector<double>{1.0});
  grid.CalculateTimes(3.0, 2.0);  // inverted
  EXPECT_EQ(grid.num_times, 1);
  EXPECT_EQ(grid.times, std::vector<double>{3.0});
}

TEST(SpectrogramInitialize, ZeroesAGridOfBothAxesAndKeepsTheConfiguration) {
  Spectrogram grid;
  grid.time_step = 0.1;
  grid.q_factor = 12.0;
  grid.filter_passes = 2;
  grid.percentile_low = 97.0f;
  grid.amplitudes = {{5.0f}};
  grid.Initialize(0.0, 0.95, 4.0);
  EXPECT_EQ(grid.num_times, 9);
  ASSERT_EQ(grid.amplitudes.size(), 352u);
  for (const auto& row : grid.amplitudes) {
    ASSERT_EQ(row.size(), 9u);
    for (float cell : row) EXPECT_EQ(cell, 0.0f);
  }
  EXPECT_EQ(grid.time_step, 0.1);
  EXPECT_EQ(grid.q_factor, 12.0);
  EXPECT_EQ(grid.filter_passes, 2);
  EXPECT_EQ(grid.percentile_low, 97.0f);
}

TEST(SpectrogramInitialize, HostileResolutionsGiveASaneEmptyAxis) {
  Spectrogram grid;
  grid.time_step = 0.0;  // a zero step from a damaged file
  grid.Initialize(0.0, 10.0, -3.0);
  EXPECT_EQ(grid.num_freqs, 0);
  EXPECT_EQ(grid.num_times, 1);
  grid.time_step = std::nan("");
  grid.Initialize(0.0, 10.0, std::nan(""));
  EXPECT_EQ(grid.num_freqs, 0);
  EXPECT_EQ(grid.num_times, 1);
}

TEST(SpectrogramStatistics, SilenceKeepsAUsableScale) {
  Spectrogram grid = Grid(0.01, 0.0, 0.5, 1.0);
  grid.CalculateStatistics();
  EXPECT_TRUE(grid.statistics_ready);
  EXPECT_EQ(grid.min_amplitude, 0.0f);
  EXPECT_EQ(grid.max_amplitude, 1.0f);
  EXPECT_EQ(grid.percentile_low_value, 0.0f);
  EXPECT_EQ(grid.percentile_high_value, 1.0f);
}

TEST(SpectrogramStatistics, PercentilesSampleEverySecondRowAndColumn) {
  Spectrogram grid = Grid(0.01, 0.0, 1.0, 1.0);  // 88 x 100
  std::mt19937 random(7);
  std::uniform_real_distribution<float> uniform(0.0f, 10.0f);
  std::vector<float> sampled;
  for (int r = 0; r < grid.num_freqs; ++r) {
    for (int c = 0; c < grid.num_times; ++c) {
      grid.amplitudes[r][c] = uniform(random);
      if (r % 2 == 0 && c % 2 == 0) sampled.push_back(grid.amplitudes[r][c]);
    }
  }
  grid.amplitudes[1][1] = 50.0f;  // off the sampled lattice: counts for the maximum only
  grid.amplitudes[3][5] = -2.0f;
  grid.CalculateStatistics();
  std::sort(sampled.begin(), sampled.end());
  const size_t n = sampled.size();
  // The (trunc(n * 0.97) + 1)-th smallest sampled cell.
  EXPECT_EQ(grid.percentile_low_value, sampled[static_cast<size_t>(std::trunc(n * (97.0 * 0.01)))]);
  EXPECT_EQ(grid.max_amplitude, 50.0f);
  EXPECT_EQ(grid.min_amplitude, -2.0f);
  EXPECT_GE(grid.percentile_high_value, grid.percentile_low_value);
  EXPECT_LT(grid.percentile_high_value, 10.0f);
}

TEST(SpectrogramScale, ScalesStatisticsOnlyWhenReady) {
  Spectrogram grid = Grid(0.5, 0.0, 1.0, 1.0);
  grid.amplitudes[4][1] = 3.0f;
  grid.Scale(2.0);
  EXPECT_EQ(grid.amplitudes[4][1], 6.0f);
  EXPECT_EQ(grid.max_amplitude, 0.0f);
  EXPECT_EQ(grid.scale, 2.0);

  grid.CalculateStatistics();
  const float high = grid.percentile_high_value;
  grid.Scale(0.5);
  EXPECT_EQ(grid.amplitudes[4][1], 3.0f);
  EXPECT_EQ(grid.max_amplitude, 3.0f);
  EXPECT_EQ(grid.percentile_high_value, high * 0.5f);
  EXPECT_EQ(grid.scale, 1.0);
  EXPECT_EQ(grid.percentile_low, 97.0f);
}

TEST(SpectrogramDisplay, KneeSqueezesTheLoudestCellsBetweenThePercentiles) {
  Spectrogram grid;
  grid.percentile_low_value = 2.0f;
  grid.percentile_high_value = 3.0f;
  grid.max_amplitude = 12.0f;
  EXPECT_EQ(grid.DisplayAmplitude(1.5f), 1.5f);
  EXPECT_EQ(grid.DisplayAmplitude(2.0f), 2.0f);
  EXPECT_FLOAT_EQ(grid.DisplayAmplitude(7.0f), 2.5f);
  EXPECT_FLOAT_EQ(grid.DisplayAmplitude(12.0f), 3.0f);
}

TEST(SpectrogramClose, FreesTheDataAndKeepsTheConfiguration) {
  Spectrogram grid = Grid(0.01, 0.0, 1.0, 4.0);
  grid.q_factor = 12.0;
  grid.CalculateStatistics();
  grid.Scale(3.0);
  grid.Close();
  EXPECT_TRUE(grid.frequencies.empty());
  EXPECT_TRUE(grid.times.empty());
  EXPECT_TRUE(grid.amplitudes.empty());
  EXPECT_EQ(grid.scale, 1.0);
  EXPECT_FALSE(grid.statistics_ready);
  EXPECT_EQ(grid.q_factor, 12.0);
  EXPECT_EQ(grid.time_step, 0.01);
  grid.Initialize(0.0, 0.1, 1.0);
  EXPECT_EQ(grid.num_freqs, 88);
  EXPECT_EQ(grid.num_times, 10);
}

}  // namespace
