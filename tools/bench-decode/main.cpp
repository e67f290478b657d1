// bench-decode [seconds]: makes a file of each format holding `seconds` (default 180) of
// stereo 44.1 kHz music-like audio, then runs the whole audio stage on each in a fresh child
// process and prints its wall time and the child's peak resident memory.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QDir>
#include <QTemporaryDir>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "audio/audio.h"
#include "audio_fixtures.h"
#include "platform/language_strings.h"

using namespace audio_fixtures;

namespace {

// Chords of decaying partials every half second over a little noise: enough structure that
// lossy encoders work as they would on music.
std::vector<float> MusicLike(double seconds) {
  const int rate = 44100;
  const std::size_t frames = static_cast<std::size_t>(seconds * rate);
  std::vector<float> samples(frames * 2);
  std::mt19937 random(5);
  std::normal_distribution<float> noise(0.0f, 0.01f);
  const double roots[] = {130.8, 196.0, 220.0, 174.6};
  for (std::size_t f = 0; f < frames; ++f) {
    const double t = static_cast<double>(f) / rate;
    const int chord = static_cast<int>(t / 2.0) % 4;
    const double since = std::fmod(t, 0.5);
    double value = 0.0;
    for (double ratio : {1.0, 1.25, 1.5, 2.0})
      value += 0.12 * std::exp(-3.0 * since) * std::sin(2.0 * M_PI * roots[chord] * ratio * t);
    samples[2 * f] = static_cast<float>(value) + noise(random);
    samples[2 * f + 1] = static_cast<float>(0.8 * value) + noise(random);
  }
  return samples;
}

double PeakMegabytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024.0;
}

// In the child: the stage as the pipeline runs it, minus the thread.
void DecodeAndReport(const std::string& label, const std::string& path) {
  std::FILE* quiet = std::freopen("/dev/null", "w", stdout);  // the stage's route lines
  (void)quiet;
  const double before = PeakMegabytes();
  LanguageStrings language(QDir("/nonexistent"), "English");
  auto job = std::make_shared<TranscriptionJob>(language, nullptr);
  job->input_filename = QString::fromStdString(path);
  ThreadSignal signal;
  const auto start = std::chrono::steady_clock::now();
  {
    Audio audio(job);
    audio.Run(&signal);
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::fprintf(stderr, "%-8s %8.3f s  %8.1f MB peak (%6.1f MB at start)  %6.1f s of audio%s\n", label.c_str(),
               seconds, PeakMegabytes(), before, job->audio_length, job->cancelled ? "  FAILED" : "");
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 180.0;
  QTemporaryDir dir;
  std::vector<std::pair<std::string, std::string>> files;
  {
    const std::vector<float> audio = MusicLike(seconds);
    auto path = [&](const char* name) { return dir.filePath(name).toStdString(); };
    WavLayout layout;
    WriteFile(path("bench.wav"), MakeWav(layout, audio));
    files.push_back({"wav", path("bench.wav")});
    struct Encoding {
      const char* label;
      const char* file;
      const char* container;
      const char* codec;
      const char* sample_format;
      int bit_rate;
    };
    const Encoding encodings[] = {
        {"flac", "bench.flac", "flac", "flac", "s16", 0},
        {"wavpack", "bench.wv", "wv", "wavpack", "s16p", 0},
        {"vorbis", "bench.ogg", "ogg", "libvorbis", "", 0},
        {"opus", "bench.opus", "ogg", "libopus", "", 128000},
        {"mp3", "bench.mp3", "mp3", "libmp3lame", "", 192000},
        {"aac", "bench.m4a", "ipod", "aac", "", 160000},
    };
    for (const Encoding& e : encodings) {
      // Opus only takes 48 kHz; the others get the audio as it is.
      const bool opus = std::string(e.codec) == "libopus";
      std::vector<float> input;
      if (opus) {
        // Nearest-frame rate change: good enough for timing the decoder.
        const std::size_t out_frames = audio.size() / 2 * 48000 / 44100;
        input.reserve(out_frames * 2);
        for (std::size_t f = 0; f < out_frames; ++f) {
          const std::size_t source = f * 44100 / 48000;
          input.push_back(audio[2 * source]);
          input.push_back(audio[2 * source + 1]);
        }
      } else {
        input = audio;
      }
      if (EncodeWithFfmpeg(path(e.file), e.container, e.codec, opus ? 48000 : 44100, 2, input, e.bit_rate,
                           e.sample_format)) {
        files.push_back({e.label, path(e.file)});
      } else {
        std::fprintf(stderr, "%-8s encoder %s not available, skipped\n", e.label, e.codec);
      }
    }
    // Musepack has no encoder library; use the command-line encoder when it is installed.
    const std::string mpc = path("bench.mpc");
    const std::string command =
        "mpcenc --silent --quality 5 '" + path("bench.wav") + "' '" + mpc + "' 2>/dev/null";
    if (std::system(command.c_str()) == 0) {
      files.push_back({"musepack", mpc});
    } else {
      std::fprintf(stderr, "%-8s mpcenc not installed, skipped\n", "musepack");
    }
  }

  std::fprintf(stderr, "Decoding %.0f s of stereo through the audio stage, one child process per file:\n",
               seconds);
  for (const auto& [label, path] : files) {
    std::fflush(stderr);
    const pid_t child = fork();
    if (child == 0) {
      DecodeAndReport(label, path);
      std::fflush(stderr);
      _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
  }
  return 0;
}
