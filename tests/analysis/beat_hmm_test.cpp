#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <set>

#include "analysis/beat_hmm.h"
#include "analysis/beat_state_space.h"
#include "analysis/measure_state_space.h"
#include "analysis/observation_model.h"
#include "analysis/transition_model.h"
#include "beat_track.h"

namespace {

class BeatHMMTest : public ::testing::Test {
 protected:
  BeatStateSpace beat_space;
};

}  // namespace

TEST_F(BeatHMMTest, StateCountsAndNumbering) {
  EXPECT_EQ(beat_space.num_states, 3719);
  EXPECT_EQ(beat_space.num_intervals, 60);
  EXPECT_EQ(MeasureStateSpace(3, beat_space).num_states, 11157);
  const MeasureStateSpace space(4, beat_space);
  EXPECT_EQ(space.num_states, 14876);
  // Beat 2, tempo 1 (interval 29), position 5: 2 * 3719 + 28 + 5.
  const int s = 2 * 3719 + 28 + 5;
  EXPECT_EQ(space.first_states[2][1], 2 * 3719 + 28);
  EXPECT_EQ(space.last_states[2][1], 2 * 3719 + 28 + 28);
  EXPECT_DOUBLE_EQ(space.state_positions[s], 2.0 + 5.0 / 29.0);
  EXPECT_EQ(space.state_intervals[s], 29);
  EXPECT_EQ(space.last_states[3][59], space.num_states - 1);
  EXPECT_FLOAT_EQ(space.min_interval, 60.0f * 100.0f / 215.0f);
  EXPECT_FLOAT_EQ(space.max_interval, 60.0f * 100.0f / 55.0f);
}

TEST_F(BeatHMMTest, TempoChangeCutOff) {
  const TransitionModel model(MeasureStateSpace(3, beat_space));
  std::vector<std::vector<double>> matrix;
  // A quarter faster passes the cut-off (exp(-25)); a doubling (exp(-100)) does not.
  model.ExponentialTransition({40}, {40, 50, 80}, &matrix);
  const double sum = 1.0 + std::exp(-25.0);
  EXPECT_DOUBLE_EQ(matrix[0][0], 1.0 / sum);
  EXPECT_DOUBLE_EQ(matrix[0][1], std::exp(-25.0) / sum);
  EXPECT_EQ(matrix[0][2], 0.0);
  // A row with nothing left is divided by eps instead of by 0.
  model.ExponentialTransition({28}, {109}, &matrix);
  EXPECT_EQ(matrix[0][0], 0.0);
}

TEST_F(BeatHMMTest, TransitionRows) {
  const MeasureStateSpace space(4, beat_space);
  const TransitionModel model(space);
  ASSERT_EQ(model.num_states, space.num_states);
  ASSERT_EQ(static_cast<int>(model.indptr.size()), space.num_states + 1);
  EXPECT_EQ(model.indptr.back(), model.num_transitions);

  std::set<int> firsts;
  for (const auto& beat : space.first_states) firsts.insert(beat.begin(), beat.end());
  std::vector<double> outgoing(space.num_states, 0.0);
  for (int s = 0; s < space.num_states; ++s) {
    const int begin = model.indptr[s], end = model.indptr[s + 1];
    if (!firsts.count(s)) {
      // Inside a beat the position only moves on.
      ASSERT_EQ(end - begin, 1) << s;
      EXPECT_EQ(model.indices[begin], s - 1);
      EXPECT_EQ(model.log_probabilities[begin], 0.0);
      continue;
    }
    ASSERT_GT(end - begin, 0);
    const int beat = s / 3719;
    const int previous = beat == 0 ? 3 : beat - 1;
    int best_source = -1;
    double best = 0.0;
    for (int k = begin; k < end; ++k) {
      if (k > begin) {
        EXPECT_LT(model.indices[k - 1], model.indices[k]);  // sorted by source
      }
      EXPECT_EQ(model.indices[k] / 3719, previous);
      EXPECT_NEAR(model.log_probabilities[k], std::log(model.probabilities[k]), 1e-12);
      outgoing[model.indices[k]] += model.probabilities[k];
      if (model.probabilities[k] > best) {
        best = model.probabilities[k];
        best_source = model.indices[k];
      }
    }
    // The likeliest way into a tempo comes from the same tempo.
    EXPECT_EQ(space.state_intervals[best_source], space.state_intervals[s]);
  }
  // Every last state of a beat spreads probability 1 over the next beat's first states.
  for (const auto& beat : space.last_states)
    for (int s : beat) EXPECT_NEAR(outgoing[s], 1.0, 1e-12);
}

