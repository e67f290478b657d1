#include <gtest/gtest.h>

#include <QStringList>
#include <QTemporaryDir>
#include <cmath>

#include "app/job_processor.h"
#include "nn/beat_net_weights.h"
#include "test_support.h"

namespace {

// The beat stage as the pipeline runs it, on clicks every half second and random weights.
class CalculateBeatsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    manager = MakeTestJobManager(data);
    processor = std::make_unique<JobProcessor>(manager->language, manager->preferences, manager->paths);
    QObject::connect(processor.get(), &JobProcessor::LogStep, [this](QString line) { log << line; });
    QObject::connect(processor.get(), &JobProcessor::Message,
                     [this](std::string text, bool) { messages.push_back(text); });
    QObject::connect(processor.get(), &JobProcessor::ProgressUpdate,
                     [this](auto, JobTasks::Tasks task, int, int, double) { tasks.push_back(task); });
    job = manager->NewJob();
    job->mono_data.assign(44100 * 4, 0.0f);
    for (size_t start = 11025; start < job->mono_data.size(); start += 22050)
      for (size_t i = 0; i < 1500; ++i)
        job->mono_data[start + i] = static_cast<float>(15000.0 * std::exp(-i / 200.0) * std::sin(i * 0.3));
    job->sample_rate = 44100.0;
    job->audio_length = 4.0;
    job->end_time = 4.0;
    old_weights = qgetenv("TONEMILL_BEAT_WEIGHTS");
  }
  void TearDown() override { qputenv("TONEMILL_BEAT_WEIGHTS", old_weights); }

  QTemporaryDir data;
  std::shared_ptr<JobManager> manager;
  std::unique_ptr<JobProcessor> processor;
  std::shared_ptr<TranscriptionJob> job;
  QStringList log;
  std::vector<std::string> messages;
  std::vector<JobTasks::Tasks> tasks;
  QByteArray old_weights;
};

}  // namespace

TEST_F(CalculateBeatsTest, FillsBeatsAndMeasuresAndLogsThem) {
  const QString weights = data.filePath("beats.safetensors");
  std::string error;
  ASSERT_TRUE(WriteBeatWeights(weights.toStdString(), RandomBeatWeights(3, 0.3f), false, &error)) << error;
  qputenv("TONEMILL_BEAT_WEIGHTS", weights.toUtf8());
  ASSERT_TRUE(processor->CalculateBeats(job));
  ASSERT_GE(log.size(), 2);
  EXPECT_EQ(log.front(), "Detecting beats");
  EXPECT_EQ(log.back(), QString("Found %1 beats, %2 measures")
                            .arg(job->beats.size())
                            .arg(job->beats_analyzer.measures.size()));
  EXPECT_TRUE(job->beats_ready);
  EXPECT_FALSE(job->beats_analyzer.measures.empty());
  ASSERT_FALSE(tasks.empty());
  for (auto task : tasks) EXPECT_EQ(task, JobTasks::kBeats);
  EXPECT_TRUE(messages.empty());
}

TEST_F(CalculateBeatsTest, MissingWeightsEndTheJobWithAMessage) {
  qputenv("TONEMILL_BEAT_WEIGHTS", data.filePath("none/beats.safetensors").toUtf8());
  EXPECT_FALSE(processor->CalculateBeats(job));
  EXPECT_TRUE(job->cancelled);
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_NE(messages[0].find("none/beats.safetensors"), std::string::npos) << messages[0];
  EXPECT_FALSE(log.filter("Found").size());
}
