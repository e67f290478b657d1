// Speed of the note network on random weights: each convolution layer on its own, one
// window at 1 thread with the GFLOP/s it reaches, then the whole note stage on a 3-minute
// grid at 2 threads, with peak memory. Prints figures only.
//
//   bench-notes [--windows N] [--seconds S] [--threads T] [--no-stage]

#include <sys/resource.h>
#include <time.h>

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>
#include <chrono>
#include <cstdio>
#include <memory>
#include <random>
#include <string>

#include "analysis/notes.h"
#include "nn/all_in_window_net.h"
#include "nn/note_net_weights.h"
#include "platform/language_strings.h"
#include "score/transcription_job.h"

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point since) {
  return std::chrono::duration<double>(Clock::now() - since).count();
}

// CPU seconds of the calling thread: steadier than the wall clock on a busy machine.
double ThreadCpuSeconds() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return t.tv_sec + t.tv_nsec * 1e-9;
}

// CPU seconds of the whole process, all threads.
double ProcessCpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
         (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
}

double PeakResidentMb() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024.0;
}

Tensor RandomTensor(int channels, int rows, int columns, unsigned seed) {
  std::mt19937 generator(seed);
  std::exponential_distribution<float> amplitude(4.0f);
  Tensor t({channels, rows, columns});
  for (auto& channel : t.data)
    for (auto& row : channel)
      for (float& x : row) x = amplitude(generator);
  return t;
}

// Multiply-adds of a direct same-size convolution, counted as two operations each.
double ConvFlops(const NoteNetLayerShape& s, int rows, int columns) {
  return 2.0 * s.outputs * s.inputs * s.rows * s.columns * static_cast<double>(rows) * columns;
}

// The grid each layer works on: 352 x 720 before the first pool, 176 x 360, then 88 x 180.
void LayerGrid(int number, int* rows, int* columns) {
  if (number <= 2) {
    *rows = 352, *columns = 720;
  } else if (number <= 4) {
    *rows = 176, *columns = 360;
  } else {
    *rows = 88, *columns = 180;
  }
}

double WindowFlops() {
  double flops = 0.0;
  for (int n = 1; n <= 13; ++n) {
    int rows = 0, columns = 0;
    LayerGrid(n, &rows, &columns);
    flops += ConvFlops(kNoteNetLayerShapes[n - 1], rows, columns);
  }
  return flops;
}

// One composite layer of the network on `input`.
Tensor RunLayer(AllInWindowNet* net, int n, const Tensor& input) {
  const std::vector<const Tensor*> in{&input};
  switch (n) {
    case 2:
      return net->conv_2(in, 1);
    case 3:
      return net->conv_3(in, 1);
    case 4:
      return net->conv_4(in, 1);
    case 5:
      return net->conv_5(in, 1);
    case 6:
      return net->conv_6(in, 1);
    case 7:
      return net->conv_7(in, 1);
    case 8:
      return net->conv_8(in, 1);
    case 9:
      return net->conv_9(in, 1);
    case 10:
      return net->conv_10(in, 1);
    case 11:
      return net->conv_11(in, 1);
    case 12:
      return net->conv_12(in, 1);
    default:
      return net->conv_13(in, 1);
  }
}

// Each layer on its own, timed in thread CPU on its second call (the first pays the page
// faults of its buffers).
void BenchLayers() {
  std::printf("%-8s %-14s %-12s %10s %10s\n", "layer", "class", "input", "CPU ms", "GFLOP/s*");
  AllInWindowNet net(720, 12, 7, 7);
  for (int n = 2; n <= 13; ++n) {
    const NoteNetLayerShape& s = kNoteNetLayerShapes[n - 1];
    int rows = 0, columns = 0;
    LayerGrid(n, &rows, &columns);
    const Tensor input = RandomTensor(s.inputs, rows, columns, n);
    const bool fft = n == 7 || n == 9 || n == 10 || n == 11 || n == 12;
    RunLayer(&net, n, input);
    const double start = ThreadCpuSeconds();
    RunLayer(&net, n, input);
    const double seconds = ThreadCpuSeconds() - start;
    char grid[32];
    std::snprintf(grid, sizeof grid, "%dx%dx%d", s.inputs, rows, columns);
    std::printf("conv_%-3d %-14s %-12s %10.1f %10.2f\n", n, fft ? "FFTConvLayer" : "ConvLayer", grid,
                seconds * 1e3, ConvFlops(s, rows, columns) / seconds * 1e-9);
  }
  std::printf("* direct-convolution operations per second, also for the FFT layers\n\n");
}

