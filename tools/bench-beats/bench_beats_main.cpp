// bench-beats: seconds and peak memory of the whole beat stage (features, the eight networks,
// both HMMs) on a synthetic 3-minute song, at 1 and 2 threads, each run in a child process of
// its own so that peaks do not mix. Also times the parts and gives the back-pointer sizes.
// Uses random weights unless --weights names a file; trained and random weights cost the same.
//
//   bench-beats [--seconds S] [--weights FILE]

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "analysis/beat_hmm.h"
#include "analysis/beat_hmm_solver.h"
#include "analysis/beat_state_space.h"
#include "analysis/downbeat_detector.h"
#include "nn/beat_net_weights.h"
#include "nn/bi_beat_net_ensemble.h"
#include "platform/language_strings.h"
#include "score/transcription_job.h"

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point since) { return std::chrono::duration<double>(Clock::now() - since).count(); }

// Processor time of this process, which a busy machine disturbs less than the wall clock.
double CpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_utime.tv_sec + usage.ru_utime.tv_usec * 1e-6 + usage.ru_stime.tv_sec + usage.ru_stime.tv_usec * 1e-6;
}

double PeakMegabytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024.0;  // kilobytes on Linux
}

double CurrentMegabytes() {
  long pages = 0, resident = 0;
  if (FILE* f = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(f);
  }
  return resident * (sysconf(_SC_PAGESIZE) / 1048576.0);
}

// A band at 118 bpm in 4: kick and snare clicks, a bass line and a chord pad, deterministic.
std::vector<float> Song(double seconds) {
  const double rate = 44100.0, beat = 60.0 / 118.0, pi = 3.14159265358979;
  std::vector<float> mono(static_cast<size_t>(seconds * rate));
  unsigned noise = 12345;
  for (size_t i = 0; i < mono.size(); ++i) {
    const double t = i / rate;
    const int k = static_cast<int>(t / beat);
    const double phase = t - k * beat;
    noise = noise * 1664525u + 1013904223u;
    const double white = (noise >> 8) / 8388608.0 - 1.0;
    double v = 2500.0 * std::sin(2 * pi * (k % 8 < 4 ? 55.0 : 73.4) * t);
    v += 1200.0 * (std::sin(2 * pi * 220.0 * t) + std::sin(2 * pi * 277.2 * t) + std::sin(2 * pi * 329.6 * t));
    if (k % 2 == 0) v += 12000.0 * std::exp(-phase * 30) * std::sin(2 * pi * (60.0 + 80.0 * std::exp(-phase * 40)) * phase);
    if (k % 2 == 1) v += 6000.0 * std::exp(-phase * 25) * white;
    if (k % 4 == 0) v += 3000.0 * std::exp(-phase * 10) * std::sin(2 * pi * 880.0 * t);
    mono[i] = static_cast<float>(v);
  }
  return mono;
}

std::shared_ptr<TranscriptionJob> MakeJob(const LanguageStrings& language, double seconds, int threads) {
  auto job = std::make_shared<TranscriptionJob>(language, nullptr);
  job->mono_data = Song(seconds);
  job->sample_rate = 44100.0;
  job->channels = 1;
  job->audio_frames = static_cast<int>(job->mono_data.size());
  job->audio_length = seconds;
  job->end_time = seconds;
  job->thread_count = threads;
  return job;
}

// The whole stage at `threads`; prints one line.
void RunStage(const LanguageStrings& language, const std::string& weights, double seconds, int threads) {
  auto job = MakeJob(language, seconds, threads);
  const double before = CurrentMegabytes();
  DownbeatDetector detector;
  detector.weights_path = weights;
  QObject::connect(&detector, &DownbeatDetector::Message, [](std::string text, bool) { std::cerr << text << "\n"; });
  const auto start = Clock::now();
  detector.Calculate(job);
  const double elapsed = Seconds(start);
  std::printf("whole stage, %d thread%s: %6.2f s, peak RSS %6.1f MB (%.1f MB before the stage: audio and program), "
              "%zu beats, %zu measures%s\n",
              threads, threads == 1 ? " " : "s", elapsed, PeakMegabytes(), before, job->beats.size(),
              job->beats_analyzer.measures.size(), job->cancelled ? " [cancelled]" : "");
}

// The parts one after the other, one thread.
void RunParts(const LanguageStrings& language, const std::string& weights, double seconds) {
  auto job = MakeJob(language, seconds, 1);
  DownbeatDetector detector;
  auto start = Clock::now();
  double cpu = CpuSeconds();
  Tensor input;
  {
    std::vector<std::vector<float>> features;
    detector.Features(DownbeatDetector::BeatSamples(job->mono_data, job->sample_rate), &features);
    input.shape = {1, static_cast<int>(features.size()), DownbeatDetector::kNumFeatures};
    input.data = {std::move(features)};
  }
  std::printf("  features:           %6.2f s (%.2f s CPU) (%d frames)\n", Seconds(start), CpuSeconds() - cpu,
              input.shape[1]);
  start = Clock::now();
  cpu = CpuSeconds();
  BiBeatNetEnsemble ensemble(weights);
  const Tensor output = ensemble.Process(input, 1);
  std::printf("  8 networks:         %6.2f s (%.2f s CPU)\n", Seconds(start), CpuSeconds() - cpu);
  std::vector<std::vector<float>> activations;
  for (const auto& row : output.data[0]) activations.push_back({row[1], row[2]});
  const BeatStateSpace space;
  for (int beats : {3, 4}) {
    BeatHMM hmm(beats, space);
    start = Clock::now();
    cpu = CpuSeconds();
    hmm.Calculate(activations);
    const int frames = hmm.last_frame - hmm.first_frame;
    std::printf("  HMM in %d:           %6.2f s (%.2f s CPU); back-pointers for %d frames: %.1f MB compact, %.1f MB as a plain "
                "int table\n",
                beats, Seconds(start), CpuSeconds() - cpu, frames, hmm.CompactBackPointerBytes(frames) / 1048576.0,
                hmm.PlainBackPointerBytes(frames) / 1048576.0);
  }
}

}  // namespace

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  double seconds = 180.0;
  std::string weights;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string arg = argv[i];
    if (arg == "--seconds") seconds = std::atof(argv[i + 1]);
    if (arg == "--weights") weights = argv[i + 1];
  }
  QTemporaryDir dir;
  if (weights.empty()) {
    weights = dir.filePath("beats.safetensors").toStdString();
    std::string error;
    if (!WriteBeatWeights(weights, RandomBeatWeights(1, 0.3f), false, &error)) {
      std::cerr << error << "\n";
      return 1;
    }
  }
  const LanguageStrings language(QDir(dir.path()), "English");
  std::printf("beat stage on a %.0f-second song at 44100 Hz\n", seconds);
  std::fflush(stdout);
  for (int mode = 0; mode < 3; ++mode) {
    const pid_t child = fork();
    if (child == 0) {
      if (mode < 2)
        RunStage(language, weights, seconds, mode + 1);
      else
        RunParts(language, weights, seconds);
      std::fflush(stdout);
      _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
  }
  return 0;
}
