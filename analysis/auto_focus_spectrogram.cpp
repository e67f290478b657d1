#include "analysis/auto_focus_spectrogram.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <new>

#include "analysis/resonator_band.h"
#include "analysis/resonator_bank.h"
#include "analysis/resonator_grid.h"
#include "platform/constants.h"
#include "platform/language_strings.h"
#include "platform/run_multithread.h"
#include "score/spectrogram.h"

namespace {

constexpr double kPreviewTimeStep = 0.005;
constexpr double kQMapTimeStep = 0.1;
constexpr double kPreviewQ = 5.0;
constexpr double kMainQ = 12.0;
constexpr int kFilterPasses = 2;
constexpr double kMaxQ = 40.0;
// A band counts as pulsating from three humps within this many seconds either way.
constexpr double kPeakWindowSeconds = 0.4;
constexpr int kMinPeaks = 3;
constexpr float kQuietPreviewLevel = 0.05f;

}  // namespace

double AutoFocusSpectrogram::StartTime() const { return job->start_time; }

double AutoFocusSpectrogram::StopTime() const {
  // The samples begin at start_time; when the region's end is not known, they say how far
  // the grids reach.
  if (job->end_time > job->start_time) return job->end_time;
  return job->sample_rate > 0.0 ? job->start_time + job->mono_data.size() / job->sample_rate
                                : job->start_time;
}

void AutoFocusSpectrogram::Calculate(JobPtr job_) {
  if (!job_ || job_->cancelled) return;
  job = job_;
  try {
    InitializeSpectrograms();
    CalculateQMap();
    CalculateAmplitudes();
    if (!job->cancelled) job->spectrogram_ready = true;
  } catch (const std::bad_alloc&) {
    OutOfMemory();
  }
  job.reset();
}

void AutoFocusSpectrogram::Recalculate(JobPtr job_) {
  if (!job_ || job_->cancelled) return;
  job = job_;
  try {
    Spectrogram& main = job->display_spectrogram;
    main.time_step = job->time_step * 0.001;
    main.Initialize(main.start_time, main.stop_time, job->freqs_per_note);
    Spectrogram* q_map = job->q_map.num_freqs > 0 ? &job->q_map : nullptr;
    CalculateData(JobTasks::kSpectrogramRecalculation, job->mono_data, &main, q_map);
    main.CalculateStatistics();
    if (!job->cancelled) emit SpectrogramReady(true, false, &main);
  } catch (const std::bad_alloc&) {
    OutOfMemory();
  }
  job.reset();
}

void AutoFocusSpectrogram::ConstantQSpectrogram(double q, JobPtr job_) {
  if (!job_ || job_->cancelled) return;
  job = job_;
  try {
    InitializeSpectrograms();
    job->display_spectrogram.q_factor = q;
    CalculateData(JobTasks::kAudio, job->mono_data, &job->display_spectrogram, nullptr);
  } catch (const std::bad_alloc&) {
    OutOfMemory();
  }
  job.reset();
}

void AutoFocusSpectrogram::InitializeSpectrograms() {
  const LanguageStrings& language = job->language;
  const bool own_resolution = !job->find_notes || job->IsMidiInput();
  const double resolution = own_resolution ? job->freqs_per_note : Constants::kNeuralNetFrequenciesPerNote;
  const double start = StartTime();
  const double stop = StopTime();

  Spectrogram& main = job->display_spectrogram;
  main.filter_passes = kFilterPasses;
  main.q_factor = kMainQ;
  main.time_step = job->IsMidiInput() ? job->time_step * 0.001 : time_step;
  main.Initialize(start, stop, resolution);
  main.percentile_low = static_cast<float>(percentile_low);
  main.percentile_high = static_cast<float>(percentile_high);
  main.name = QString::fromStdString(language.GUI_SPECTROGRAM_NAME_COMBINED_CHANNELS);

  const size_t num_channels = job->channel_spectrograms.size();
  for (size_t i = 0; i < num_channels; ++i) {
    Spectrogram& channel = job->channel_spectrograms[i];
    channel.q_factor = main.q_factor;
    channel.freqs_per_note = main.freqs_per_note;
    channel.freqs_per_octave = main.freqs_per_octave;
    channel.time_step = main.time_step;
    channel.filter_passes = main.filter_passes;
    channel.percentile_low = main.percentile_low;
    channel.percentile_high = main.percentile_high;
    if (num_channels == 2) {
      channel.name = QString::fromStdString(i == 0 ? language.GUI_SPECTROGRAM_NAME_LEFT_CHANNEL
                                                   : language.GUI_SPECTROGRAM_NAME_RIGHT_CHANNEL);
    } else {
      channel.name =
          QString("%1 %2").arg(QString::fromStdString(language.GUI_SPECTROGRAM_NAME_CHANNEL)).arg(i);
    }
    channel.Initialize(start, stop, main.freqs_per_note);
  }

  Spectrogram& preview = job->preview_spectrogram;
  preview.filter_passes = kFilterPasses;
  preview.q_factor = kPreviewQ;
  preview.time_step = kPreviewTimeStep;
  preview.Initialize(start, stop, q_map_freqs_per_note);
  preview.percentile_low = static_cast<float>(percentile_low);
  preview.percentile_high = static_cast<float>(percentile_high);
  preview.name = QString::fromStdString(language.GUI_SPECTROGRAM_NAME_PREVIEW);

  Spectrogram& q_map = job->q_map;
  q_map.filter_passes = preview.filter_passes;
  q_map.q_factor = preview.q_factor;
  q_map.time_step = kQMapTimeStep;
  q_map.Initialize(start, stop, q_map_freqs_per_note);
  q_map.name = "Q-map";
}

