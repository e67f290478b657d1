// beat-features: writes the beat networks' input, the 314-column feature matrix of an audio
// file (one float32 row per 10 ms frame), as a .npy file; with --activations, also the
// ensemble's averaged [no beat, beat, downbeat] rows; with --beats, the beats that the whole beat
// stage finds (features, networks and the bar HMM), one "time number" line each, the end-of-song
// sentinel left out. The training code reads exactly this.
//
//   beat-features AUDIO FEATURES.npy [--activations OUT.npy] [--beats OUT.txt]
//                 [--weights beats.safetensors] [--threads N]

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include "analysis/downbeat_detector.h"
#include "audio/audio.h"
#include "nn/beat_net_weights.h"
#include "nn/bi_beat_net_ensemble.h"
#include "nn/npy_file.h"
#include "platform/language_strings.h"
#include "platform/thread_signal.h"
#include "score/transcription_job.h"

namespace {

// Rows of equal length as a two-dimensional float32 array.
bool WriteRows(const std::string& path, const std::vector<std::vector<float>>& rows, int64_t columns) {
  std::vector<float> flat;
  flat.reserve(rows.size() * columns);
  for (const auto& row : rows) flat.insert(flat.end(), row.begin(), row.end());
  std::string error;
  if (NpyFile::Write(path, {static_cast<int64_t>(rows.size()), columns}, flat, &error)) return true;
  std::cerr << error << "\n";
  return false;
}

int Usage() {
  std::cerr << "usage: beat-features AUDIO FEATURES.npy [--activations OUT.npy] [--beats OUT.txt] "
               "[--weights FILE] [--threads N]\n";
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  std::string audio_path, features_path, activations_path, beats_path, weights_path = DefaultBeatWeightsPath();
  int threads = 2;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if ((arg == "--activations" || arg == "--beats" || arg == "--weights" || arg == "--threads") && i + 1 < argc) {
      const std::string value = argv[++i];
      if (arg == "--activations") activations_path = value;
      if (arg == "--beats") beats_path = value;
      if (arg == "--weights") weights_path = value;
      if (arg == "--threads") threads = std::max(1, std::atoi(value.c_str()));
    } else if (audio_path.empty()) {
      audio_path = arg;
    } else if (features_path.empty()) {
      features_path = arg;
    } else {
      return Usage();
    }
  }
  if (audio_path.empty() || features_path.empty()) return Usage();

  const LanguageStrings language(QDir(QCoreApplication::applicationDirPath() + "/../../TM_resources/languages"),
                                 "English");
  auto job = std::make_shared<TranscriptionJob>(language, nullptr);
  job->input_filename = QFileInfo(QString::fromStdString(audio_path)).absoluteFilePath();
  {
    Audio audio(job);
    QObject::connect(&audio, &Audio::Message, [](std::string text, bool) { std::cerr << text << "\n"; });
    ThreadSignal signal;
    audio.Run(&signal);
  }
  if (job->cancelled || !job->audio_ready) {
    std::cerr << "beat-features: cannot decode " << audio_path << "\n";
    return 1;
  }

  DownbeatDetector detector;
  std::vector<std::vector<float>> features;
  detector.Features(DownbeatDetector::BeatSamples(job->mono_data, job->sample_rate), &features);
  if (!WriteRows(features_path, features, DownbeatDetector::kNumFeatures)) return 1;
  std::cout << features.size() << " frames\n";

  if (!activations_path.empty()) {
    Tensor input;
    input.shape = {1, static_cast<int>(features.size()), DownbeatDetector::kNumFeatures};
    input.data = {std::move(features)};
    BiBeatNetEnsemble ensemble(weights_path);
    const Tensor output = ensemble.Process(input, threads);
    if (!ensemble.error.empty()) {
      std::cerr << ensemble.error << "\n";
      return 1;
    }
    if (!WriteRows(activations_path, output.data[0], BiBeatNet::kOutputs)) return 1;
  }

  if (!beats_path.empty()) {
    job->thread_count = threads;
    DownbeatDetector stage;
    stage.weights_path = weights_path;
    QObject::connect(&stage, &DownbeatDetector::Message, [](std::string text, bool) { std::cerr << text << "\n"; });
    stage.Calculate(job);
    if (job->cancelled) return 1;
    std::ofstream out(beats_path);
    out.precision(10);
    for (size_t i = 0; i + 1 < job->beats.size(); ++i) out << job->beats[i].time << " " << job->beats[i].number << "\n";
    if (!out) {
      std::cerr << "beat-features: cannot write " << beats_path << "\n";
      return 1;
    }
  }
  return 0;
}
