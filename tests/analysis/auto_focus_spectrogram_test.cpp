#include "analysis/auto_focus_spectrogram.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <tuple>
#include <vector>

#include "analysis_test_support.h"
#include "score/keyboard.h"
#include "score/spectrogram.h"

namespace {

using test_support::AudioJob;
using test_support::Tone;

using Announcement = std::tuple<bool, bool, const Spectrogram*>;

// Runs the calculator and records what it announces and how far its progress went.
class AutoFocusTest : public ::testing::Test {
 protected:
  void Run(std::shared_ptr<TranscriptionJob> job, bool recalculate = false) {
    AutoFocusSpectrogram calculator;
    QObject::connect(&calculator, &AutoFocusSpectrogram::SpectrogramReady,
                     [this](bool first, bool second, const Spectrogram* grid) {
                       announced.emplace_back(first, second, grid);
                     });
    QObject::connect(&calculator, &AutoFocusSpectrogram::ProgressUpdate,
                     [this](std::shared_ptr<TranscriptionJob>, JobTasks::Tasks task, int done, int count) {
                       std::lock_guard<std::mutex> lock(mutex);
                       progress.emplace_back(task, done, count);
                     });
    if (recalculate) {
      calculator.Recalculate(job);
    } else {
      calculator.Calculate(job);
    }
  }

  static int LoudestBand(const Spectrogram& grid, int t) {
    int best = 0;
    for (int b = 1; b < grid.num_freqs; ++b) {
      if (grid.amplitudes[b][t] > grid.amplitudes[best][t]) best = b;
    }
    return best;
  }

  static int NearestBand(const Spectrogram& grid, double frequency) {
    int best = 0;
    for (int b = 1; b < grid.num_freqs; ++b) {
      if (std::abs(grid.frequencies[b] - frequency) < std::abs(grid.frequencies[best] - frequency)) best = b;
    }
    return best;
  }

  static float MaxCell(const Spectrogram& grid) {
    float most = 0.0f;
    for (const auto& row : grid.amplitudes) most = std::max(most, *std::max_element(row.begin(), row.end()));
    return most;
  }