void AutoFocusSpectrogram::CalculateData(JobTasks::Tasks task_, const std::vector<float>& samples,
                                         Spectrogram* out, Spectrogram* q_map) {
  if (job->cancelled) return;
  const double sample_rate = job->sample_rate;
  if (!(sample_rate > 0.0 && sample_rate < 1e7)) {
    // No decoder leaves such a rate; a grid of zeros is all that can be said.
    for (std::vector<float>& row : out->amplitudes) std::fill(row.begin(), row.end(), 0.0f);
    return;
  }
  const bool simd = out->filter_passes >= 1 && out->filter_passes <= ResonatorBank::kMaxPasses;
  // The SIMD path fills a group of adjacent bands per item; more passes than it chains go
  // one band at a time.
  const int lanes = ResonatorBank::Lanes();
  const int group = simd ? lanes : 1;
  const int count = (out->num_freqs + group - 1) / group;
  RunMultithread runner(count, std::max(job->thread_count, 1), [&](int item, int /*worker*/) {
    if (simd) {
      ResonatorBank::Fill(item * group, samples, sample_rate, out, q_map, lanes);
    } else {
      SingleFrequencyAmplitudes(item, samples, out, q_map);
    }
  });
  task = task_;
  task_count = count;
  connect(&runner, &RunMultithread::ProgressUpdate, this, &AutoFocusSpectrogram::MultithreadUpdate,
          Qt::DirectConnection);
  connect(&runner, &RunMultithread::OutOfMemory, this, &AutoFocusSpectrogram::OutOfMemory,
          Qt::DirectConnection);
  runner.Run();
}

void AutoFocusSpectrogram::SingleFrequencyAmplitudes(int band, const std::vector<float>& samples,
                                                     Spectrogram* out, Spectrogram* q_map) {
  try {
    std::vector<float>& row = out->amplitudes[band];
    const int64_t n = std::llabs(ResonatorGrid::ResonatorBufferLength(samples.size()));
    if (out->num_times < 2 || n < 3) {
      std::fill(row.begin(), row.end(), 0.0f);
      return;
    }
    const double sample_rate = job->sample_rate;
    const ResonatorBand resonator(band, *out, q_map, sample_rate);
    const ResonatorGrid grid(*out, n, sample_rate);
    const float two_c = 2.0f * resonator.c;
    std::vector<float> buffer(static_cast<size_t>(n), 0.0f);

    for (int pass = 0; pass < out->filter_passes; ++pass) {
      // Later passes filter the previous pass's output in place: each sample is read before
      // it is overwritten.
      const float* in = pass == 0 ? samples.data() : buffer.data();
      float y1 = 0.0f, y2 = 0.0f, x1 = 0.0f, x2 = 0.0f;
      int64_t p = 0;
      for (int t = ResonatorGrid::first_filter_frame - 1; t < out->num_times; ++t) {
        const int64_t e = grid.SegmentEnd(t);
        if (p <= e) {
          const float alpha = resonator.Alpha(t);
          const float one_minus = 1.0f - alpha;
          const float one_plus = 1.0f + alpha;
          for (int64_t i = p; i <= e; ++i) {
            const float x = in[i];
            const float y = (two_c * y1 - one_minus * y2 + alpha * (x - x2)) / one_plus;
            buffer[i] = y;
            x2 = x1;
            x1 = x;
            y2 = y1;
            y1 = y;
          }
        }
        p = e + 1;
      }
    }
    for (int t = 0; t < out->num_times; ++t) {
      row[t] = grid.Envelope(buffer.data(), 0, 1, grid.Centre(t), resonator.period);
    }
  } catch (const std::bad_alloc&) {
    emit Message(job->language.OUT_OF_MEMORY, true);
  }
}

