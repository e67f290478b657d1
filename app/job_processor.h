#pragma once

#include <QObject>
#include <QString>
#include <QTemporaryDir>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "score/job_tasks.h"
#include "score/transcription_job.h"

class LanguageStrings;
class Paths;
class Preferences;

// Runs the stages of one job at a time on the worker thread, in their fixed order, and
// reports by signals that JobManager carries to the main thread.
class JobProcessor : public QObject {
  Q_OBJECT

 public:
  using JobPtr = std::shared_ptr<TranscriptionJob>;

  JobProcessor(const LanguageStrings& language, const Preferences& preferences, const Paths& paths);

  // Progress weights of the three kinds of job; each column sums to 1.
  static std::vector<std::pair<JobTasks::Tasks, double>> TaskWeights(bool find_notes, bool cuda);
  // The fraction of the whole job done when `task` has done `done` of `total` items.
  double ProgressFraction(JobTasks::Tasks task, int done, int total) const;

  void StartJob(JobPtr job);
  void LoadTmpj(const QString& filename, JobPtr job);
  void CompleteAlternateFile(JobPtr job);
  bool CalculateBeats(JobPtr job);
  bool CalculateSpectrogram(bool recalculate, JobPtr job);
  void SaveJobOutput(JobPtr job);
  void AdditionalOutput(JobPtr job);
  void ExportSpectrogramCsv(JobPtr job);
  void SaveSheetMusic(JobPtr job, bool open_after, bool for_pdf);
  void SaveTmpj(JobPtr job);
  void SaveMidi(JobPtr job);

  const std::vector<std::pair<JobTasks::Tasks, double>>& Weights() const { return task_weights; }

 public slots:
  void ProcessJob(JobPtr job);
  void CalculateProgress(JobPtr job, JobTasks::Tasks task, int done, int total);

 signals:
  void StartedJob(JobPtr job);
  void ProgressUpdate(JobPtr job, JobTasks::Tasks task, int done, int total, double fraction);
  void AudioReady(JobPtr job);
  // A grid is ready for drawing: `first_flag` offers it in the channel list, `second_flag`
  // shows it now. The grid belongs to the job.
  void SpectrogramReady(bool first_flag, bool second_flag, const Spectrogram* grid);
  void NotesReady(JobPtr job);
  void SheetMusicReady(bool open_after, bool for_pdf, QString filename, JobPtr job);
  void SavePdf(JobPtr job);
  void FinishedJob(JobPtr job);
  void Message(std::string text, bool is_fatal);
  void LogStep(QString text);

 private:
  void ProcessAudioFile(JobPtr job);
  void ProcessMidiFile(JobPtr job);
  bool RunAudioStage(JobPtr job);
  void FindNotes(JobPtr job);
  void AnalyseMusic(JobPtr job);
  // An output that this build cannot write yet is said so, never skipped in silence.
  void ReportUnavailableOutput(const QString& what, const QString& filename);

  QTemporaryDir temp_dir;
  std::vector<std::pair<JobTasks::Tasks, double>> task_weights;
  const LanguageStrings& language;
  const Preferences& preferences;
  const Paths& paths;
};
