#include "analysis/downbeat_detector.h"

#include <kiss_fftr.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>

#include "analysis/beat_hmm_solver.h"
#include "nn/beat_net_weights.h"
#include "nn/bi_beat_net_ensemble.h"
#include "platform/language_strings.h"
#include "score/transcription_job.h"

namespace {

struct Setting {
  int frame_size;
  int bands_per_octave;
};

// Frame sizes and bands per octave of the three feature blocks, in column order.
constexpr Setting kSettings[] = {{1024, 3}, {2048, 6}, {4096, 12}};

// Frames are made and analysed this many at a time, so that a long song never holds all
// its overlapping frames at once.
constexpr int kFramesPerBlock = 512;

int TruncatedSample(float value) {
  if (!(value == value)) return 0;  // NaN
  if (value >= 2147483520.0f) return std::numeric_limits<int>::max();
  if (value <= -2147483648.0f) return std::numeric_limits<int>::min();
  return static_cast<int>(value);
}

}  // namespace

DownbeatDetector::DownbeatDetector() : weights_path(DefaultBeatWeightsPath()) {}

std::vector<int> DownbeatDetector::BeatSamples(const std::vector<float>& mono, double sample_rate) {
  int rate_factor = static_cast<int>(std::trunc(44100.0 / sample_rate + 0.5));
  if (rate_factor == 0) rate_factor = 1;
  // The whole stream is analysed.
  const size_t beat_sample_count = mono.size();
  const size_t beat_sample_reserve = mono.size();
  std::vector<int> samples;
  samples.reserve(beat_sample_reserve * (rate_factor == 2 ? 2 : 1));
  for (size_t i = 0; i < beat_sample_count; ++i) {
    const int s = TruncatedSample(mono[i]);
    samples.push_back(s);
    if (rate_factor == 2) {
      // A 22050 Hz stream is doubled by the mean of each sample and the next.
      const int next = i + 1 < mono.size() ? TruncatedSample(mono[i + 1]) : s;
      samples.push_back(static_cast<int>((static_cast<double>(s) + next) * 0.5));
    }
  }
  return samples;
}

void DownbeatDetector::FramedAudio(int frame_size, int hop, const std::vector<int>& samples,
                                   std::vector<std::vector<int>>* frames) {
  const int count = static_cast<int>((samples.size() + hop - 1) / hop);
  FramedAudio(frame_size, hop, samples, 0, count, frames);
}

void DownbeatDetector::FramedAudio(int frame_size, int hop, const std::vector<int>& samples, int first, int count,
                                   std::vector<std::vector<int>>* frames) {
  frames->assign(std::max(count, 0), std::vector<int>(frame_size, 0));
  const int64_t size = static_cast<int64_t>(samples.size());
  for (int f = 0; f < count; ++f) {
    const int64_t begin = static_cast<int64_t>(first + f) * hop - frame_size / 2;
    const int64_t j0 = std::max<int64_t>(0, -begin);
    const int64_t j1 = std::min<int64_t>(frame_size, size - begin);
    std::vector<int>& frame = (*frames)[f];
    for (int64_t j = j0; j < j1; ++j) frame[j] = samples[begin + j];
  }
}

std::vector<double> DownbeatDetector::Window(int frame_size) {
  const double k = 1.5259254737998596e-5;
  std::vector<double> window(frame_size, 0.0);
  for (int i = 1; i < frame_size; ++i)
    window[i] = k - std::cos(2.0 * M_PI * i / (frame_size - 1)) * k;
  return window;
}

void DownbeatDetector::LogFrequencies(int bands_per_octave, std::vector<double>* frequencies) const {
  frequencies->clear();
  const double inverse_a4 = 0.0022727272727272726;
  const int first = static_cast<int>(std::floor(std::log2(min_frequency * inverse_a4) * bands_per_octave));
  const int last = static_cast<int>(std::ceil(std::log2(max_frequency * inverse_a4) * bands_per_octave));
  for (int i = first; i < last; ++i) {
    const float exponent = static_cast<float>(i) / static_cast<float>(bands_per_octave);
    const double f = 440.0 * std::pow(2.0, static_cast<double>(exponent));
    if (f >= min_frequency && f <= max_frequency) frequencies->push_back(f);
  }
}

