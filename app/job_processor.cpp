#include "app/job_processor.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QThread>
#include <new>

#include "analysis/auto_focus_spectrogram.h"
#include "analysis/downbeat_detector.h"
#include "analysis/music_analysis.h"
#include "analysis/notes.h"
#include "audio/audio.h"
#include "nn/cuda_library.h"
#include "output/midi_io.h"
#include "output/sheet_music.h"
#include "output/spectrogram_csv.h"
#include "platform/file_names.h"
#include "platform/language_strings.h"
#include "platform/paths.h"
#include "platform/preferences.h"

namespace {

double NowMsecs() { return static_cast<double>(QDateTime::currentMSecsSinceEpoch()); }

// A file name in `folder` for sheet music that is only to be shown: the title with ".xml", or
// with " (n).xml" when an earlier view's file is still there.
QString ScratchSheetMusicName(const QString& folder, QString title) {
  if (folder.isEmpty()) return QString();
  title.replace('/', '_').replace('\\', '_');
  if (title.trimmed().isEmpty()) title = "sheet_music";
  const QDir dir(folder);
  QString name = dir.filePath(title + ".xml");
  for (int n = 1; QFileInfo::exists(name); ++n) {
    name = dir.filePath(QString("%1 (%2).xml").arg(title).arg(n));
  }
  return name;
}

}  // namespace

JobProcessor::JobProcessor(const LanguageStrings& language_, const Preferences& preferences_,
                           const Paths& paths_)
    : language(language_), preferences(preferences_), paths(paths_) {}

std::vector<std::pair<JobTasks::Tasks, double>> JobProcessor::TaskWeights(bool find_notes, bool cuda) {
  using namespace JobTasks;
  if (!find_notes)
    return {{kAudio, 0.08}, {kBeats, 0.23}, {kSpectrogramFirstPass, 0.15}, {kSpectrogramSecondPass, 0.54}};
  if (cuda)
    return {{kAudio, 0.072},
            {kBeats, 0.207},
            {kSpectrogramFirstPass, 0.135},
            {kSpectrogramSecondPass, 0.486},
            {kNotes, 0.1}};
  return {{kAudio, 0.04},
          {kBeats, 0.115},
          {kSpectrogramFirstPass, 0.075},
          {kSpectrogramSecondPass, 0.27},
          {kNotes, 0.5}};
}

double JobProcessor::ProgressFraction(JobTasks::Tasks task, int done, int total) const {
  double fraction = 0.0;
  for (const auto& [weighted_task, weight] : task_weights) {
    if (weighted_task == task) {
      if (total > 0) fraction += static_cast<double>(done) / total * weight;
      return fraction;
    }
    fraction += weight;
  }
  return fraction;
}

void JobProcessor::CalculateProgress(JobPtr job, JobTasks::Tasks task, int done, int total) {
  emit ProgressUpdate(job, task, done, total, ProgressFraction(task, done, total));
}

void JobProcessor::ProcessJob(JobPtr job) {
  if (job->cancelled) return;
  try {
    job->start_msecs = NowMsecs();
    job->end_msecs = job->start_msecs;
    job->job_id = static_cast<int>(static_cast<qint64>(job->start_msecs) & 0xFFFFFF);
    job->input_type = TranscriptionJob::GetInputType(job->input_filename);
    EnsureFoldersExist(job->SaveFilenames());
    StartJob(job);

    if (job->IsTmpjInput()) {
      LoadTmpj(job->input_filename, job);
      CompleteAlternateFile(job);
    } else if (job->IsMidiInput()) {
      ProcessMidiFile(job);
    } else {
      ProcessAudioFile(job);
    }
  } catch (const std::bad_alloc&) {
    TranscriptionJob::Cancel(job);
    emit Message(job->language.OUT_OF_MEMORY, false);
  }
}

void JobProcessor::StartJob(JobPtr job) {
  if (job->cancelled) return;
  emit StartedJob(job);
  task_weights = TaskWeights(job->find_notes, job->find_notes && CudaIsAvailable());
}

