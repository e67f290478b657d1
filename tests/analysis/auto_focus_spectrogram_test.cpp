#include "analysis/auto_focus_spectrogram.h"

#include <gtest/gtest.h>

#include <algorithm>
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
  void Listen(AutoFocusSpectrogram* calculator) {
    QObject::connect(calculator, &AutoFocusSpectrogram::SpectrogramReady,
                     [this](bool first, bool second, const Spectrogram* grid) {
                       announced.emplace_back(first, second, grid);
                     });
    QObject::connect(calculator, &AutoFocusSpectrogram::ProgressUpdate,
                     [this](std::shared_ptr<TranscriptionJob>, JobTasks::Tasks task, int done, int count) {
                       std::lock_guard<std::mutex> lock(mutex);
                       progress.emplace_back(task, done, count);
                     });
  }

  void Calculate(std::shared_ptr<TranscriptionJob> job) {
    AutoFocusSpectrogram calculator;
    Listen(&calculator);
    calculator.Calculate(job);
  }

  // The band with the largest amplitude in column t.
  static int LoudestBand(const Spectrogram& grid, int t) {
    int best = 0;
    for (int b = 1; b < grid.num_freqs; ++b) {
      if (grid.amplitudes[b][t] > grid.amplitudes[best][t]) best = b;
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
  Calculate(job);
  const Spectrogram& main = job->display_spectrogram;
  EXPECT_EQ(main.num_freqs, 352);
  EXPECT_EQ(main.num_times, 100);
  EXPECT_EQ(main.time_step, 0.01);
  EXPECT_EQ(main.q_factor, 12.0);
  EXPECT_EQ(main.filter_passes, 2);
  EXPECT_EQ(main.percentile_low, 97.0f);
  EXPECT_EQ(main.percentile_high, 98.0f);
  EXPECT_TRUE(main.statistics_ready);
  EXPECT_EQ(main.name.toStdString(), job->language.GUI_SPECTROGRAM_NAME_COMBINED_CHANNELS);

  const Spectrogram& preview = job->preview_spectrogram;
  EXPECT_EQ(preview.num_freqs, 53);
  EXPECT_EQ(preview.num_times, 200);
  EXPECT_EQ(preview.q_factor, 5.0);
  EXPECT_EQ(preview.name.toStdString(), job->language.GUI_SPECTROGRAM_NAME_PREVIEW);

  const Spectrogram& q_map = job->q_map;
  EXPECT_EQ(q_map.num_freqs, 53);
  EXPECT_EQ(q_map.num_times, 10);
  EXPECT_EQ(q_map.frequencies, preview.frequencies);
  EXPECT_EQ(q_map.name, "Q-map");
  EXPECT_DOUBLE_EQ(q_map.times[3], preview.times[60]);

  EXPECT_TRUE(job->spectrogram_ready);
  EXPECT_EQ(job->spectrogram_list, std::vector<Spectrogram*>{&job->display_spectrogram});
  Calculate(job);  // a second run does not list the grid twice
  EXPECT_EQ(job->spectrogram_list.size(), 1u);
}

TEST_F(AutoFocusTest, APureToneAtAKeyPeaksInThatKeysBandAndFallsOffAround) {
  auto job = AudioJob(Tone(Keyboard::key_freqs_[48], 3.0, 10000.0));
  Calculate(job);
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
    // Two passes at Q 5 a semitone off: (1 + 25 (r - 1 / r)^2)^-1 with r = 2^(1/12), 0.75.
    EXPECT_NEAR(main.amplitudes[band + 4][t], 7500.0f, 300.0f) << "column " << t;
    EXPECT_NEAR(main.amplitudes[band - 4][t], 7500.0f, 300.0f) << "column " << t;
    // An octave off: (1 + 25 * 1.5^2)^-1, 0.0175.
    EXPECT_NEAR(main.amplitudes[band + 48][t], 175.0f, 30.0f) << "column " << t;
    EXPECT_NEAR(main.amplitudes[band - 48][t], 175.0f, 30.0f) << "column " << t;
  }
  // The preview sees it too, in its band nearest to 440 Hz.
  const Spectrogram& preview = job->preview_spectrogram;
  int nearest = 0;
  for (int b = 0; b < preview.num_freqs; ++b) {
    if (std::abs(preview.frequencies[b] - 440.0) < std::abs(preview.frequencies[nearest] - 440.0))
      nearest = b;
  }
  EXPECT_EQ(LoudestBand(preview, 300), nearest);
}

