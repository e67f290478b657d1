// beat-decode: runs the bar HMM alone on an activation file, the [no beat, beat, downbeat] rows
// that `beat-features --activations` writes, and prints the beats it finds, one "time number" line
// each, the end-of-song sentinel left out. Lets the activations be reshaped (smoothed, scaled) and
// their effect on the tracked tempo and meter seen without running the networks again.
//
//   beat-decode ACTIVATIONS.npy [--threads N]

#include <QCoreApplication>
#include <QDir>
#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

#include "analysis/beat_hmm_solver.h"
#include "nn/npy_file.h"
#include "platform/language_strings.h"
#include "score/transcription_job.h"

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  std::string path;
  int threads = 2;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--threads" && i + 1 < argc) {
      threads = std::max(1, std::atoi(argv[++i]));
    } else if (path.empty()) {
      path = arg;
    } else {
      path.clear();
      break;
    }
  }
  if (path.empty()) {
    std::cerr << "usage: beat-decode ACTIVATIONS.npy [--threads N]\n";
    return 2;
  }
  std::vector<int64_t> shape;
  std::vector<float> values;
  std::string error;
  if (!NpyFile::Read(path, &shape, &values, &error)) {
    std::cerr << error << "\n";
    return 1;
  }
  if (shape.size() != 2 || shape[1] != 3) {
    std::cerr << "beat-decode: " << path << " does not hold rows of three activations\n";
    return 1;
  }
  std::vector<std::vector<float>> activations(static_cast<size_t>(shape[0]));
  for (size_t t = 0; t < activations.size(); ++t) activations[t] = {values[3 * t + 1], values[3 * t + 2]};

  const LanguageStrings language(QDir(QCoreApplication::applicationDirPath() + "/../../TM_resources/languages"),
                                 "English");
  auto job = std::make_shared<TranscriptionJob>(language, nullptr);
  job->thread_count = threads;
  job->start_time = 0.0;
  job->end_time = static_cast<double>(activations.size()) * 0.01;
  BeatHMMSolver solver;
  solver.Calculate(activations, job);
  if (job->cancelled) return 1;
  std::cout.precision(10);
  for (size_t i = 0; i + 1 < job->beats.size(); ++i) std::cout << job->beats[i].time << " " << job->beats[i].number << "\n";
  return 0;
}