void JobProcessor::ProcessAudioFile(JobPtr job) {
  emit LogStep("Loading audio");
  CalculateProgress(job, JobTasks::kAudio, 0, 0);
  if (!RunAudioStage(job) || job->cancelled) return;
  job->cli_modifiers.Set(job.get());
  emit AudioReady(job);

  if (!CalculateBeats(job)) return;
  if (!CalculateSpectrogram(false, job)) return;
  if (job->find_notes) {
    emit LogStep("Loading notes");
    FindNotes(job);
  }
  if (job->cancelled) return;
  // The job's grid follows the settings it was made with (the preference, or a project's value).
  if (job->sheet_music_settings.smallest_notes_per_quarter > 0)
    job->SetSmallestNotesPerQuarter(job->sheet_music_settings.smallest_notes_per_quarter);
  AnalyseMusic(job);
  job->notes_ready = true;
  emit NotesReady(job);
  job->SetHasUnsavedChanges(true, true);

  SaveJobOutput(job);
  if (job->cancelled) return;

  // Notes are always found on the network's own grid; a finer display grid is computed
  // only after the outputs are saved, so it never delays them.
  if (job->find_notes && (job->freqs_per_note > Constants::kNeuralNetFrequenciesPerNote ||
                          job->time_step < Constants::kNeuralNetTimeStepMs)) {
    CalculateSpectrogram(true, job);
  }
  job->end_msecs = NowMsecs();
  job->job_complete = true;
  emit FinishedJob(job);
}

void JobProcessor::ProcessMidiFile(JobPtr job) {
  // Reading MIDI as input arrives with the MIDI codec and the piano samples.
  emit Message(job->language.AUDIO_FORMAT_UNSUPPORTED, false);
  TranscriptionJob::Cancel(job);
}

bool JobProcessor::RunAudioStage(JobPtr job) {
  Audio audio(job);
  // Direct: the worker is blocked below, and a queued delivery would only arrive after the
  // job has been cancelled and removed. Re-emitting here still crosses to JobManager queued.
  connect(&audio, &Audio::Message, this, &JobProcessor::Message, Qt::DirectConnection);

  // The stage gets an event-loop thread of its own; the worker waits on the signal that
  // Audio::Finish releases on every path.
  ThreadSignal finished;
  QThread thread;
  QThread* worker = QThread::currentThread();
  connect(&thread, &QThread::started, &audio, [&audio, &finished] { audio.Run(&finished); },
          Qt::DirectConnection);
  connect(&thread, &QThread::finished, &audio, [&audio, worker] { audio.moveToThread(worker); },
          Qt::DirectConnection);
  audio.moveToThread(&thread);
  thread.start(QThread::InheritPriority);
  finished.Wait();
  thread.quit();
  thread.wait();
  return !job->cancelled;
}

void JobProcessor::FindNotes(JobPtr job) {
  Notes notes;
  connect(&notes, &Notes::ProgressUpdate, this, &JobProcessor::CalculateProgress, Qt::DirectConnection);
  connect(&notes, &Notes::Message, this, &JobProcessor::Message, Qt::DirectConnection);
  notes.GetNotes(job);
}

void JobProcessor::AnalyseMusic(JobPtr job) {
  MusicAnalysis analysis;
  analysis.Calculate(job);
}

void JobProcessor::LoadTmpj(const QString& filename, JobPtr job) {
  // Reading project files arrives with the project file format.
  (void)filename;
  emit Message(job->language.TMPJ_READ_INVALID_FORMAT, false);
  TranscriptionJob::Cancel(job);
}

void JobProcessor::CompleteAlternateFile(JobPtr job) {
  if (job->cancelled) return;
  job->cli_modifiers.Set(job.get());
  emit SpectrogramReady(true, true, &job->display_spectrogram);
  job->notes_ready = true;
  emit NotesReady(job);
  SaveJobOutput(job);
  if (job->IsTmpjInput()) job->tmpj_filename = job->input_filename;
  job->job_complete = true;
  job->end_msecs = NowMsecs();
  job->SetHasUnsavedChanges(false, true);
  emit FinishedJob(job);
}

