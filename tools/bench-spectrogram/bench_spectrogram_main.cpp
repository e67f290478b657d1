// bench-spectrogram: seconds and peak memory of the spectrogram stage (preview, Q-map and main
// grid) for a synthetic 3-minute song at 1 and 2 threads; the resonator's throughput in the
// SIMD bank against the one-band reference; and the time to write the grid as CSV.
//
//   bench-spectrogram [--seconds S] [--threads N ...]

#include <sys/resource.h>

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "analysis/auto_focus_spectrogram.h"
#include "analysis/resonator_bank.h"
#include "output/spectrogram_csv.h"
#include "platform/language_strings.h"
#include "score/keyboard.h"
#include "score/spectrogram.h"
#include "score/transcription_job.h"

namespace {

constexpr double kSampleRate = 44100.0;
constexpr double kPi = 3.14159265358979323846;

// Processor time of the whole process (user + system), in seconds: the figure to trust when
// other programs share the cores.
double CpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
         1e-6 * (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Piano-like notes, four a second, with decaying harmonics, over a little noise: the cost of
// the stage hardly depends on content, but the Q-map and read-out see something real.
std::vector<float> SyntheticSong(double seconds) {
  std::vector<float> song(static_cast<size_t>(seconds * kSampleRate), 0.0f);
  std::mt19937 random(909);
  std::uniform_int_distribution<int> key(15, 75);
  std::normal_distribution<float> noise(0.0f, 30.0f);
  for (float& s : song) s = noise(random);
  for (double start = 0.0; start < seconds; start += 0.25) {
    const double f0 = Keyboard::key_freqs_[key(random)];
    const size_t first = static_cast<size_t>(start * kSampleRate);
    const size_t length = std::min(song.size() - first, static_cast<size_t>(1.5 * kSampleRate));
    for (int h = 1; h <= 6 && f0 * h < 8000.0; ++h) {
      const double w = 2.0 * kPi * f0 * h / kSampleRate;
      const double decay = std::exp(-(2.0 + h) / kSampleRate);
      double amplitude = 3000.0 / h;
      for (size_t i = 0; i < length; ++i, amplitude *= decay) song[first + i] += amplitude * std::sin(w * i);
    }
  }
  return song;
}

// Resident memory now and at its peak since the last reset, in MB (Linux).
void Memory(double* rss, double* peak) {
  *rss = *peak = 0.0;
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) *rss = std::atof(line.c_str() + 6) / 1024.0;
    if (line.rfind("VmHWM:", 0) == 0) *peak = std::atof(line.c_str() + 6) / 1024.0;
  }
}

void ResetPeakMemory() { std::ofstream("/proc/self/clear_refs") << "5"; }

std::shared_ptr<TranscriptionJob> SongJob(const LanguageStrings& language, const std::vector<float>& song,
                                          int threads) {
  auto job = std::make_shared<TranscriptionJob>(language, nullptr);
  job->sample_rate = kSampleRate;
  job->channels = 1;
  job->mono_data = song;
  job->audio_frames = static_cast<int>(song.size());
  job->audio_length = song.size() / kSampleRate;
  job->end_time = job->audio_length;
  job->thread_count = threads;
  job->audio_ready = true;
  return job;
}

// Band-samples per second of one pass through the main grid's resonators, both paths.
void ResonatorThroughput(const LanguageStrings& language, const std::vector<float>& song) {
  const std::vector<float> excerpt(song.begin(), song.begin() + std::min<size_t>(song.size(), 441000));
  auto job = SongJob(language, excerpt, 1);
  Spectrogram grid;
  grid.time_step = 0.01;
  grid.filter_passes = 2;
  grid.q_factor = 12.0;
  grid.Initialize(0.0, excerpt.size() / kSampleRate, 4.0);
  const double cells = static_cast<double>(grid.num_freqs) * excerpt.size() * grid.filter_passes;

  AutoFocusSpectrogram reference;
  reference.job = job;
  double start = CpuSeconds();
  for (int band = 0; band < grid.num_freqs; ++band) {
    reference.SingleFrequencyAmplitudes(band, excerpt, &grid, nullptr);
  }
  const double scalar = CpuSeconds() - start;

  std::printf("resonator, %d bands x %.0f s x %d passes, one thread, filter and read-out (CPU time):\n",
              grid.num_freqs, excerpt.size() / kSampleRate, grid.filter_passes);
  std::printf("  one-band reference:     %6.3f s  %6.2f ns per band-sample-pass\n", scalar,
              scalar * 1e9 / cells);
  std::vector<int> widths = {ResonatorBank::kBaseLanes};
  if (ResonatorBank::Lanes() == ResonatorBank::kWideLanes) widths.push_back(ResonatorBank::kWideLanes);
  for (int lanes : widths) {
    start = CpuSeconds();
    for (int band = 0; band < grid.num_freqs; band += lanes) {
      ResonatorBank::Fill(band, excerpt, kSampleRate, &grid, nullptr, lanes);
    }
    const double simd = CpuSeconds() - start;
    std::printf("  SIMD bank, %2d lanes%s: %6.3f s  %6.2f ns per band-sample-pass, %.1fx\n", lanes,
                lanes == ResonatorBank::kWideLanes ? " (AVX-512)" : " (SSE2)   ", simd, simd * 1e9 / cells,
                scalar / simd);
  }
}

}  // namespace

int main(int argc, char** argv) {
  double seconds = 180.0;
  std::vector<int> thread_counts;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--seconds" && i + 1 < argc) seconds = std::max(1.0, std::atof(argv[++i]));
    if (arg == "--threads" && i + 1 < argc) thread_counts.push_back(std::max(1, std::atoi(argv[++i])));
  }
  if (thread_counts.empty()) thread_counts = {1, 2};

  const LanguageStrings language(QDir(QString(TONEMILL_SOURCE_DIR) + "/resources/TM_resources/languages"),
                                 "English");
  const std::vector<float> song = SyntheticSong(seconds);
  std::printf("synthetic song: %.0f s at 44100 Hz\n", seconds);

  ResonatorThroughput(language, song);

  std::shared_ptr<TranscriptionJob> last;
  for (int threads : thread_counts) {
    auto job = SongJob(language, song, threads);
    double rss = 0.0, peak = 0.0;
    Memory(&rss, &peak);
    ResetPeakMemory();
    Memory(&rss, &peak);
    const double before = rss;
    const double start = Now();
    const double cpu_start = CpuSeconds();
    AutoFocusSpectrogram spectrogram;
    spectrogram.Calculate(job);
    const double elapsed = Now() - start;
    const double cpu = CpuSeconds() - cpu_start;
    Memory(&rss, &peak);
    std::printf(
        "stage, %d thread%s: %6.2f s wall, %6.2f s CPU, peak memory +%.0f MB (grids +%.0f MB kept), "
        "main grid %d x %d\n",
        threads, threads == 1 ? " " : "s", elapsed, cpu, peak - before, rss - before,
        job->display_spectrogram.num_freqs, job->display_spectrogram.num_times);
    last = job;
  }

  QTemporaryDir dir;
  const QString csv = dir.filePath("grid.csv");
  const double start = Now();
  SpectrogramCsv::Write(last->display_spectrogram, csv);
  std::printf("CSV of the main grid: %.2f s, %.0f MB\n", Now() - start, QFileInfo(csv).size() / 1e6);
  return 0;
}