// The note stage on a grid of `seconds` of random spectrogram at 4 bands per key and 10 ms.
void BenchStage(double seconds, int threads) {
  const LanguageStrings language(QDir(TONEMILL_BINARY_DIR "/TM_resources/languages"), "English");
  auto job = std::make_shared<TranscriptionJob>(language, nullptr);
  job->thread_count = threads;
  job->audio_length = seconds;
  Spectrogram& grid = job->display_spectrogram;
  grid.time_step = 0.01;
  grid.Initialize(0.0, seconds + 0.005, 4.0);
  std::mt19937 generator(7);
  std::exponential_distribution<float> amplitude(4.0f);
  for (auto& row : grid.amplitudes)
    for (float& x : row) x = amplitude(generator);
  std::vector<Beat> beats;
  for (int i = 0; i * 0.5 < seconds; ++i) beats.emplace_back(i % 4 + 1, i * 0.5);
  beats.front().time_signature_top = 4;
  beats.front().time_signature_bottom = 4;
  beats.emplace_back(1, beats.size() * 0.5);
  job->beats_analyzer.SetBeats(beats);

  Notes notes;
  const auto start = Clock::now();
  const double cpu_start = ProcessCpuSeconds();
  notes.GetNotes(job);
  const double wall = Seconds(start);
  const double cpu = ProcessCpuSeconds() - cpu_start;
  std::printf(
      "note stage, %.0f s song (%d frames, %zu windows), %d threads: %.2f s wall, %.2f s CPU in all "
      "threads (%.3f s CPU per window); %zu notes, %zu candidates\n",
      seconds, grid.num_times, job->note_windows.size(), threads, wall, cpu,
      cpu / std::max<size_t>(1, job->note_windows.size()), job->notes.GetNotes().size(),
      job->notes.GetCandidates().size());
}

}  // namespace

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  int windows = 3;
  double seconds = 180.0;
  int threads = 2;
  bool stage = true;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--no-stage") stage = false;
    if (i + 1 >= argc) continue;
    if (arg == "--windows") windows = std::max(1, std::atoi(argv[i + 1]));
    if (arg == "--seconds") seconds = std::max(1.0, std::atof(argv[i + 1]));
    if (arg == "--threads") threads = std::max(1, std::atoi(argv[i + 1]));
  }

  QTemporaryDir dir;
  const std::string path = dir.filePath("random.safetensors").toStdString();
  std::string error;
  if (!WriteNoteWeights(path, RandomNoteWeights(1), &error) || !SetNetWeights(path)) {
    std::fprintf(stderr, "%s\n", error.empty() ? NetWeightsError().c_str() : error.c_str());
    return 1;
  }

  BenchLayers();
  AllInWindowNet net(720, 12, 7, 7);

  const Tensor window = RandomTensor(1, 352, 720, 99);
  net.Process(window);  // warm-up: page faults and the FFT plans
  const auto start = Clock::now();
  const double cpu_start = ThreadCpuSeconds();
  for (int w = 0; w < windows; ++w) net.Process(window);
  const double per_window = Seconds(start) / windows;
  const double cpu_per_window = (ThreadCpuSeconds() - cpu_start) / windows;
  const double flops = WindowFlops();
  std::printf(
      "one window, 1 thread: %.3f s wall, %.3f s CPU  (%.2f GFLOP direct-equivalent, %.2f GFLOP/s of CPU)\n",
      per_window, cpu_per_window, flops * 1e-9, flops / cpu_per_window * 1e-9);
  std::printf("peak resident memory after the windows: %.0f MB\n", PeakResidentMb());
  if (stage) {
    BenchStage(seconds, threads);
    std::printf("peak resident memory after the stage: %.0f MB\n", PeakResidentMb());
  }
  return 0;
}
