#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <atomic>

#include "score/transcription_job.h"
#include "test_support.h"

namespace {

class JobManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(data.isValid());
    manager = MakeTestJobManager(data);
    QObject::connect(manager.get(), &JobManager::NewPendingJob, [this](auto) { ++pending_sent; });
  }

  std::shared_ptr<TranscriptionJob> CancelledJob() {
    // A cancelled job returns from the worker at once, so queue tests stay about the queue.
    auto job = manager->NewJob();
    job->cancelled = true;
    return job;
  }

  QTemporaryDir data;
  std::shared_ptr<JobManager> manager;
  int pending_sent = 0;
};

TEST_F(JobManagerTest, JobAddedBeforeStartupIsQueuedButNotSent) {
  auto job = CancelledJob();
  manager->AddJob(job);
  EXPECT_EQ(pending_sent, 0);
  EXPECT_TRUE(manager->HasPendingJobs());
  EXPECT_FALSE(manager->HasPendingJobsIgnoring(job));

  EXPECT_FALSE(manager->StartupTasks());
  auto second = CancelledJob();
  manager->AddJob(second);
  EXPECT_EQ(pending_sent, 1);
  EXPECT_TRUE(manager->HasPendingJobsIgnoring(job));
}

TEST_F(JobManagerTest, AddingLocksEveryQueuedJob) {
  auto first = manager->NewJob();
  first->display_ready = true;
  manager->AddJob(first);
  EXPECT_TRUE(first->NoteEditingAllowed());
  auto second = manager->NewJob();
  manager->AddJob(second);
  EXPECT_TRUE(first->locked);
  EXPECT_FALSE(first->NoteEditingAllowed());
  EXPECT_FALSE(second->locked);
}

TEST_F(JobManagerTest, RemoveKeepsOrderAndIgnoresStrangers) {
  auto a = manager->NewJob(), b = manager->NewJob(), c = manager->NewJob();
  for (auto& job : {a, b, c}) manager->AddJob(job);
  manager->RemoveJobFromQueue(manager->NewJob());
  EXPECT_EQ(manager->QueuedJobs().size(), 3u);
  manager->RemoveJobFromQueue(b);
  EXPECT_EQ(manager->QueuedJobs(), (std::vector<std::shared_ptr<TranscriptionJob>>{a, c}));
}

TEST_F(JobManagerTest, CancelOnceEmitsOnceAndLeavesTheQueue) {
  auto job = manager->NewJob();
  int cancelled_signals = 0;
  QObject::connect(manager.get(), &JobManager::CancelledJob, [&](auto) { ++cancelled_signals; });
  manager->AddJob(job);
  TranscriptionJob::Cancel(job);
  TranscriptionJob::Cancel(job);
  EXPECT_EQ(cancelled_signals, 1);
  EXPECT_TRUE(job->cancelled);
  EXPECT_TRUE(job->locked);
  EXPECT_FALSE(manager->HasPendingJobs());
}

TEST_F(JobManagerTest, StopCancelsEverythingOnce) {
  auto queued = manager->NewJob(), current = manager->NewJob();
  manager->AddJob(queued);
  int cancelled_signals = 0;
  QObject::connect(manager.get(), &JobManager::CancelledJob, [&](auto) { ++cancelled_signals; });
  manager->Stop(current);
  EXPECT_TRUE(queued->cancelled);
  EXPECT_TRUE(current->cancelled);
  EXPECT_FALSE(manager->HasPendingJobs());
  EXPECT_EQ(cancelled_signals, 1);  // only the queued job was connected
  manager->Stop(manager->NewJob());  // a second stop does nothing, not even cancel
}

TEST_F(JobManagerTest, NewJobCopiesPreferences) {
  manager->preferences.thread_count = 3;
  manager->preferences.export_format_enum = 2;
  manager->preferences.lowest_note_idx = 5;
  manager->preferences.midi_lowest_note_idx = 7;
  manager->preferences.instrument = "Violin";
  auto job = manager->NewJob();
  EXPECT_EQ(job->thread_count, 3);
  EXPECT_EQ(job->export_format, 2);
  EXPECT_EQ(job->sheet_music_settings.lowest_note_idx, 5);
  EXPECT_EQ(job->sheet_music_settings.instrument, "Violin");
  EXPECT_EQ(job->midi_settings.lowest_note_idx, 7);
  EXPECT_EQ(job->created_version, "4.16.0");
}

TEST_F(JobManagerTest, LogIsEncodedFlushedAndStartsAnewEachRun) {
  QFile old(manager->paths.temp_crash_log);
  ASSERT_TRUE(old.open(QIODevice::WriteOnly));
  old.write("stale line of the last run\n");
  old.close();

  manager->LogStep("before the log is open is dropped");
  ASSERT_FALSE(manager->StartupTasks());
  manager->LogStep(QString::fromUtf8("Loaded \"Für Elise\"\nsecond line"));

  QFile log(manager->paths.temp_crash_log);
  ASSERT_TRUE(log.open(QIODevice::ReadOnly));
  const QByteArray text = log.readAll();
  EXPECT_FALSE(text.contains("stale"));
  EXPECT_FALSE(text.contains("Loaded"));  // records are encoded
  const QString last = JobManager::LastPlainLine(text);
  EXPECT_TRUE(last.endsWith(QString::fromUtf8(": Loaded \"Für Elise\"\\nsecond line"))) << last.toStdString();
  EXPECT_EQ(text.count('\n'), 2);  // the start-up line and ours
}

TEST(StepLogCodingTest, RoundTripsAnyText) {
  for (const QString& text : {QString(), QString("a"), QString("1700000000000: Loading audio"),
                              QString::fromUtf8("日本語の曲 – ♫ ñ"), QString(300, QChar('x'))}) {
    const QByteArray encoded = JobManager::Encode(text);
    EXPECT_EQ(JobManager::Decode(encoded), text);
  }
  // The rotation differs byte by byte: a repeated byte does not encode to a repeated pattern.
  const QByteArray raw = QByteArray::fromBase64(JobManager::Encode("aaaaa"));
  EXPECT_EQ(raw.size(), 5);
  EXPECT_NE(raw[0], raw[1]);
  EXPECT_EQ(static_cast<unsigned char>(raw[0]), static_cast<unsigned char>(('a' >> 1) | ('a' << 7)));
}

TEST(StepLogCodingTest, LastPlainLineSkipsEmptyLines) {
  const QByteArray log = JobManager::Encode("first") + "\n" + JobManager::Encode("Sheet music ready") + "\n\n\n";
  EXPECT_EQ(JobManager::LastPlainLine(log), "Sheet music ready");
  EXPECT_EQ(JobManager::LastPlainLine(""), "");
}

}  // namespace
