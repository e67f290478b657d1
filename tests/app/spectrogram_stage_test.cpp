#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <algorithm>
#include <cmath>
#include <tuple>

#include "app/job_processor.h"
#include "test_support.h"

namespace {

// The spectrogram stage and the CSV output as the pipeline runs them, on a job that holds
// what the audio stage leaves: 0.6 s of a 440 Hz tone at 44100 Hz.
class SpectrogramStageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    manager = MakeTestJobManager(data);
    processor = std::make_unique<JobProcessor>(manager->language, manager->preferences, manager->paths);
    QObject::connect(processor.get(), &JobProcessor::SpectrogramReady,
                     [this](bool first, bool second, const Spectrogram* grid) {
                       announced.emplace_back(first, second, grid);
                     });
    QObject::connect(
        processor.get(), &JobProcessor::ProgressUpdate,
        [this](auto, JobTasks::Tasks, int, int, double fraction) { fractions.push_back(fraction); });
    QObject::connect(processor.get(), &JobProcessor::Message,
                     [this](std::string text, bool) { messages.push_back(text); });
    QObject::connect(processor.get(), &JobProcessor::LogStep, [this](QString text) { log.push_back(text); });

    job = manager->NewJob();
    job->sample_rate = 44100.0;
    job->channels = 1;
    job->mono_data.resize(26460);
    for (size_t i = 0; i < job->mono_data.size(); ++i) {
      job->mono_data[i] = static_cast<float>(8000.0 * std::sin(2.0 * 3.14159265358979 * 440.0 * i / 44100.0));
    }
    job->audio_frames = static_cast<int>(job->mono_data.size());
    job->audio_length = 0.6;
    job->end_time = 0.6;
    job->audio_ready = true;
    job->thread_count = 1;  // progress arrives from the workers; one keeps the order plain
  }

  QTemporaryDir data;
  std::shared_ptr<JobManager> manager;
  std::unique_ptr<JobProcessor> processor;
  std::shared_ptr<TranscriptionJob> job;
  std::vector<std::tuple<bool, bool, const Spectrogram*>> announced;
  std::vector<double> fractions;
  std::vector<std::string> messages;
  std::vector<QString> log;
};

TEST_F(SpectrogramStageTest, CalculatesTheGridsAndPassesTheirAnnouncementsOn) {
  processor->StartJob(job);
  ASSERT_TRUE(processor->CalculateSpectrogram(false, job));
  EXPECT_TRUE(job->spectrogram_ready);
  EXPECT_EQ(job->display_spectrogram.num_freqs, 352);
  EXPECT_EQ(job->display_spectrogram.num_times, 60);
  ASSERT_EQ(announced.size(), 3u);
  EXPECT_EQ(std::get<2>(announced[0]), &job->preview_spectrogram);
  EXPECT_EQ(std::get<2>(announced[2]), &job->display_spectrogram);
  EXPECT_EQ(log.front(), "Loading spectrograms");
  // Progress runs through both spectrogram passes and stops where note finding begins.
  ASSERT_FALSE(fractions.empty());
  EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
  EXPECT_GT(fractions.front(), 0.04 + 0.115);
  EXPECT_NEAR(fractions.back(), 0.04 + 0.115 + 0.075 + 0.27, 1e-9);
}

TEST_F(SpectrogramStageTest, ExportWritesTheMainGridIntoANewFolderWithTheExtension) {
  ASSERT_TRUE(processor->CalculateSpectrogram(false, job));
  QTemporaryDir out;
  job->spectrogram_filename = out.filePath("new/folder/grid");
  processor->ExportSpectrogramCsv(job);
  QFile file(out.filePath("new/folder/grid.csv"));
  ASSERT_TRUE(file.open(QIODevice::ReadOnly));
  const QList<QByteArray> lines = file.readAll().split('\n');
  ASSERT_EQ(lines.size(), 60 + 2 + 1);
  EXPECT_EQ(lines[0].split(',').size(), 352);
  EXPECT_EQ(lines[1].split(',').size(), 60);
  EXPECT_EQ(lines[30].split(',').size(), 352);
  EXPECT_TRUE(messages.empty());
}

TEST_F(SpectrogramStageTest, AnUnwritableTargetIsReportedAndTheJobGoesOn) {
  QTemporaryDir out;
  QFile blocker(out.filePath("blocked"));
  ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
  blocker.close();
  job->spectrogram_filename = out.filePath("blocked/grid.csv");  // a file where a folder should be
  processor->ExportSpectrogramCsv(job);
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0],
            manager->language.FILE_WRITE_FAILED + out.filePath("blocked/grid.csv").toStdString());
  EXPECT_EQ(log.back(), "Failed to open spectrogram file");
  EXPECT_FALSE(job->cancelled);
}

}  // namespace