TEST_F(BeatHMMTest, ObservationRegions) {
  const MeasureStateSpace space(3, beat_space);
  const ObservationModel model(space);
  const int tempo_32 = 4;  // intervals[4] == 32, so position 2 is exactly 1/16
  ASSERT_EQ(beat_space.intervals[tempo_32], 32);
  for (int beat = 0; beat < 3; ++beat) {
    const int first = space.first_states[beat][tempo_32];
    EXPECT_EQ(model.pointers[first], beat == 0 ? 2 : 1);
    EXPECT_EQ(model.pointers[first + 1], beat == 0 ? 2 : 1);
    EXPECT_EQ(model.pointers[first + 2], 0) << "1/16 itself lies outside the region";
  }
}

TEST_F(BeatHMMTest, TrimmingAndWholeTrackDecoding) {
  BeatTrack track = MakeBeatTrack(Repeat(50, 12), 4, 30, 40);
  BeatHMM hmm(4, beat_space);
  hmm.Calculate(track.activations);
  EXPECT_EQ(hmm.first_frame, 29);  // the neighbour before the first peak reaches 0.05
  EXPECT_EQ(hmm.last_frame, track.beat_frames.back() + 2);
  EXPECT_EQ(static_cast<int>(hmm.path.size()), hmm.last_frame - hmm.first_frame);

  // A track that never reaches the threshold is decoded whole.
  std::vector<std::vector<float>> quiet(300, {0.04f, 0.049f});
  hmm.Calculate(quiet);
  EXPECT_EQ(hmm.first_frame, 0);
  EXPECT_EQ(hmm.last_frame, 300);
  EXPECT_EQ(hmm.path.size(), 300u);

  hmm.path = {1, 2};
  hmm.Calculate({});
  EXPECT_EQ(hmm.path, (std::vector<int>{1, 2})) << "an empty input returns at once";
}

TEST_F(BeatHMMTest, CompactBackPointersDecodeLikeThePlainTable) {
  std::mt19937 generator(17);
  std::uniform_real_distribution<float> dist(0.0f, 0.6f);
  for (int beats : {3, 4}) {
    BeatHMM hmm(beats, beat_space);
    BeatTrack track = MakeBeatTrack({45, 47, 50, 44, 60, 40, 52, 49}, beats, 5, 5);
    std::vector<std::vector<float>> noisy(220);
    for (size_t t = 0; t < noisy.size(); ++t) noisy[t] = {dist(generator), dist(generator) * 0.5f};
    // Degenerate frames: exact zeros give -inf, sums of 1 and above give -inf or NaN.
    std::vector<std::vector<float>> degenerate = noisy;
    degenerate[10] = {0.0f, 0.0f};
    degenerate[50] = {0.7f, 0.6f};
    degenerate[51] = {0.5f, 0.5f};
    std::vector<std::vector<float>> dead(20, {0.0f, 1.0f});  // every state dies
    // Many states die and revive: zero activations and overfull rows scattered at random.
    std::vector<std::vector<float>> holes = noisy;
    std::uniform_int_distribution<int> pick(0, 9);
    for (auto& row : holes) {
      const int choice = pick(generator);
      if (choice == 0) row[0] = 0.0f;
      if (choice == 1) row[1] = 0.0f;
      if (choice == 2) row = {0.6f, 0.5f};
    }
    for (const auto* input : {&track.activations, &noisy, &degenerate, &dead, &holes}) {
      hmm.first_frame = 0;
      hmm.last_frame = static_cast<int>(input->size());
      hmm.Viterbi(*input);
      const std::vector<int> compact = hmm.path;
      const double compact_log = hmm.log_probability;
      hmm.ViterbiReference(*input);
      EXPECT_EQ(compact, hmm.path);
      if (std::isfinite(compact_log)) {
        EXPECT_EQ(compact_log, hmm.log_probability);
      } else {
        EXPECT_EQ(std::isinf(compact_log), std::isinf(hmm.log_probability));
      }
    }
  }
  BeatHMM hmm(4, beat_space);
  EXPECT_LT(hmm.CompactBackPointerBytes(100) * 100, hmm.PlainBackPointerBytes(100));
}

TEST_F(BeatHMMTest, DecodedPathFollowsTheBeats) {
  const BeatTrack track = MakeBeatTrack(Repeat(50, 15), 3, 20, 20);
  BeatHMM hmm(3, beat_space);
  hmm.Calculate(track.activations);
  for (size_t k = 0; k < track.beat_frames.size(); ++k) {
    const int t = track.beat_frames[k] - hmm.first_frame;
    const double position = hmm.space.state_positions[hmm.path[t]];
    // At each peak the path is at the very start of the right beat of the measure.
    EXPECT_EQ(static_cast<int>(position) + 1, track.numbers[k]) << k;
    EXPECT_LT(position - std::trunc(position), 1.0 / 16) << k;
  }
}
