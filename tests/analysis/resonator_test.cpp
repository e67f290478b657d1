#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "analysis/auto_focus_spectrogram.h"
#include "analysis/resonator_bank.h"
#include "analysis/resonator_grid.h"
#include "analysis_test_support.h"
#include "score/spectrogram.h"

namespace {

using test_support::AudioJob;
using test_support::kSampleRate;

Spectrogram Grid(double time_step, double seconds, double freqs_per_note, int passes, double q) {
  Spectrogram grid;
  grid.time_step = time_step;
  grid.filter_passes = passes;
  grid.q_factor = q;
  grid.Initialize(0.0, seconds, freqs_per_note);
  return grid;
}

// A Q-map with values all over the allowed range, so that every interpolation path counts.
Spectrogram RandomQMap(double seconds) {
  Spectrogram map = Grid(0.1, seconds, 0.602, 2, 5.0);
  std::mt19937 random(17);
  std::uniform_real_distribution<float> q(5.0f, 40.0f);
  for (auto& row : map.amplitudes) {
    for (float& cell : row) cell = q(random);
  }
  return map;
}

bool BitEqual(float a, float b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// The lane widths this processor runs: the baseline always, the wide one where available.
std::vector<int> LaneWidths() {
  std::vector<int> widths = {ResonatorBank::kBaseLanes};
  if (ResonatorBank::Lanes() == ResonatorBank::kWideLanes) widths.push_back(ResonatorBank::kWideLanes);
  return widths;
}

// The SIMD bank must give the reference's numbers bit for bit, whatever the grid.
void ExpectBankMatchesReference(const std::vector<float>& samples, const Spectrogram& grid,
                                const Spectrogram* q_map) {
  auto job = AudioJob(samples);
  AutoFocusSpectrogram calculator;
  calculator.job = job;
  Spectrogram reference = grid;
  for (int band = 0; band < grid.num_freqs; ++band) {
    calculator.SingleFrequencyAmplitudes(band, samples, &reference, const_cast<Spectrogram*>(q_map));
  }
  int nonzero = 0;
  for (int band = 0; band < grid.num_freqs; ++band) {
    for (int t = 0; t < grid.num_times; ++t) nonzero += reference.amplitudes[band][t] != 0.0f;
  }
  EXPECT_GT(nonzero, grid.num_freqs * grid.num_times / 2);

  for (int lanes : LaneWidths()) {
    Spectrogram bank = grid;
    for (int first = 0; first < grid.num_freqs; first += lanes) {
      ASSERT_TRUE(ResonatorBank::Fill(first, samples, kSampleRate, &bank, q_map, lanes));
    }
    for (int band = 0; band < grid.num_freqs; ++band) {
      for (int t = 0; t < grid.num_times; ++t) {
        ASSERT_TRUE(BitEqual(bank.amplitudes[band][t], reference.amplitudes[band][t]))
            << lanes << " lanes, band " << band << " column " << t << ": " << bank.amplitudes[band][t]
            << " vs " << reference.amplitudes[band][t];
      }
    }
  }
}

std::vector<float> Mixture(double seconds) {
  std::vector<float> samples = test_support::Noise(seconds, 300.0, 3);
  const std::vector<float> a = test_support::Tone(110.0, seconds, 4000.0, 3.0);
  const std::vector<float> b = test_support::Tone(1318.5, seconds, 2500.0);
  for (size_t i = 0; i < samples.size(); ++i) samples[i] += a[i] + b[i];
  return samples;
}

TEST(ResonatorBank, MatchesTheReferenceBitForBit) {
  const std::vector<float> samples = Mixture(0.8);
  // 88 bands: full groups of lanes and a partial one; an odd column step.
  ExpectBankMatchesReference(samples, Grid(0.0137, 0.8, 1.0, 2, 12.0), nullptr);
  // Q from a map, interpolated in both directions.
  const Spectrogram q_map = RandomQMap(0.8);
  ExpectBankMatchesReference(samples, Grid(0.01, 0.8, 1.0, 2, 12.0), &q_map);
  // Other pass counts and the preview's resolution.
  ExpectBankMatchesReference(samples, Grid(0.005, 0.5, 0.602, 1, 5.0), nullptr);
  ExpectBankMatchesReference(samples, Grid(0.02, 0.5, 0.602, 3, 5.0), nullptr);
  // A grid that ends before the signal: the last column filters to the end.
  ExpectBankMatchesReference(samples, Grid(0.01, 0.3, 1.0, 2, 12.0), nullptr);
}

TEST(ResonatorBank, RefusesPassCountsAndWidthsItHasNoKernelFor) {
  const std::vector<float> samples = Mixture(0.1);
  Spectrogram grid = Grid(0.01, 0.1, 1.0, ResonatorBank::kMaxPasses + 1, 12.0);
  EXPECT_FALSE(ResonatorBank::Fill(0, samples, kSampleRate, &grid, nullptr));
  grid.filter_passes = 2;
  EXPECT_FALSE(ResonatorBank::Fill(0, samples, kSampleRate, &grid, nullptr, 8));  // no such kernel
}

TEST(ResonatorBank, AOneColumnGridReadsZero) {
  const std::vector<float> samples = Mixture(0.008);
  Spectrogram grid = Grid(0.01, 0.008, 1.0, 2, 12.0);
  ASSERT_EQ(grid.num_times, 1);
  grid.amplitudes[3][0] = 7.0f;
  ASSERT_TRUE(ResonatorBank::Fill(0, samples, kSampleRate, &grid, nullptr));
  EXPECT_EQ(grid.amplitudes[3][0], 0.0f);

  auto job = AudioJob(samples);
  AutoFocusSpectrogram calculator;
  calculator.job = job;
  grid.amplitudes[5][0] = 7.0f;
  calculator.SingleFrequencyAmplitudes(5, samples, &grid, nullptr);
  EXPECT_EQ(grid.amplitudes[5][0], 0.0f);
}

TEST(ResonatorBank, SurvivesSignalsTooShortToRead) {
  for (size_t n : {0u, 1u, 2u, 3u}) {
    const std::vector<float> samples(n, 1000.0f);
    Spectrogram grid = Grid(0.00002, 0.0001, 1.0, 2, 12.0);
    ASSERT_GE(grid.num_times, 2);
    ASSERT_TRUE(ResonatorBank::Fill(80, samples, kSampleRate, &grid, nullptr));
    for (float cell : grid.amplitudes[85]) EXPECT_EQ(cell, 0.0f);
  }
}

TEST(ResonatorGrid, SegmentsEndHalfAHopPastTheirColumnAndTheLastAtTheBufferEnd) {
  const Spectrogram grid = Grid(0.01, 1.0, 1.0, 2, 12.0);  // 100 columns of 441 samples
  const ResonatorGrid geometry(grid, 50000, kSampleRate);
  EXPECT_EQ(geometry.half_hop, 220);
  EXPECT_EQ(geometry.SegmentEnd(0), 220);
  EXPECT_EQ(geometry.SegmentEnd(10), 4410 + 220);
  EXPECT_EQ(geometry.SegmentEnd(98), 43218 + 220);
  EXPECT_EQ(geometry.SegmentEnd(99), 49999);
  const ResonatorGrid short_buffer(grid, 4500, kSampleRate);
  EXPECT_EQ(short_buffer.SegmentEnd(10), 4499);
  EXPECT_EQ(short_buffer.SegmentEnd(50), 4499);
  EXPECT_EQ(short_buffer.Centre(0), 1);
  EXPECT_EQ(short_buffer.Centre(5), 2205);
  EXPECT_EQ(short_buffer.Centre(11), 4498);
}

TEST(ResonatorGrid, EnvelopeJoinsTheExtremaOnEitherSide) {
  const Spectrogram grid = Grid(0.01, 1.0, 1.0, 2, 12.0);
  const ResonatorGrid geometry(grid, 20, kSampleRate);
  //                       0  1  2  3  4  5   6  7  8  9 10 11 12 13 14 15 16 17 18 19
  const float wave[20] = {0, 1, 2, 4, 2, 1, -1, -3, -8, -2, 0, 1, 1, 1, 1, 1, 1, 1, 1, 0};
  // From 6: the maximum 4 at 3 before, the minimum -8 at 8 after: 4 + (8 - 4) * 3 / 5.
  EXPECT_FLOAT_EQ(geometry.Envelope(wave, 0, 1, 6, 10), 4.0f + 4.0f * 3.0f / 5.0f);
  // A period too short to reach an extremum on one side gives 0.
  EXPECT_EQ(geometry.Envelope(wave, 0, 1, 6, 2), 0.0f);
  // The flat run after 11 holds no strict extremum.
  EXPECT_EQ(geometry.Envelope(wave, 0, 1, 12, 6), 0.0f);
  // Strided and offset storage reads the same samples.
  float strided[40] = {};
  for (int i = 0; i < 20; ++i) strided[2 * i + 1] = wave[i];
  EXPECT_EQ(geometry.Envelope(strided + 1, 0, 2, 6, 10), geometry.Envelope(wave, 0, 1, 6, 10));
  EXPECT_EQ(geometry.Envelope(wave + 2, 2, 1, 6, 10), geometry.Envelope(wave, 0, 1, 6, 10));
}

}  // namespace
