#pragma once

#include <QObject>
#include <QString>
#include <memory>
#include <string>
#include <vector>

#include "analysis/fft_filter.h"
#include "score/job_tasks.h"

class TranscriptionJob;

// The beat stage: a 314-column feature matrix from the job's mono samples (its own short-time
// Fourier analysis at 44100 Hz and 100 frames per second), the beat network ensemble over it,
// and the beat HMM solver on the beat and downbeat activations. Runs on the job's worker.
class DownbeatDetector : public QObject {
  Q_OBJECT

 public:
  static constexpr int kHop = 441;  // samples per 10 ms frame at 44100 Hz
  static constexpr int kNumFeatures = 314;

  DownbeatDetector();

  // The whole stage: fills the job's beats (and measures) or cancels the job with a message.
  void Calculate(std::shared_ptr<TranscriptionJob> job);

  // The feature matrix of `samples` (44100 Hz, 16-bit scale): one row of 314 per frame.
  void Features(const std::vector<int>& samples, std::vector<std::vector<float>>* features) const;
  // The integer samples that the analysis reads from the job's mono stream.
  static std::vector<int> BeatSamples(const std::vector<float>& mono, double sample_rate);

  // Frame i holds `frame_size` samples centred on i * hop, zero outside the list; there are
  // ceil(samples / hop) frames.
  static void FramedAudio(int frame_size, int hop, const std::vector<int>& samples,
                          std::vector<std::vector<int>>* frames);
  // The same for `count` frames from frame `first` on.
  static void FramedAudio(int frame_size, int hop, const std::vector<int>& samples, int first, int count,
                          std::vector<std::vector<int>>* frames);
  // log10(1 + filterbank magnitude) of each frame (frame size N = the frames' length).
  void LogAmplitudes(int bands_per_octave, const std::vector<std::vector<int>>& frames,
                     std::vector<std::vector<float>>* amplitudes) const;
  // Each row followed by its positive differences to the row `lag` before (lag 2 for rows of
  // 91 values, otherwise 1; rows before the lag have zero differences).
  static void AmplitudeDiffs(const std::vector<std::vector<float>>& amplitudes,
                             std::vector<std::vector<float>>* features);
  void CalculateFilters(int frame_size, int bands_per_octave, std::vector<FFTFilter>* filters) const;
  void LogFrequencies(int bands_per_octave, std::vector<double>* frequencies) const;
  // The Hann window with the sample scale 0.5 / 32767 folded in.
  static std::vector<double> Window(int frame_size);

  int num_nets = 8;
  int num_hmms = 2;
  int progress_total = 10;
  double min_frequency = 30.0;
  double max_frequency = 17000.0;
  std::shared_ptr<TranscriptionJob> job;
  std::string weights_path;  // beats.safetensors; the default location unless a caller sets another

 signals:
  void Message(std::string text, bool is_fatal);
  void ProgressUpdate(std::shared_ptr<TranscriptionJob> job, JobTasks::Tasks task, int done, int total);
  void LogStep(QString text);

 public slots:
  void NetProgressUpdate(int done);
  void HmmProgressUpdate(int done);
  void OutOfMemory();
};