TEST_F(AutoFocusTest, ASteadyToneKeepsTheQMapAtItsMinimum) {
  // 441 Hz repeats every 100 samples, so the filtered wave has the same extrema in every
  // cycle and the envelope no sampling ripple.
  auto job = AudioJob(Tone(441.0, 3.0, 10000.0));
  Calculate(job);
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
  // 440 Hz swinging fully four times a second.
  auto job = AudioJob(Tone(440.0, 3.0, 10000.0, 4.0));
  Calculate(job);
  const Spectrogram& q_map = job->q_map;
  int nearest = 0;
  for (int b = 0; b < q_map.num_freqs; ++b) {
    if (std::abs(q_map.frequencies[b] - 440.0) < std::abs(q_map.frequencies[nearest] - 440.0)) nearest = b;
  }
  const std::vector<float>& row = q_map.amplitudes[nearest];
  EXPECT_GT(*std::max_element(row.begin() + 5, row.end() - 5), 5.0f);
  for (float q : row) EXPECT_LE(q, 40.0f);
  // Far from the tone nothing pulsates above the quiet level.
  for (float q : q_map.amplitudes[2]) EXPECT_EQ(q, 5.0f);
}

TEST_F(AutoFocusTest, SilenceGivesZerosAndTheForcedStatistics) {
  auto job = AudioJob(std::vector<float>(44100, 0.0f));
  Calculate(job);
  EXPECT_EQ(MaxCell(job->display_spectrogram), 0.0f);
  EXPECT_EQ(MaxCell(job->preview_spectrogram), 0.0f);
  EXPECT_EQ(job->preview_spectrogram.percentile_high_value, 1.0f);
  EXPECT_EQ(job->preview_spectrogram.scale, 1.0);
  EXPECT_EQ(job->display_spectrogram.max_amplitude, 1.0f);
  for (const auto& row : job->q_map.amplitudes) {
    for (float q : row) EXPECT_EQ(q, 5.0f);
  }
}

TEST_F(AutoFocusTest, PreviewIsScaledSoItsHighPercentileIsOne) {
  auto job = AudioJob(Tone(440.0, 1.0, 3000.0));
  Calculate(job);
  const Spectrogram& preview = job->preview_spectrogram;
  EXPECT_NEAR(preview.percentile_high_value, 1.0f, 1e-6);
  EXPECT_GT(preview.scale, 0.0);
  EXPECT_LT(preview.scale, 1.0 / 100.0);
}

TEST_F(AutoFocusTest, AnnouncesPreviewThenMainTwiceWhenNoRecalculationFollows) {
  auto job = AudioJob(Tone(440.0, 0.5, 1000.0));
  Calculate(job);
  const std::vector<Announcement> expected = {Announcement{true, false, &job->preview_spectrogram},
                                              Announcement{true, true, &job->display_spectrogram},
                                              Announcement{true, true, &job->display_spectrogram}};
  EXPECT_EQ(announced, expected);
}

TEST_F(AutoFocusTest, AFinerWishFindsNotesAtFourBandsAndRecalculatesAfterwards) {
  auto job = AudioJob(Tone(440.0, 0.5, 1000.0));
  job->freqs_per_note = 8;
  job->time_step = 5;
  Calculate(job);
  ASSERT_EQ(announced.size(), 2u);  // the main grid once: Recalculate will announce it
  EXPECT_EQ(job->display_spectrogram.num_freqs, 352);
  EXPECT_EQ(job->display_spectrogram.num_times, 50);

  announced.clear();
  AutoFocusSpectrogram recalculator;
  Listen(&recalculator);
  recalculator.Recalculate(job);
  const Spectrogram& main = job->display_spectrogram;
  EXPECT_EQ(main.num_freqs, 704);
  EXPECT_EQ(main.num_times, 100);
  EXPECT_DOUBLE_EQ(main.time_step, 0.005);
  EXPECT_EQ(announced, (std::vector<Announcement>{Announcement{true, false, &main}}));
  EXPECT_EQ(LoudestBand(main, 50), 4 + 8 * 48);
  EXPECT_EQ(std::get<0>(progress.back()), JobTasks::kSpectrogramRecalculation);
}