  std::vector<Announcement> announced;
  std::mutex mutex;
  std::vector<std::tuple<JobTasks::Tasks, int, int>> progress;
};

TEST_F(AutoFocusTest, LaysOutThePreviewTheQMapAndTheMainGrid) {
  auto job = AudioJob(Tone(440.0, 1.0, 1000.0));
  job->channel_spectrograms.resize(2);
  Run(job);
  const Spectrogram& main = job->display_spectrogram;
  EXPECT_EQ(std::make_tuple(main.num_freqs, main.num_times, main.q_factor, main.filter_passes),
            std::make_tuple(352, 100, 12.0, 2));
  EXPECT_EQ(main.percentile_high, 98.0f);
  EXPECT_TRUE(main.statistics_ready);
  EXPECT_EQ(main.name.toStdString(), job->language.GUI_SPECTROGRAM_NAME_COMBINED_CHANNELS);

  const Spectrogram& preview = job->preview_spectrogram;
  EXPECT_EQ(std::make_tuple(preview.num_freqs, preview.num_times, preview.q_factor),
            std::make_tuple(53, 200, 5.0));
  EXPECT_NEAR(preview.percentile_high_value, 1.0f, 1e-6);  // scaled so
  const Spectrogram& q_map = job->q_map;
  EXPECT_EQ(std::make_tuple(q_map.num_freqs, q_map.num_times), std::make_tuple(53, 10));
  EXPECT_EQ(q_map.name, "Q-map");
  EXPECT_DOUBLE_EQ(q_map.times[3], preview.times[60]);

  // Channel grids are laid out like the main grid but not filled.
  const Spectrogram& right = job->channel_spectrograms[1];
  EXPECT_EQ(right.name.toStdString(), job->language.GUI_SPECTROGRAM_NAME_RIGHT_CHANNEL);
  EXPECT_EQ(std::make_tuple(right.num_freqs, right.num_times), std::make_tuple(352, 100));
  EXPECT_EQ(MaxCell(right), 0.0f);

  EXPECT_TRUE(job->spectrogram_ready);
  Run(job);  // a second run does not list the grid twice
  EXPECT_EQ(job->spectrogram_list, std::vector<Spectrogram*>{&job->display_spectrogram});
}

TEST_F(AutoFocusTest, APureToneAtAKeyPeaksInThatKeysBandAndFallsOffAround) {
  auto job = AudioJob(Tone(Keyboard::key_freqs_[48], 3.0, 10000.0));
  Run(job);
  const Spectrogram& main = job->display_spectrogram;
  const int band = 2 + 4 * 48;
  // Away from the onset and the end, where the Q-map stays at 5.
  for (int t = 80; t < 220; t += 10) {
    EXPECT_EQ(LoudestBand(main, t), band) << "column " << t;
    // The resonator has unit gain at its centre: the envelope is the tone's amplitude.
    EXPECT_NEAR(main.amplitudes[band][t], 10000.0f, 100.0f) << "column " << t;
    for (int d = 1; d <= 8; ++d) {
      EXPECT_LT(main.amplitudes[band + d][t], main.amplitudes[band + d - 1][t]) << "column " << t;
      EXPECT_LT(main.amplitudes[band - d][t], main.amplitudes[band - d + 1][t]) << "column " << t;
    }
    // Two passes at Q 5 a semitone off: (1 + 25 (r - 1 / r)^2)^-1 with r = 2^(1/12), 0.75;
    // an octave off (1 + 25 * 1.5^2)^-1, 0.0175.
    EXPECT_NEAR(main.amplitudes[band + 4][t], 7500.0f, 300.0f) << "column " << t;
    EXPECT_NEAR(main.amplitudes[band - 4][t], 7500.0f, 300.0f) << "column " << t;
    EXPECT_NEAR(main.amplitudes[band + 48][t], 175.0f, 30.0f) << "column " << t;
    EXPECT_NEAR(main.amplitudes[band - 48][t], 175.0f, 30.0f) << "column " << t;
  }
  EXPECT_EQ(LoudestBand(job->preview_spectrogram, 300), NearestBand(job->preview_spectrogram, 440.0));
}

TEST_F(AutoFocusTest, ASteadyToneKeepsTheQMapAtItsMinimum) {
  // 441 Hz repeats every 100 samples, so the filtered wave has the same extrema in every
  // cycle and the envelope no sampling ripple.
  auto job = AudioJob(Tone(441.0, 3.0, 10000.0));
  Run(job);
  const Spectrogram& q_map = job->q_map;
  // From 0.5 s after the onset to 0.5 s before the end, where no attack is in reach. What
  // is left is rounding in the single-precision filter: humps of a few millionths.
  for (int i = 0; i < q_map.num_freqs; ++i) {
    for (int m = 5; m < q_map.num_times - 5; ++m) {
      EXPECT_GE(q_map.amplitudes[i][m], 5.0f);
      EXPECT_LT(q_map.amplitudes[i][m], 5.01f) << "row " << i << " column " << m;
    }
  }
}

TEST_F(AutoFocusTest, APulsatingToneRaisesTheQMapInItsBand) {
  auto job = AudioJob(Tone(440.0, 3.0, 10000.0, 4.0));  // swinging fully four times a second
  Run(job);
  const std::vector<float>& row = job->q_map.amplitudes[NearestBand(job->q_map, 440.0)];
  EXPECT_GT(*std::max_element(row.begin() + 5, row.end() - 5), 6.0f);
  EXPECT_LE(*std::max_element(row.begin(), row.end()), 40.0f);
  for (float q : job->q_map.amplitudes[2]) EXPECT_EQ(q, 5.0f);  // far from the tone
}

TEST_F(AutoFocusTest, SilenceGivesZerosAndTheForcedStatistics) {
  auto job = AudioJob(std::vector<float>(44100, 0.0f));
  Run(job);
  EXPECT_EQ(MaxCell(job->display_spectrogram), 0.0f);
  EXPECT_EQ(MaxCell(job->preview_spectrogram), 0.0f);
  EXPECT_EQ(job->preview_spectrogram.percentile_high_value, 1.0f);
  EXPECT_EQ(job->preview_spectrogram.scale, 1.0);
  EXPECT_EQ(job->display_spectrogram.max_amplitude, 1.0f);
  for (const auto& row : job->q_map.amplitudes) {
    for (float q : row) EXPECT_EQ(q, 5.0f);
  }
}

TEST_F(AutoFocusTest, AnnouncesPreviewThenMainTwiceWhenNoRecalculationFollows) {
  auto job = AudioJob(Tone(440.0, 0.5, 1000.0));
  Run(job);
  EXPECT_EQ(announced, (std::vector<Announcement>{{true, false, &job->preview_spectrogram},
                                                  {true, true, &job->display_spectrogram},
                                                  {true, true, &job->display_spectrogram}}));
  // Progress counts the first pass, then the second, each to its end.
  ASSERT_FALSE(progress.empty());
  EXPECT_EQ(std::get<0>(progress.front()), JobTasks::kSpectrogramFirstPass);
  EXPECT_EQ(std::get<0>(progress.back()), JobTasks::kSpectrogramSecondPass);
  EXPECT_EQ(std::get<1>(progress.back()), std::get<2>(progress.back()));
}

TEST_F(AutoFocusTest, AFinerWishFindsNotesAtFourBandsAndRecalculatesAfterwards) {
  auto job = AudioJob(Tone(440.0, 0.5, 1000.0));
  job->freqs_per_note = 8;
  job->time_step = 5;
  Run(job);
  EXPECT_EQ(announced.size(), 2u);  // the main grid once: Recalculate will announce it
  EXPECT_EQ(job->display_spectrogram.num_freqs, 352);

  announced.clear();
  Run(job, true);
  const Spectrogram& main = job->display_spectrogram;
  EXPECT_EQ(std::make_tuple(main.num_freqs, main.num_times), std::make_tuple(704, 100));
  EXPECT_EQ(announced, (std::vector<Announcement>{{true, false, &main}}));
  EXPECT_EQ(LoudestBand(main, 50), 4 + 8 * 48);
  EXPECT_EQ(std::get<0>(progress.back()), JobTasks::kSpectrogramRecalculation);
}

TEST_F(AutoFocusTest, WithoutNoteFindingOrForMidiTheWishedResolutionIsUsedAtOnce) {
  auto job = AudioJob(Tone(440.0, 0.5, 1000.0));
  job->find_notes = false;
  job->freqs_per_note = 2;
  Run(job);
  EXPECT_EQ(job->display_spectrogram.num_freqs, 176);
  EXPECT_EQ(announced.size(), 3u);

  auto midi = AudioJob(Tone(440.0, 0.5, 1000.0));
  midi->input_filename = "/songs/tune.MID";
  midi->time_step = 20;
  midi->freqs_per_note = 1;
  Run(midi);
  EXPECT_EQ(std::make_tuple(midi->display_spectrogram.num_freqs, midi->display_spectrogram.num_times),
            std::make_tuple(88, 25));
}

TEST_F(AutoFocusTest, ACancelledJobIsLeftAlone) {
  auto job = AudioJob(Tone(440.0, 0.5, 1000.0));
  TranscriptionJob::Cancel(job);
  Run(job);
  EXPECT_EQ(job->display_spectrogram.num_freqs, 0);
  EXPECT_EQ(job->preview_spectrogram.num_freqs, 0);
  EXPECT_FALSE(job->spectrogram_ready);
  EXPECT_TRUE(announced.empty());
  EXPECT_TRUE(progress.empty());
}

TEST_F(AutoFocusTest, AnUnusableSampleRateGivesAnEmptyGridNotACrash) {
  auto job = AudioJob(Tone(440.0, 0.5, 1000.0));
  job->sample_rate = 0.0;
  Run(job);
  EXPECT_EQ(MaxCell(job->display_spectrogram), 0.0f);
}

}  // namespace