void DownbeatDetector::CalculateFilters(int frame_size, int bands_per_octave,
                                        std::vector<FFTFilter>* filters) const {
  filters->clear();
  std::vector<double> frequencies;
  LogFrequencies(bands_per_octave, &frequencies);
  const int num_bins = frame_size / 2;
  std::vector<double> bin_frequencies(num_bins);
  for (int i = 0; i < num_bins; ++i) bin_frequencies[i] = i * 44100.0 / frame_size;

  std::vector<int> bins;
  for (double f : frequencies) {
    int bin = static_cast<int>(std::lower_bound(bin_frequencies.begin(), bin_frequencies.end(), f) -
                               bin_frequencies.begin());
    if (bin >= num_bins)
      bin = num_bins - 1;
    else if (bin > 0 && f - bin_frequencies[bin - 1] < bin_frequencies[bin] - f)
      --bin;
    bins.push_back(bin);
  }
  bins.erase(std::unique(bins.begin(), bins.end()), bins.end());
  if (bins.size() < 3) return;
  for (size_t i = 0; i + 2 < bins.size(); ++i) filters->emplace_back(bins[i], bins[i + 1], bins[i + 2]);
}

void DownbeatDetector::LogAmplitudes(int bands_per_octave, const std::vector<std::vector<int>>& frames,
                                     std::vector<std::vector<float>>* amplitudes) const {
  amplitudes->clear();
  if (frames.empty()) return;
  const int n = static_cast<int>(frames[0].size());
  const std::vector<double> window = Window(n);
  std::vector<FFTFilter> filters;
  CalculateFilters(n, bands_per_octave, &filters);
  kiss_fftr_cfg config = kiss_fftr_alloc(n, 0, nullptr, nullptr);
  if (!config) throw std::bad_alloc();
  std::vector<float> x(n);
  std::vector<kiss_fft_cpx> spectrum(n / 2 + 1);
  std::vector<float> magnitudes(n / 2);
  amplitudes->reserve(frames.size());
  for (const std::vector<int>& frame : frames) {
    for (int i = 0; i < n; ++i) x[i] = static_cast<float>(frame[i] * window[i]);
    kiss_fftr(config, x.data(), spectrum.data());
    for (int b = 0; b < n / 2; ++b) {
      const float power = spectrum[b].r * spectrum[b].r + spectrum[b].i * spectrum[b].i;
      magnitudes[b] = power == 0.0f ? 0.0f : std::sqrt(power);
    }
    std::vector<float> row(filters.size());
    for (size_t k = 0; k < filters.size(); ++k) {
      const FFTFilter& filter = filters[k];
      const float* m = magnitudes.data() + filter.start_bin;
      float sum = 0.0f;
      for (size_t j = 0; j < filter.weights.size(); ++j) sum += m[j] * filter.weights[j];
      row[k] = static_cast<float>(std::log10(static_cast<double>(sum) + 1.0));
    }
    amplitudes->push_back(std::move(row));
  }
  kiss_fftr_free(config);
}

void DownbeatDetector::AmplitudeDiffs(const std::vector<std::vector<float>>& amplitudes,
                                      std::vector<std::vector<float>>* features) {
  features->assign(amplitudes.size(), std::vector<float>());
  for (size_t t = 0; t < amplitudes.size(); ++t) {
    const std::vector<float>& row = amplitudes[t];
    const size_t n = row.size();
    const size_t lag = n == 91 ? 2 : 1;
    std::vector<float>& out = (*features)[t];
    out.assign(2 * n, 0.0f);
    std::copy(row.begin(), row.end(), out.begin());
    if (t < lag) continue;
    const std::vector<float>& before = amplitudes[t - lag];
    for (size_t b = 0; b < n && b < before.size(); ++b) out[n + b] = std::max(row[b] - before[b], 0.0f);
  }
}

