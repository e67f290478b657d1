#pragma once

#include <QObject>
#include <QString>
#include <memory>
#include <string>
#include <vector>

class TranscriptionJob;

// Decodes the beat and downbeat activations with a 3-beat and a 4-beat measure HMM, keeps the
// likelier, and writes the job's beat list, completed so that it starts on a downbeat and ends
// with a downbeat sentinel after the song's stop time. Runs on the job's worker thread.
class BeatHMMSolver : public QObject {
  Q_OBJECT

 public:
  // Activations: one row per 10 ms frame, [beat, downbeat]. Leaves the beats untouched if the
  // job is cancelled meanwhile.
  void Calculate(const std::vector<std::vector<float>>& activations, std::shared_ptr<TranscriptionJob> job);

  // Completes the beat list: one beat at the start if there is none, a second 0.5 s later if
  // there is one, then beats at the spacing of the ends until it starts with number 1 and ends
  // with number 1 beyond the job's stop time. Also used for project files without beats.
  static void EnsureMinimumBeats(int beats_per_measure, std::shared_ptr<TranscriptionJob> job);
  static int NextBeatNumber(int number, int beats_per_measure);
  static int PreviousBeatNumber(int number, int beats_per_measure);

  std::shared_ptr<TranscriptionJob> job;

 signals:
  void ProgressUpdate(int done);
  void Message(std::string text, bool is_fatal);
  void LogStep(QString text);

 public slots:
  void OutOfMemory();
};
