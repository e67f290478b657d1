#include <gtest/gtest.h>

#include <cmath>

#include "analysis/beat_hmm_solver.h"
#include "beat_track.h"

namespace {

std::vector<Beat> Beats(const std::vector<std::pair<int, double>>& numbers_and_times) {
  std::vector<Beat> beats;
  for (const auto& [number, time] : numbers_and_times) beats.emplace_back(number, time);
  return beats;
}

// Each expected beat must have a detected beat within 20 ms carrying its number.
void ExpectBeatsFound(const std::vector<Beat>& found, const BeatTrack& track) {
  for (size_t k = 0; k < track.beat_frames.size(); ++k) {
    const double time = track.beat_frames[k] * 0.01;
    const Beat* nearest = nullptr;
    for (const Beat& beat : found)
      if (!nearest || std::abs(beat.time - time) < std::abs(nearest->time - time)) nearest = &beat;
    ASSERT_NE(nearest, nullptr);
    EXPECT_NEAR(nearest->time, time, 0.0201) << "beat " << k;
    EXPECT_EQ(nearest->number, track.numbers[k]) << "beat " << k;
  }
}

void ExpectWellFormed(const std::vector<Beat>& beats, double stop_time) {
  ASSERT_GE(beats.size(), 2u);
  EXPECT_EQ(beats.front().number, 1);
  EXPECT_EQ(beats.back().number, 1);
  EXPECT_GT(beats.back().time, stop_time);
  for (size_t i = 1; i < beats.size(); ++i) EXPECT_LT(beats[i - 1].time, beats[i].time) << i;
}

}  // namespace

TEST(BeatHMMSolverTest, DecodesBeatsAndMeasureLength) {
  struct Case {
    const char* name;
    std::vector<int> intervals;
    int meter;
    int first_number;
  };
  std::vector<int> slowing = Repeat(50, 14);
  for (int i = 0; i < 14; ++i) slowing.push_back(58);
  std::vector<int> speeding = Repeat(60, 12);
  for (int i = 0; i < 16; ++i) speeding.push_back(48);
  const std::vector<Case> cases = {
      {"steady in 3", Repeat(50, 26), 3, 1},
      {"steady in 4", Repeat(44, 31), 4, 1},
      {"tempo change in 3", slowing, 3, 1},
      {"tempo change in 4", speeding, 4, 1},
      {"starts on beat 3 of 4", Repeat(55, 25), 4, 3},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const BeatTrack track = MakeBeatTrack(c.intervals, c.meter, 40, 60, c.first_number);
    auto job = beat_test::Job({}, track.activations.size() * 0.01);
    BeatHMMSolver solver;
    QStringList log;
    QObject::connect(&solver, &BeatHMMSolver::LogStep, [&](QString line) { log << line; });
    solver.Calculate(track.activations, job);
    EXPECT_EQ(solver.job, nullptr) << "the job is let go";
    ExpectWellFormed(job->beats, job->end_time);
    EXPECT_EQ(job->beats.front().time_signature_top, c.meter);
    EXPECT_EQ(job->beats.front().time_signature_bottom, 4);
    ExpectBeatsFound(job->beats, track);
    ASSERT_EQ(log.size(), 1);
    EXPECT_TRUE(log[0].startsWith("DwnBt IDX="));
    EXPECT_FALSE(job->beats_analyzer.measures.empty());
  }
}

TEST(BeatHMMSolverTest, StartTimeOffsetsTheBeats) {
  const BeatTrack track = MakeBeatTrack(Repeat(50, 20), 4, 40, 40);
  auto job = beat_test::Job({}, 30.0);
  job->start_time = 12.5;
  job->end_time = 12.5 + track.activations.size() * 0.01;
  BeatHMMSolver solver;
  solver.Calculate(track.activations, job);
  bool found = false;
  for (const Beat& beat : job->beats) found = found || std::abs(beat.time - (12.5 + track.beat_frames[4] * 0.01)) < 0.021;
  EXPECT_TRUE(found);
}

