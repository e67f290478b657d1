#pragma once

#include <gtest/gtest.h>

#include <QDir>
#include <memory>
#include <vector>

#include "platform/language_strings.h"
#include "score/beat.h"
#include "score/transcription_job.h"

// A job with a hand-made beat list. Language texts are not needed by the score model, so
// the strings come from an empty folder.
class ScoreFixture : public ::testing::Test {
 protected:
  ScoreFixture()
      : language_(QDir(TONEMILL_BINARY_DIR "/no-languages-here"), "English"),
        job_(std::make_shared<TranscriptionJob>(language_, nullptr)) {}

  // `measures` measures of `top` beats, `seconds_per_beat` apart, from `start`; then the
  // sentinel on the next downbeat. The first beat carries top/bottom.
  static std::vector<Beat> Regular(int measures, int top, int bottom, double seconds_per_beat,
                                   double start = 0.0) {
    std::vector<Beat> beats;
    for (int i = 0; i < measures * top; ++i) {
      beats.emplace_back(i % top + 1, start + i * seconds_per_beat);
    }
    beats.front().time_signature_top = top;
    beats.front().time_signature_bottom = bottom;
    beats.emplace_back(1, start + measures * top * seconds_per_beat);
    return beats;
  }

  void SetBeats(const std::vector<Beat>& beats) { job_->beats_analyzer.SetBeats(beats); }
  NoteData& notes() { return job_->notes; }
  BeatsAnalyzer& analyzer() { return job_->beats_analyzer; }
  std::vector<Beat>& beats() { return job_->beats; }

  static Note MakeNote(int key_idx, double start_time, double stop_time = 0.0) {
    Note note;
    note.key_idx = key_idx;
    note.start_time = start_time;
    note.stop_time = stop_time;
    return note;
  }

  LanguageStrings language_;
  std::shared_ptr<TranscriptionJob> job_;
};
