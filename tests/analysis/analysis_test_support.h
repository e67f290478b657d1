#pragma once

#include <QDir>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "platform/language_strings.h"
#include "score/transcription_job.h"

namespace test_support {

constexpr double kSampleRate = 44100.0;
constexpr double kPi = 3.14159265358979323846;

inline const LanguageStrings& English() {
  static const LanguageStrings language(
      QDir(QString(TONEMILL_SOURCE_DIR) + "/resources/TM_resources/languages"), "English");
  return language;
}

// A job as the audio stage leaves it: mono samples on the 16-bit scale at 44100 Hz, the
// whole file as the region.
inline std::shared_ptr<TranscriptionJob> AudioJob(std::vector<float> mono, int threads = 2) {
  auto job = std::make_shared<TranscriptionJob>(English(), nullptr);
  job->sample_rate = kSampleRate;
  job->channels = 1;
  job->audio_frames = static_cast<int>(mono.size());
  job->audio_length = mono.size() / kSampleRate;
  job->start_time = 0.0;
  job->end_time = job->audio_length;
  job->mono_data = std::move(mono);
  job->thread_count = threads;
  job->audio_ready = true;
  return job;
}

// A sine of `frequency` Hz, optionally with its amplitude swinging fully at `pulse_rate` Hz.
inline std::vector<float> Tone(double frequency, double seconds, double amplitude, double pulse_rate = 0.0) {
  std::vector<float> samples(static_cast<size_t>(seconds * kSampleRate));
  for (size_t i = 0; i < samples.size(); ++i) {
    const double t = i / kSampleRate;
    const double envelope = pulse_rate > 0.0 ? 0.5 - 0.5 * std::cos(2.0 * kPi * pulse_rate * t) : 1.0;
    samples[i] = static_cast<float>(amplitude * envelope * std::sin(2.0 * kPi * frequency * t));
  }
  return samples;
}

inline std::vector<float> Noise(double seconds, double amplitude, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<float> normal(0.0f, static_cast<float>(amplitude));
  std::vector<float> samples(static_cast<size_t>(seconds * kSampleRate));
  for (float& s : samples) s = normal(random);
  return samples;
}

}  // namespace test_support
