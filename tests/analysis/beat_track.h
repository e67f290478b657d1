#pragma once

#include <QDir>
#include <memory>
#include <vector>

#include "platform/language_strings.h"
#include "score/transcription_job.h"

namespace beat_test {

inline const LanguageStrings& Language() {
  static const LanguageStrings language(QDir(QString(TONEMILL_SOURCE_DIR) + "/resources/TM_resources/languages"),
                                        "English");
  return language;
}

// A job as the audio stage leaves it, with `mono` at 44100 Hz as the whole region.
inline std::shared_ptr<TranscriptionJob> Job(std::vector<float> mono = {}, double seconds = 0.0) {
  auto job = std::make_shared<TranscriptionJob>(Language(), nullptr);
  job->sample_rate = 44100.0;
  job->channels = 1;
  job->audio_frames = static_cast<int>(mono.size());
  job->audio_length = mono.empty() ? seconds : mono.size() / 44100.0;
  job->end_time = job->audio_length;
  job->mono_data = std::move(mono);
  job->thread_count = 2;
  return job;
}

}  // namespace beat_test

// Beat and downbeat activation tracks built from a known beat pattern, at 100 frames a second.
struct BeatTrack {
  std::vector<std::vector<float>> activations;  // [beat, downbeat] per frame
  std::vector<int> beat_frames;
  std::vector<int> numbers;  // 1 on downbeats
};

// `intervals` holds the frame distance before each beat after the first. Beat k has number
// (first_number - 1 + k) % meter + 1. Every beat is a sharp peak with weaker neighbours over a
// quiet background; `lead` and `tail` frames of near-silence surround the pattern.
inline BeatTrack MakeBeatTrack(const std::vector<int>& intervals, int meter, int lead, int tail,
                               int first_number = 1, float background = 0.01f) {
  BeatTrack track;
  int frame = lead;
  for (size_t k = 0; k <= intervals.size(); ++k) {
    track.beat_frames.push_back(frame);
    track.numbers.push_back((first_number - 1 + static_cast<int>(k)) % meter + 1);
    if (k < intervals.size()) frame += intervals[k];
  }
  track.activations.assign(frame + 1 + tail, {background, background});
  for (size_t k = 0; k < track.beat_frames.size(); ++k) {
    const int f = track.beat_frames[k];
    const bool down = track.numbers[k] == 1;
    track.activations[f] = down ? std::vector<float>{0.08f, 0.85f} : std::vector<float>{0.85f, 0.05f};
    for (int g : {f - 1, f + 1})
      if (g >= 0 && g < static_cast<int>(track.activations.size()))
        track.activations[g] = down ? std::vector<float>{0.05f, 0.3f} : std::vector<float>{0.3f, 0.02f};
  }
  return track;
}

inline std::vector<int> Repeat(int interval, int count) { return std::vector<int>(count, interval); }