void AutoFocusSpectrogram::CalculateQMap() {
  Spectrogram& preview = job->preview_spectrogram;
  Spectrogram& q_map = job->q_map;
  CalculateData(JobTasks::kSpectrogramFirstPass, job->mono_data, &preview, nullptr);
  preview.CalculateStatistics();
  // The preview's 98th percentile becomes 1.0, so peak heights are relative to the song.
  preview.Scale(1.0 / preview.percentile_high_value);
  if (job->cancelled) return;
  emit SpectrogramReady(true, false, &preview);

  const int ratio = static_cast<int>(std::trunc(q_map.time_step / preview.time_step + 0.5));
  const int rows = std::min(q_map.num_freqs, preview.num_freqs);
  for (int m = 0; m < q_map.num_times; ++m) {
    const int t = std::min(m * ratio, preview.num_times - 1);
    q_map.times[m] = preview.times[t];
  }
  for (int i = 0; i < rows; ++i) FillQMapRow(preview.amplitudes[i], preview, q_map, &q_map.amplitudes[i]);
}

void AutoFocusSpectrogram::FillQMapRow(const std::vector<float>& row, const Spectrogram& preview,
                                       const Spectrogram& q_map, std::vector<float>* q_row) const {
  const int ratio = static_cast<int>(std::trunc(q_map.time_step / preview.time_step + 0.5));
  const int window = static_cast<int>(std::trunc(kPeakWindowSeconds / preview.time_step + 0.5));
  const std::vector<Peak> peaks = FindPeaks(row);
  const int num_peaks = static_cast<int>(peaks.size());
  if (num_peaks < kMinPeaks) {
    std::fill(q_row->begin(), q_row->end(), static_cast<float>(min_q));
    return;
  }
  int cursor = 0;
  for (int m = 0; m < q_map.num_times; ++m) {
    const int t = std::min(m * ratio, preview.num_times - 1);
    double q = min_q;
    if (!(row[t] < kQuietPreviewLevel)) {
      while (cursor < num_peaks - 1 && t - peaks[cursor].top > window) ++cursor;
      double sum = 0.0;
      int count = 0;
      for (int j = cursor; j < num_peaks && std::abs(peaks[j].top - t) <= window; ++j) {
        sum += peaks[j].height;
        ++count;
      }
      // The number of humps counts twice, once in the sum and once as a factor: many
      // pulsations call for a sharp filter even when each is small.
      if (count >= kMinPeaks) {
        q = std::min(kMaxQ, static_cast<double>(static_cast<float>(sum * count / peak_q_divisor + min_q)));
      }
    }
    (*q_row)[m] = static_cast<float>(q);
  }
}

std::vector<Peak> AutoFocusSpectrogram::FindPeaks(const std::vector<float>& row) {
  std::vector<Peak> peaks;
  bool open = false;    // a rise has begun a hump
  bool fallen = false;  // and it has fallen since
  int start = 0, top = 0, end = 0;
  auto close = [&]() { peaks.emplace_back(start, top, end, static_cast<double>(row[top]) - row[end]); };
  for (size_t i = 1; i < row.size(); ++i) {
    const int here = static_cast<int>(i);
    if (row[i] > row[i - 1]) {
      if (open && fallen) close();
      if (!open || fallen) {
        open = true;
        fallen = false;
        start = here - 1;
      }
    } else if (row[i] < row[i - 1] && open) {
      if (!fallen) top = here - 1;
      fallen = true;
      end = here;
    }
  }
  if (open && fallen) close();
  return peaks;
}

void AutoFocusSpectrogram::CalculateAmplitudes() {
  Spectrogram& main = job->display_spectrogram;
  Spectrogram* q_map = job->q_map.num_freqs > 0 ? &job->q_map : nullptr;
  CalculateData(JobTasks::kSpectrogramSecondPass, job->mono_data, &main, q_map);
  main.CalculateStatistics();
  std::vector<Spectrogram*>& list = job->spectrogram_list;
  if (std::find(list.begin(), list.end(), &main) == list.end()) list.push_back(&main);
  if (job->cancelled) return;
  emit SpectrogramReady(true, true, &main);
  const bool no_recalculation =
      !job->find_notes || (job->freqs_per_note <= Constants::kNeuralNetFrequenciesPerNote &&
                           job->time_step >= Constants::kNeuralNetTimeStepMs);
  if (no_recalculation) emit SpectrogramReady(true, true, &main);
}

void AutoFocusSpectrogram::MultithreadUpdate(int done) { emit ProgressUpdate(job, task, done, task_count); }

void AutoFocusSpectrogram::OutOfMemory() {
  if (job) {
    TranscriptionJob::Cancel(job);
    emit Message(job->language.OUT_OF_MEMORY, true);
  }
}

void DftPeaks(const std::vector<double>& magnitudes, std::vector<int>* peaks) {
  peaks->clear();
  const int n = static_cast<int>(magnitudes.size());
  int i = 0;
  while (i < n) {
    const int first = std::max(i - 2, 0);
    const int last = std::min(first + 4, n - 1);
    bool greatest = true;
    for (int j = first; j <= last && greatest; ++j) {
      if (j != i && magnitudes[j] >= magnitudes[i]) greatest = false;
    }
    if (greatest) {
      peaks->push_back(i);
      i = last + 1;
    } else {
      ++i;
    }
  }
}
