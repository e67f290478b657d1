#pragma once

#include <QObject>
#include <memory>
#include <string>
#include <vector>

#include "score/job_tasks.h"
#include "score/peak.h"
#include "score/transcription_job.h"

class Spectrogram;

// Turns a job's mono samples into its grids: a low-Q preview, a map of Q values drawn from
// how much each band pulsates, and the main grid, whose resonators are tuned cell by cell
// through that map. Time domain only: one two-pole resonator per band, its amplitude read
// off the filtered wave. Made on the worker's stack for one run; it fills the job's grids
// and owns none. Bands are filled in parallel through RunMultithread.
class AutoFocusSpectrogram : public QObject {
  Q_OBJECT

 public:
  using JobPtr = std::shared_ptr<TranscriptionJob>;

  AutoFocusSpectrogram() = default;

  // Preview, Q-map and main grid; marks the job's spectrogram ready. Nothing if cancelled.
  void Calculate(JobPtr job);
  // The main grid again at the job's own resolution, tuned through the existing Q-map.
  void Recalculate(JobPtr job);
  // Lays out the grids and fills the main one at a fixed Q, without a Q-map.
  void ConstantQSpectrogram(double q, JobPtr job);

  // Fills every row of `out` from `samples` (at the job's sample rate), in parallel over
  // bands, reporting progress as `task`. `q_map` may be null.
  void CalculateData(JobTasks::Tasks task, const std::vector<float>& samples, Spectrogram* out,
                     Spectrogram* q_map);
  // One row, one band at a time, with a work buffer of the whole signal: the reference that
  // the SIMD path of CalculateData reproduces exactly. Needs `job` set.
  void SingleFrequencyAmplitudes(int band, const std::vector<float>& samples, Spectrogram* out,
                                 Spectrogram* q_map);

  // The humps of a row, in order: a hump starts at the sample before a rise, its top is the
  // sample before its first fall, its end the last sample of its last fall before the next
  // rise; only humps that have fallen count. Flat runs change nothing.
  static std::vector<Peak> FindPeaks(const std::vector<float>& row);
  // One row of the Q-map from the same row of the scaled preview: min_q, raised where three
  // or more humps lie within 0.4 s of the cell, by their total height times their number
  // over peak_q_divisor, up to 40.
  void FillQMapRow(const std::vector<float>& preview_row, const Spectrogram& preview,
                   const Spectrogram& q_map, std::vector<float>* q_row) const;

  JobPtr job;
  double percentile_low = 97.0;
  double percentile_high = 98.0;
  double min_q = 5.0;
  double peak_q_divisor = 15.0;
  double time_step = 0.01;  // seconds between the main grid's columns
  double q_map_freqs_per_note = 0.602;
  JobTasks::Tasks task = JobTasks::kSpectrogramFirstPass;
  int task_count = 0;

 public slots:
  void MultithreadUpdate(int done);
  void OutOfMemory();

 signals:
  void Message(std::string text, bool error);
  void ProgressUpdate(JobPtr job, JobTasks::Tasks task, int done, int count);
  // first_flag: a grid for the channel list; second_flag: show it now.
  void SpectrogramReady(bool first_flag, bool second_flag, const Spectrogram* grid);

 private:
  void InitializeSpectrograms();
  void CalculateQMap();
  void CalculateAmplitudes();
  // The range that the grids cover, in seconds.
  double StartTime() const;
  double StopTime() const;
};

// Indices of the bins of `magnitudes` that are strictly greater than the rest of a five-bin
// window beginning two bins before them (clipped at the ends), ascending; two peaks are at
// least three bins apart. `peaks` is replaced.
void DftPeaks(const std::vector<double>& magnitudes, std::vector<int>* peaks);