TEST(BeatHMMSolverTest, EmptyActivationsTieAndChooseThreeBeats) {
  auto job = beat_test::Job({}, 3.2);
  BeatHMMSolver solver;
  QStringList log;
  QObject::connect(&solver, &BeatHMMSolver::LogStep, [&](QString line) { log << line; });
  solver.Calculate({}, job);
  ASSERT_EQ(log.size(), 1);
  EXPECT_EQ(log[0], "DwnBt path empty!");
  // Two beats a second from the start, numbered in 3, up to the downbeat after 3.2 s.
  ASSERT_EQ(job->beats.size(), 10u);
  EXPECT_EQ(job->beats.front().time_signature_top, 3);
  for (size_t i = 0; i < job->beats.size(); ++i) {
    EXPECT_EQ(job->beats[i].number, static_cast<int>(i % 3) + 1);
    EXPECT_NEAR(job->beats[i].time, 0.5 * i, 1e-9);
  }
}

TEST(BeatHMMSolverTest, CancelledJobKeepsItsBeats) {
  auto job = beat_test::Job({}, 5.0);
  job->beats = Beats({{1, 0.0}, {2, 0.5}});
  TranscriptionJob::Cancel(job);
  BeatHMMSolver solver;
  solver.Calculate(MakeBeatTrack(Repeat(50, 6), 3, 10, 10).activations, job);
  EXPECT_EQ(job->beats.size(), 2u);
}

TEST(EnsureMinimumBeatsTest, CompletesBothEnds) {
  auto job = beat_test::Job({}, 4.0);
  // Begins on beat 3 of 4: beats 2 and 1 come first at the same spacing; the song ends in
  // the middle of a measure, so beats follow up to the next downbeat after 4 s.
  job->beats = Beats({{3, 1.0}, {4, 1.5}, {1, 2.0}, {2, 2.5}});
  BeatHMMSolver::EnsureMinimumBeats(4, job);
  const std::vector<std::pair<int, double>> expected = {{1, 0.0}, {2, 0.5}, {3, 1.0}, {4, 1.5}, {1, 2.0},
                                                        {2, 2.5}, {3, 3.0}, {4, 3.5}, {1, 4.0}, {2, 4.5},
                                                        {3, 5.0}, {4, 5.5}, {1, 6.0}};
  ASSERT_EQ(job->beats.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(job->beats[i].number, expected[i].first) << i;
    EXPECT_NEAR(job->beats[i].time, expected[i].second, 1e-9) << i;
    EXPECT_EQ(job->beats[i].key_signature, Beat::kNoKeyChange);
  }
}

TEST(EnsureMinimumBeatsTest, FewBeats) {
  auto job = beat_test::Job({}, 0.2);
  job->start_time = 0.1;
  BeatHMMSolver::EnsureMinimumBeats(3, job);
  // One at the start, a second 0.5 s on, then up to the next downbeat.
  ASSERT_EQ(job->beats.size(), 4u);
  EXPECT_EQ(job->beats[0].number, 1);
  EXPECT_DOUBLE_EQ(job->beats[0].time, 0.1);
  EXPECT_EQ(job->beats[1].number, 2);
  EXPECT_DOUBLE_EQ(job->beats[1].time, 0.6);
  EXPECT_EQ(job->beats[3].number, 1);

  // One beat numbered 3 in 3 gets a second numbered 1, which already ends the list.
  job->beats = Beats({{3, 0.0}});
  job->end_time = 0.2;
  BeatHMMSolver::EnsureMinimumBeats(3, job);
  ASSERT_EQ(job->beats.size(), 4u);
  EXPECT_EQ(job->beats[0].number, 1);
  EXPECT_DOUBLE_EQ(job->beats[0].time, -1.0);
  EXPECT_EQ(job->beats[2].number, 3);
  EXPECT_EQ(job->beats[3].number, 1);
  EXPECT_DOUBLE_EQ(job->beats[3].time, 0.5);
}

TEST(EnsureMinimumBeatsTest, HandMadeListsAlwaysEnd) {
  auto job = beat_test::Job({}, 10.0);
  job->beats = Beats({{7, 2.0}, {2, 2.0}});  // equal times, a number beyond the measure
  BeatHMMSolver::EnsureMinimumBeats(3, job);
  EXPECT_EQ(job->beats.front().number, 1);
  EXPECT_EQ(job->beats.back().number, 1);
  EXPECT_GT(job->beats.back().time, 10.0);
  EXPECT_LT(job->beats.size(), 40u);

  job->beats = Beats({{1, 5.0}, {2, 4.0}});  // reversed
  BeatHMMSolver::EnsureMinimumBeats(0, job);
  EXPECT_GT(job->beats.back().time, 10.0);
}