TEST_F(AutoFocusTest, WithoutNoteFindingTheWishedResolutionIsUsedAtOnce) {
  auto job = AudioJob(Tone(440.0, 0.5, 1000.0));
  job->find_notes = false;
  job->freqs_per_note = 2;
  Calculate(job);
  EXPECT_EQ(job->display_spectrogram.num_freqs, 176);
  EXPECT_EQ(announced.size(), 3u);
}

TEST_F(AutoFocusTest, MidiInputUsesTheJobsOwnTimeStep) {
  auto job = AudioJob(Tone(440.0, 0.5, 1000.0));
  job->input_filename = "/songs/tune.MID";
  job->time_step = 20;
  job->freqs_per_note = 1;
  Calculate(job);
  EXPECT_DOUBLE_EQ(job->display_spectrogram.time_step, 0.02);
  EXPECT_EQ(job->display_spectrogram.num_freqs, 88);
  EXPECT_EQ(job->display_spectrogram.num_times, 25);
}

TEST_F(AutoFocusTest, ProgressCountsBothPassesToTheirEnd) {
  auto job = AudioJob(Tone(440.0, 0.5, 1000.0));
  Calculate(job);
  ASSERT_FALSE(progress.empty());
  std::vector<std::tuple<JobTasks::Tasks, int, int>> last_of_each;
  for (const auto& entry : progress) {
    const auto [task, done, count] = entry;
    EXPECT_GE(done, 1);
    EXPECT_LE(done, count);
  }
  const auto [task, done, count] = progress.back();
  EXPECT_EQ(task, JobTasks::kSpectrogramSecondPass);
  EXPECT_EQ(std::get<0>(progress.front()), JobTasks::kSpectrogramFirstPass);
  bool first_pass_finished = false;
  for (const auto& [t, d, c] : progress)
    first_pass_finished |= t == JobTasks::kSpectrogramFirstPass && d == c;
  EXPECT_TRUE(first_pass_finished);
}

TEST_F(AutoFocusTest, ACancelledJobIsLeftAlone) {
  auto job = AudioJob(Tone(440.0, 0.5, 1000.0));
  TranscriptionJob::Cancel(job);
  Calculate(job);
  EXPECT_EQ(job->display_spectrogram.num_freqs, 0);
  EXPECT_EQ(job->preview_spectrogram.num_freqs, 0);
  EXPECT_TRUE(job->spectrogram_list.empty());
  EXPECT_FALSE(job->spectrogram_ready);
  EXPECT_TRUE(announced.empty());
  EXPECT_TRUE(progress.empty());
}

TEST_F(AutoFocusTest, ChannelGridsAreLaidOutLikeTheMainGridButNotFilled) {
  auto job = AudioJob(Tone(440.0, 0.5, 1000.0));
  job->channel_spectrograms.resize(2);
  Calculate(job);
  ASSERT_EQ(job->channel_spectrograms.size(), 2u);
  const Spectrogram& left = job->channel_spectrograms[0];
  EXPECT_EQ(left.name.toStdString(), job->language.GUI_SPECTROGRAM_NAME_LEFT_CHANNEL);
  EXPECT_EQ(job->channel_spectrograms[1].name.toStdString(),
            job->language.GUI_SPECTROGRAM_NAME_RIGHT_CHANNEL);
  EXPECT_EQ(left.num_freqs, 352);
  EXPECT_EQ(left.num_times, 50);
  EXPECT_EQ(left.q_factor, 12.0);
  EXPECT_EQ(MaxCell(left), 0.0f);
}

TEST_F(AutoFocusTest, AnUnusableSampleRateGivesAnEmptyGridNotACrash) {
  auto job = AudioJob(Tone(440.0, 0.5, 1000.0));
  job->sample_rate = 0.0;
  job->end_time = 0.5;
  Calculate(job);
  EXPECT_EQ(MaxCell(job->display_spectrogram), 0.0f);
}

}  // namespace