void DownbeatDetector::Features(const std::vector<int>& samples, std::vector<std::vector<float>>* features) const {
  const int num_frames = static_cast<int>((samples.size() + kHop - 1) / kHop);
  features->assign(num_frames, std::vector<float>(kNumFeatures, 0.0f));
  size_t column = 0;
  for (const Setting& setting : kSettings) {
    std::vector<std::vector<float>> amplitudes;
    amplitudes.reserve(num_frames);
    std::vector<std::vector<int>> frames;
    std::vector<std::vector<float>> block;
    for (int first = 0; first < num_frames; first += kFramesPerBlock) {
      FramedAudio(setting.frame_size, kHop, samples, first, std::min(kFramesPerBlock, num_frames - first), &frames);
      LogAmplitudes(setting.bands_per_octave, frames, &block);
      for (auto& row : block) amplitudes.push_back(std::move(row));
    }
    std::vector<std::vector<float>> diffs;
    AmplitudeDiffs(amplitudes, &diffs);
    size_t width = 0;
    for (int t = 0; t < num_frames; ++t) {
      const std::vector<float>& row = diffs[t];
      width = row.size();
      std::copy(row.begin(), row.begin() + std::min(row.size(), kNumFeatures - column),
                (*features)[t].begin() + column);
    }
    column += width;
  }
}

void DownbeatDetector::Calculate(std::shared_ptr<TranscriptionJob> job_) {
  job = job_;
  if (job->sample_rate == 0.0) {
    emit Message(job->language.INVALID_SAMPLE_RATE, false);
    TranscriptionJob::Cancel(job);
    job.reset();
    return;
  }
  try {
    Tensor input;
    {
      const std::vector<int> samples = BeatSamples(job->mono_data, job->sample_rate);
      std::vector<std::vector<float>> features;
      Features(samples, &features);
      input.shape = {1, static_cast<int>(features.size()), kNumFeatures};
      input.data.resize(1);
      input.data[0] = std::move(features);
    }
    if (job->cancelled) {
      job.reset();
      return;
    }

    BiBeatNetEnsemble ensemble(weights_path);
    connect(&ensemble, &BiBeatNetEnsemble::ProgressUpdate, this, &DownbeatDetector::NetProgressUpdate,
            Qt::DirectConnection);
    connect(&ensemble, &BiBeatNetEnsemble::Message, this, &DownbeatDetector::Message, Qt::DirectConnection);
    connect(&ensemble, &BiBeatNetEnsemble::OutOfMemory, this, &DownbeatDetector::OutOfMemory,
            Qt::DirectConnection);
    const Tensor output = ensemble.Process(input, std::max(job->thread_count, 1));
    if (!ensemble.error.empty()) {
      const std::string& prefix = job->language.FILE_READ_FAILED;
      emit Message(prefix.empty() ? ensemble.error : prefix + "\n" + ensemble.error, false);
      TranscriptionJob::Cancel(job);
    }
    if (job->cancelled) {
      job.reset();
      return;
    }

    std::vector<std::vector<float>> activations;
    activations.reserve(output.shape[1]);
    for (const auto& row : output.data[0]) activations.push_back({row[1], row[2]});

    BeatHMMSolver solver;
    connect(&solver, &BeatHMMSolver::ProgressUpdate, this, &DownbeatDetector::HmmProgressUpdate,
            Qt::DirectConnection);
    connect(&solver, &BeatHMMSolver::Message, this, &DownbeatDetector::Message, Qt::DirectConnection);
    connect(&solver, &BeatHMMSolver::LogStep, this, &DownbeatDetector::LogStep, Qt::DirectConnection);
    solver.Calculate(activations, job);
    if (!job->cancelled) job->beats_ready = true;
  } catch (const std::bad_alloc&) {
    OutOfMemory();
  }
  job.reset();
}

void DownbeatDetector::NetProgressUpdate(int done) {
  if (job) emit ProgressUpdate(job, JobTasks::kBeats, done, progress_total);
}

void DownbeatDetector::HmmProgressUpdate(int done) {
  if (job) emit ProgressUpdate(job, JobTasks::kBeats, done + num_nets, progress_total);
}

void DownbeatDetector::OutOfMemory() {
  if (!job) return;
  TranscriptionJob::Cancel(job);
  emit Message(job->language.OUT_OF_MEMORY, false);
}
