#include "app/job_manager.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QDateTime>
#include <QFileInfo>
#include <QMessageBox>
#include <QSysInfo>
#include <exception>
#include <iostream>

#include "nn/cuda_library.h"
#include "platform/constants.h"

JobManager::JobManager(bool headless_, const QString& data_folder, const QString& app_dir_override)
    : paths(app_dir_override, data_folder),
      preferences(paths.preferences_file),
      language(paths.languages_dir, preferences.language_string),
      processor(language, preferences, paths),
      headless(headless_) {
  processor.moveToThread(&worker_thread);

  connect(this, &JobManager::NewPendingJob, &processor, &JobProcessor::ProcessJob, Qt::QueuedConnection);
  connect(&processor, &JobProcessor::StartedJob, this, &JobManager::StartedJob, Qt::QueuedConnection);
  connect(&processor, &JobProcessor::ProgressUpdate, this, &JobManager::ProgressUpdate, Qt::QueuedConnection);
  connect(&processor, &JobProcessor::AudioReady, this, &JobManager::AudioReady, Qt::QueuedConnection);
  connect(&processor, &JobProcessor::SpectrogramReady, this, &JobManager::SpectrogramReady,
          Qt::QueuedConnection);
  connect(&processor, &JobProcessor::NotesReady, this, &JobManager::NotesReady, Qt::QueuedConnection);
  connect(&processor, &JobProcessor::SheetMusicReady, this, &JobManager::SheetMusicReady, Qt::QueuedConnection);
  connect(&processor, &JobProcessor::FinishedJob, this, &JobManager::RemoveJobFromQueue, Qt::QueuedConnection);
  connect(&processor, &JobProcessor::FinishedJob, this, &JobManager::FinishedJob, Qt::QueuedConnection);
  connect(&processor, &JobProcessor::FinishedJob, this, &JobManager::QuitIfNeeded, Qt::QueuedConnection);
  connect(&processor, &JobProcessor::Message, this, &JobManager::Message, Qt::QueuedConnection);
  connect(&processor, &JobProcessor::SavePdf, this, &JobManager::SavePdf, Qt::QueuedConnection);
  connect(&processor, &JobProcessor::LogStep, this, &JobManager::LogStep, Qt::QueuedConnection);
  connect(&language, &LanguageStrings::Message, this, &JobManager::Message);

  worker_thread.start(QThread::InheritPriority);
}

JobManager::~JobManager() {
  try {
    Stop(nullptr);
  } catch (...) {
    std::terminate();
  }
}

JobManager::JobPtr JobManager::NewJob() {
  auto job = std::make_shared<TranscriptionJob>(language, &preferences);
  job->created_version = Constants::sw_version.ToStdString();
  job->export_format = preferences.export_format_enum;
  job->sheet_music_settings = SheetMusicSettings::FromPreferences(preferences);
  job->midi_settings = MidiSettings::FromPreferences(preferences);
  job->thread_count = preferences.thread_count;
  connect(&job->notes, &NoteData::LogStep, this, &JobManager::LogStep);
  return job;
}

void JobManager::AddJob(JobPtr job) {
  std::lock_guard<std::recursive_mutex> lock(queue_mutex);
  connect(job.get(), &TranscriptionJob::Cancelled, this, &JobManager::CancelledJob);
  connect(job.get(), &TranscriptionJob::Cancelled, this, &JobManager::RemoveJobFromQueue);
  connect(job.get(), &TranscriptionJob::Cancelled, this, &JobManager::QuitIfNeeded, Qt::QueuedConnection);
  for (JobPtr& queued : queue) queued->LockJob();
  queue.push_back(job);
  if (startup_complete) emit NewPendingJob(job);
}

void JobManager::RemoveJobFromQueue(JobPtr job) {
  std::lock_guard<std::recursive_mutex> lock(queue_mutex);
  for (auto it = queue.begin(); it != queue.end(); ++it) {
    if (*it == job) {
      queue.erase(it);
      return;
    }
  }
}

void JobManager::QuitIfNeeded(JobPtr job) {
  if (!job->quit_when_done) return;
  Stop(nullptr);
  QCoreApplication::quit();
}

bool JobManager::HasPendingJobs() {
  std::lock_guard<std::recursive_mutex> lock(queue_mutex);
  return !queue.empty();
}

bool JobManager::HasPendingJobsIgnoring(JobPtr job) {
  std::lock_guard<std::recursive_mutex> lock(queue_mutex);
  for (const JobPtr& queued : queue)
    if (queued != job) return true;
  return false;
}

std::vector<JobManager::JobPtr> JobManager::QueuedJobs() {
  std::lock_guard<std::recursive_mutex> lock(queue_mutex);
  return queue;
}

void JobManager::Stop(JobPtr current) {
  // Held throughout: a Cancel below re-enters RemoveJobFromQueue on this thread.
  std::lock_guard<std::recursive_mutex> lock(queue_mutex);
  if (stopped) return;
  LogStep("Exiting");
  const std::vector<JobPtr> jobs = queue;
  for (const JobPtr& job : jobs) TranscriptionJob::Cancel(job);
  queue.clear();
  if (current) TranscriptionJob::Cancel(current);
  if (QAbstractEventDispatcher::instance()) CloseUsageFile(preferences.send_usage_information);
  worker_thread.quit();
  worker_thread.wait();
  stopped = true;
}

