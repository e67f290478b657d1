#pragma once

#include <QCommandLineParser>
#include <QString>
#include <memory>

class JobManager;
class QCoreApplication;
class TranscriptionJob;

// True if any argument, the program's name included, is exactly "-a" or "--headless".
bool IsHeadless(int argc, char** argv);

// The driver: decides between window and headless, builds the one JobManager and turns
// the command line into at most one job.
class TonemillApp {
 public:
  explicit TonemillApp(const QString& data_folder);

  int Run(int argc, char** argv);
  // False means the run ends here with status 0.
  bool ProcessCommandLineArguments(const QCoreApplication& app);
  // The same on an explicit argument list, the program's name first.
  bool ProcessCommandLineArguments(const QStringList& arguments);

  std::shared_ptr<JobManager> job_manager;
  QString data_folder;
  bool headless = false;
  std::shared_ptr<TranscriptionJob> job;
  QCommandLineParser parser;
};