bool JobProcessor::CalculateBeats(JobPtr job) {
  emit LogStep("Detecting beats");
  DownbeatDetector detector;
  CalculateProgress(job, JobTasks::kBeats, 0, detector.progress_total);
  connect(&detector, &DownbeatDetector::Message, this, &JobProcessor::Message);
  connect(&detector, &DownbeatDetector::LogStep, this, &JobProcessor::LogStep);
  connect(&detector, &DownbeatDetector::ProgressUpdate, this, &JobProcessor::CalculateProgress,
          Qt::DirectConnection);
  detector.Calculate(job);
  if (job->cancelled) return false;
  emit LogStep(QString("Found %1 beats, %2 measures")
                   .arg(job->beats.size())
                   .arg(job->beats_analyzer.measures.size()));
  return true;
}

bool JobProcessor::CalculateSpectrogram(bool recalculate, JobPtr job) {
  emit LogStep("Loading spectrograms");
  AutoFocusSpectrogram spectrogram;
  connect(&spectrogram, &AutoFocusSpectrogram::ProgressUpdate, this, &JobProcessor::CalculateProgress,
          Qt::DirectConnection);
  connect(&spectrogram, &AutoFocusSpectrogram::SpectrogramReady, this, &JobProcessor::SpectrogramReady);
  connect(&spectrogram, &AutoFocusSpectrogram::Message, this, &JobProcessor::Message);
  if (recalculate) {
    spectrogram.Recalculate(job);
  } else {
    spectrogram.Calculate(job);
  }
  return !job->cancelled;
}

void JobProcessor::SaveJobOutput(JobPtr job) {
  if (!job->spectrogram_filename.isEmpty()) ExportSpectrogramCsv(job);

  const bool open_after = preferences.open_sheet_music_after_processing &&
                          (job->IsMidiInput() || (job->input_type == kInputAudio && job->find_notes));
  if (!job->musicxml_filename.isEmpty() || open_after) {
    emit ProgressUpdate(job, JobTasks::kSheetMusic, 0, 0, -1.0);
    SaveSheetMusic(job, open_after, false);
  }
  if (job->cancelled) return;

  if (!job->tmpj_filename.isEmpty()) {
    SaveTmpj(job);
    job->SetHasUnsavedChanges(false, true);
  }
  if (!job->midi_filename.isEmpty()) SaveMidi(job);
  if (!job->pdf_filename.isEmpty()) {
    job->thread_signal.Reset();
    emit SavePdf(job);
    job->thread_signal.Wait();
  }
}

void JobProcessor::AdditionalOutput(JobPtr job) { (void)job; }

void JobProcessor::ExportSpectrogramCsv(JobPtr job) {
  if (job->cancelled || job->spectrogram_filename.isEmpty()) return;
  EnsureFoldersExist({job->spectrogram_filename});
  const QString filename = SpectrogramCsv::TargetFilename(job->spectrogram_filename);
  if (!SpectrogramCsv::Write(job->display_spectrogram, filename)) {
    emit Message(job->language.FILE_WRITE_FAILED + filename.toStdString(), false);
    emit LogStep("Failed to open spectrogram file");
  }
}

void JobProcessor::SaveSheetMusic(JobPtr job, bool open_after, bool for_pdf) {
  QString path = job->musicxml_filename;
  if (path.isEmpty() && (open_after || for_pdf) && temp_dir.isValid())
    path = ScratchSheetMusicName(temp_dir.path(), job->title);
  if (path.isEmpty()) return;
  SheetMusic sheet_music(job);
  connect(&sheet_music, &SheetMusic::Message, this, &JobProcessor::Message);
  if (sheet_music.SaveSheetMusic(path)) emit SheetMusicReady(open_after, for_pdf, path, job);
}

void JobProcessor::SaveTmpj(JobPtr job) { ReportUnavailableOutput("Project", job->tmpj_filename); }

void JobProcessor::SaveMidi(JobPtr job) {
  if (!MidiIo::SaveMidiFile(job)) {
    emit Message(job->language.FILE_WRITE_FAILED + job->midi_filename.toStdString(), false);
  }
}

void JobProcessor::ReportUnavailableOutput(const QString& what, const QString& filename) {
  emit LogStep(QString("%1 output is not available in this build: %2").arg(what, filename));
  emit Message(QString("%1 output is not available in this build; %2 was not written.")
                   .arg(what, filename)
                   .toStdString(),
               false);
}
