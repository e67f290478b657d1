#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <numeric>

#include "app/job_processor.h"
#include "test_support.h"

namespace {

using JobTasks::Tasks;

double Sum(const std::vector<std::pair<Tasks, double>>& weights) {
  return std::accumulate(weights.begin(), weights.end(), 0.0,
                         [](double sum, const auto& entry) { return sum + entry.second; });
}

class JobProcessorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    manager = MakeTestJobManager(data);
    processor = std::make_unique<JobProcessor>(manager->language, manager->preferences, manager->paths);
    QObject::connect(processor.get(), &JobProcessor::ProgressUpdate,
                     [this](auto, Tasks, int, int, double fraction) { fractions.push_back(fraction); });
  }

  QTemporaryDir data;
  std::shared_ptr<JobManager> manager;
  std::unique_ptr<JobProcessor> processor;
  std::vector<double> fractions;
};

TEST_F(JobProcessorTest, EveryWeightColumnSumsToOne) {
  EXPECT_NEAR(Sum(JobProcessor::TaskWeights(true, true)), 1.0, 1e-12);
  EXPECT_NEAR(Sum(JobProcessor::TaskWeights(true, false)), 1.0, 1e-12);
  EXPECT_NEAR(Sum(JobProcessor::TaskWeights(false, false)), 1.0, 1e-12);
  for (const auto& entry : JobProcessor::TaskWeights(false, true)) EXPECT_NE(entry.first, JobTasks::kNotes);
}

TEST_F(JobProcessorTest, ProgressAddsTheShareOfTheRunningTask) {
  auto job = manager->NewJob();
  processor->StartJob(job);  // find_notes without an accelerator: notes weigh half
  processor->CalculateProgress(job, JobTasks::kAudio, 0, 0);
  processor->CalculateProgress(job, JobTasks::kSpectrogramFirstPass, 0, 0);
  processor->CalculateProgress(job, JobTasks::kNotes, 3, 4);
  processor->CalculateProgress(job, JobTasks::kSheetMusic, 1, 2);
  ASSERT_EQ(fractions.size(), 4u);
  EXPECT_DOUBLE_EQ(fractions[0], 0.0);
  EXPECT_DOUBLE_EQ(fractions[1], 0.04 + 0.115);  // total 0: the sum before the task
  EXPECT_NEAR(fractions[2], 0.5 + 0.75 * 0.5, 1e-12);
  EXPECT_NEAR(fractions[3], 1.0, 1e-12);  // a task outside the list: everything
}

TEST_F(JobProcessorTest, WeightsFollowTheJob) {
  auto job = manager->NewJob();
  job->find_notes = false;
  processor->StartJob(job);
  EXPECT_EQ(processor->Weights(), JobProcessor::TaskWeights(false, false));
  EXPECT_DOUBLE_EQ(processor->ProgressFraction(JobTasks::kSpectrogramSecondPass, 1, 2), 0.08 + 0.23 + 0.15 + 0.27);
}

TEST_F(JobProcessorTest, CancelledJobIsNotStarted) {
  auto job = manager->NewJob();
  int started = 0;
  QObject::connect(processor.get(), &JobProcessor::StartedJob, [&](auto) { ++started; });
  job->cancelled = true;
  processor->ProcessJob(job);
  EXPECT_EQ(started, 0);
  EXPECT_TRUE(fractions.empty());
  EXPECT_EQ(job->start_msecs, 0.0);
}

}  // namespace
