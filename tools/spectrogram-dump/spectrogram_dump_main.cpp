// spectrogram-dump: writes the main spectrogram of an audio file exactly as the note stage
// reads it (4 bands per key, 352 rows, one column per 10 ms, amplitudes as stored) as a
// float32 .npy array of shape (352, columns). The training code reads exactly this.
//
//   spectrogram-dump AUDIO OUT.npy [--threads N]

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "analysis/auto_focus_spectrogram.h"
#include "audio/audio.h"
#include "nn/npy_file.h"
#include "platform/constants.h"
#include "platform/language_strings.h"
#include "platform/thread_signal.h"
#include "score/spectrogram.h"
#include "score/transcription_job.h"

namespace {

int Usage() {
  std::cerr << "usage: spectrogram-dump AUDIO OUT.npy [--threads N]\n";
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  std::string audio_path, out_path;
  int threads = 2;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--threads" && i + 1 < argc) {
      threads = std::max(1, std::atoi(argv[++i]));
    } else if (audio_path.empty()) {
      audio_path = arg;
    } else if (out_path.empty()) {
      out_path = arg;
    } else {
      return Usage();
    }
  }
  if (audio_path.empty() || out_path.empty()) return Usage();

  const LanguageStrings language(
      QDir(QCoreApplication::applicationDirPath() + "/../../TM_resources/languages"), "English");
  auto job = std::make_shared<TranscriptionJob>(language, nullptr);
  job->input_filename = QFileInfo(QString::fromStdString(audio_path)).absoluteFilePath();
  job->thread_count = threads;
  {
    Audio audio(job);
    QObject::connect(&audio, &Audio::Message, [](std::string text, bool) { std::cerr << text << "\n"; });
    ThreadSignal signal;
    audio.Run(&signal);
  }
  if (job->cancelled || !job->audio_ready) {
    std::cerr << "spectrogram-dump: cannot decode " << audio_path << "\n";
    return 1;
  }

  // The grid that note finding reads: found at the network's resolution whatever is wished.
  job->find_notes = true;
  job->freqs_per_note = Constants::kNeuralNetFrequenciesPerNote;
  job->time_step = Constants::kNeuralNetTimeStepMs;
  AutoFocusSpectrogram spectrogram;
  QObject::connect(&spectrogram, &AutoFocusSpectrogram::Message,
                   [](std::string text, bool) { std::cerr << text << "\n"; });
  spectrogram.Calculate(job);
  if (job->cancelled) {
    std::cerr << "spectrogram-dump: the spectrogram of " << audio_path << " was not calculated\n";
    return 1;
  }

  const Spectrogram& grid = job->display_spectrogram;
  std::vector<float> flat;
  flat.reserve(static_cast<size_t>(grid.num_freqs) * grid.num_times);
  for (const std::vector<float>& row : grid.amplitudes) flat.insert(flat.end(), row.begin(), row.end());
  std::string error;
  if (!NpyFile::Write(out_path, {grid.num_freqs, grid.num_times}, flat, &error)) {
    std::cerr << error << "\n";
    return 1;
  }
  std::cout << grid.num_freqs << " bands x " << grid.num_times << " columns\n";
  return 0;
}