void JobManager::Message(const std::string& text, bool is_fatal) {
  if (headless) {
    std::cout << text << std::endl;
    return;
  }
  LogStep(QString("Message: is_fatal_error=%1, text=%2").arg(is_fatal).arg(QString::fromStdString(text)));
  QMessageBox::information(nullptr, Constants::program_name, QString::fromStdString(text));
  if (is_fatal) {
    LogStep("Error exit");
    QCoreApplication::exit(1);
  }
}

void JobManager::SavePdf(JobPtr job) {
  // Rendering PDF needs the sheet music viewer, which this build does not have.
  Message(QString("PDF output is not available in this build; %1 was not written.")
              .arg(job->pdf_filename)
              .toStdString(),
          false);
  job->thread_signal.Finished();
}

void JobManager::CloseUsageFile(bool send) {
  // There is no usage service to post to; the log is only closed.
  (void)send;
  std::lock_guard<std::mutex> lock(log_mutex);
  if (log_stream) log_stream->flush();
  log_stream.reset();
  if (log_file) log_file->close();
}

bool JobManager::StartupTasks() {
  crash_report_found = false;
  {
    std::lock_guard<std::mutex> lock(log_mutex);
    log_file = std::make_unique<QFile>(paths.temp_crash_log);
    if (log_file->open(QIODevice::WriteOnly)) log_stream = std::make_unique<QTextStream>(log_file.get());
  }
  startup_complete = true;

  const QDir resources(paths.app_dir.absoluteFilePath("resources"));
  auto found = [&](const char* name) { return QFileInfo::exists(resources.absoluteFilePath(name)); };
  QFile r100(resources.absoluteFilePath("qtwebengine_resources_100p.pak"));
  const bool can_read_r100 = r100.open(QIODevice::ReadOnly) && r100.size() > 0;
  const QString web_resources =
      QString(", Found icudtl.dat=%1, qtwebengine_devtools_resources.pak=%2, qtwebengine_resources.pak=%3, "
              "qtwebengine_resources_100p.pak=%4, qtwebengine_resources_200p.pak=%5, can_read_r100=%6")
          .arg(found("icudtl.dat"))
          .arg(found("qtwebengine_devtools_resources.pak"))
          .arg(found("qtwebengine_resources.pak"))
          .arg(found("qtwebengine_resources_100p.pak"))
          .arg(found("qtwebengine_resources_200p.pak"))
          .arg(can_read_r100);

  const Preferences& p = preferences;
  LogStep(QString("Completed JobManager::StartupTasks(): version=") + Constants::sw_version.ToString() +
          ", headless=" + QString::number(headless) +
          ", check_for_updates_on_open=" + QString::number(p.check_for_updates_on_open) +
          ", open_sheet_music_after_processing=" + QString::number(p.open_sheet_music_after_processing) +
          ", send_usage_data=" + QString::number(p.send_usage_information) +
          ", note_lines=" + QString::number(p.show_note_lines) +
          ", time_vertical=" + QString::number(p.time_vertical) +
          ", show_keyboard=" + QString::number(p.show_keyboard) +
          ", show_timeline=" + QString::number(p.show_timeline) + ", show_notes=" + QString::number(p.show_notes) +
          ", volume=" + QString::number(p.volume) + ", color_map_idx=" + QString::number(p.color_map_idx) +
          ", os=" + QSysInfo::prettyProductName() + QString(", build_os=%1").arg(Constants::build_os) +
          ", app_data=" + paths.data_path + ", install_dir=" + paths.app_path +
          ", library_location=" + QCoreApplication::applicationDirPath() + QString(", cuda=%1").arg(CudaIsAvailable()) +
          web_resources);
  return false;
}

void JobManager::LogStep(QString text) {
  std::lock_guard<std::mutex> lock(log_mutex);
  if (!log_stream) return;
  const QString record =
      QString::number(QDateTime::currentMSecsSinceEpoch()) + ": " + text.replace("\n", "\\n");
  *log_stream << Encode(record) << "\n";
  log_stream->flush();
  log_text += record + "\n";
}

QByteArray JobManager::Encode(const QString& text) {
  QByteArray bytes = text.toUtf8();
  for (int i = 0; i < bytes.size(); ++i) {
    const unsigned char b = static_cast<unsigned char>(bytes[i]);
    const int r = 1 + i % 5;
    bytes[i] = static_cast<char>(static_cast<unsigned char>((b >> r) | (b << (8 - r))));
  }
  return bytes.toBase64();
}

QString JobManager::Decode(const QByteArray& line) {
  QByteArray bytes = QByteArray::fromBase64(line.trimmed());
  for (int i = 0; i < bytes.size(); ++i) {
    const unsigned char b = static_cast<unsigned char>(bytes[i]);
    const int r = 1 + i % 5;
    bytes[i] = static_cast<char>(static_cast<unsigned char>((b << r) | (b >> (8 - r))));
  }
  return QString::fromUtf8(bytes);
}

QString JobManager::LastPlainLine(const QByteArray& log) {
  const QList<QByteArray> lines = log.split('\n');
  for (auto it = lines.rbegin(); it != lines.rend(); ++it)
    if (!it->trimmed().isEmpty()) return Decode(*it);
  return QString();
}
