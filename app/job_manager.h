#pragma once

#include <QFile>
#include <QObject>
#include <QString>
#include <QTemporaryDir>
#include <QTextStream>
#include <QThread>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "app/job_processor.h"
#include "platform/language_strings.h"
#include "platform/paths.h"
#include "platform/preferences.h"

// The one service object of the process, on the main thread: paths, preferences,
// language, the worker thread with its JobProcessor, the job queue and the step log.
class JobManager : public QObject {
  Q_OBJECT

 public:
  using JobPtr = std::shared_ptr<TranscriptionJob>;

  JobManager(bool headless, const QString& data_folder, const QString& app_dir_override = QString());
  ~JobManager() override;

  JobPtr NewJob();
  bool HasPendingJobs();
  bool HasPendingJobsIgnoring(JobPtr job);
  std::vector<JobPtr> QueuedJobs();
  // Cancels every queued job and `current`, then ends the worker thread. Runs once.
  void Stop(JobPtr current);
  // Opens the log; true means the updater runs and the caller must leave.
  bool StartupTasks();
  void CloseUsageFile(bool send);

  // Forwarders with which the window saves an open job while the worker is idle.
  void SaveSheetMusic(JobPtr job, bool open_after, bool for_pdf) { processor.SaveSheetMusic(job, open_after, for_pdf); }
  void SaveTmpj(JobPtr job) { processor.SaveTmpj(job); }
  void SaveMidi(JobPtr job) { processor.SaveMidi(job); }
  void SaveSpectrogramCsv(JobPtr job) { processor.ExportSpectrogramCsv(job); }
  QTemporaryDir& TempDir() { return temp_dir; }

  // The log's record coding: each UTF-8 byte rotated right by 1 + (i mod 5) bits, then base64.
  static QByteArray Encode(const QString& text);
  static QString Decode(const QByteArray& line);
  // Decodes the last non-empty line of a log.
  static QString LastPlainLine(const QByteArray& log);

  Paths paths;
  Preferences preferences;
  LanguageStrings language;
  bool startup_complete = false;
  bool crash_report_found = false;

 public slots:
  void AddJob(JobPtr job);
  void RemoveJobFromQueue(JobPtr job);
  void QuitIfNeeded(JobPtr job);
  void Message(const std::string& text, bool is_fatal);
  void SavePdf(JobPtr job);
  void LogStep(QString text);

 signals:
  void NewPendingJob(JobPtr job);
  void StartedJob(JobPtr job);
  void ProgressUpdate(JobPtr job, JobTasks::Tasks task, int done, int total, double fraction);
  void AudioReady(JobPtr job);
  void SpectrogramReady(bool first_flag, bool second_flag, const Spectrogram* grid);
  void NotesReady(JobPtr job);
  void SheetMusicReady(bool open_after, bool for_pdf, QString filename, JobPtr job);
  void FinishedJob(JobPtr job);
  void CancelledJob(JobPtr job);
  void ShowMessage(std::string text, bool is_fatal);
  void CloseFeedbackDialog();
  void RunStartupTasks();

 private:
  QString log_text;
  std::unique_ptr<QFile> log_file;
  std::unique_ptr<QTextStream> log_stream;
  std::recursive_mutex queue_mutex;
  std::vector<JobPtr> queue;
  QThread worker_thread;
  JobProcessor processor;
  QTemporaryDir temp_dir;
  std::mutex log_mutex;
  bool headless;
  bool stopped = false;
};
