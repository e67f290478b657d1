#include <gtest/gtest.h>

#include <QApplication>
#include <memory>

#include "platform/meta_types.h"
#include "score/job_tasks.h"
#include "score/transcription_job.h"

// The job manager and its worker thread need an application object and an event loop.
int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  qRegisterMetaType<std::shared_ptr<TranscriptionJob>>("std::shared_ptr<TranscriptionJob>");
  qRegisterMetaType<JobTasks::Tasks>("JobTasks::Tasks");
  qRegisterMetaType<std::string>("std::string");
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
