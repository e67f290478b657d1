#pragma once

#include <gtest/gtest.h>

#include <QDir>
#include <QString>
#include <memory>
#include <vector>

#include "platform/language_strings.h"
#include "score/beat.h"
#include "score/note.h"
#include "score/transcription_job.h"
#include "score/triplet.h"

// A job with a hand-made beat list and notes, for the exporters. Language texts come from the
// source tree, so messages carry their real English text.
class OutputFixture : public ::testing::Test {
 protected:
  OutputFixture()
      : language_(QDir(TONEMILL_SOURCE_DIR "/resources/TM_resources/languages"), "English"),
        job_(std::make_shared<TranscriptionJob>(language_, nullptr)) {
    job_->title = "Test";
  }

  // `measures` measures of `top` beats, `seconds_per_beat` apart, from `start`, then the
  // sentinel on the next downbeat. The first beat carries the signature.
  static std::vector<Beat> Regular(int measures, int top, int bottom, double seconds_per_beat,
                                   double start = 0.0) {
    std::vector<Beat> beats;
    for (int i = 0; i < measures * top; ++i) beats.emplace_back(i % top + 1, start + i * seconds_per_beat);
    beats.front().time_signature_top = top;
    beats.front().time_signature_bottom = bottom;
    beats.emplace_back(1, start + measures * top * seconds_per_beat);
    return beats;
  }

  void SetBeats(const std::vector<Beat>& beats) { job_->beats_analyzer.SetBeats(beats); }
  void SetNotes(const std::vector<Note>& notes) { job_->notes.SetNotesCandidatesPermanent({}, notes); }

  static Note MakeNote(int key_idx, double start_time, double stop_time, int group = 1) {
    Note note;
    note.key_idx = key_idx;
    note.start_time = start_time;
    note.stop_time = stop_time;
    note.group = group;
    return note;
  }

  // Three notes of `key_idx` that split start..stop into a triplet.
  std::vector<Note> TripletNotes(int key_idx, double start, double stop) {
    const MusicPosition first = job_->notes.GetClosestPosition(start, NoteData::START);
    const MusicPosition last = job_->notes.GetClosestPosition(stop, NoteData::STOP);
    auto triplet = std::make_shared<Triplet>(first, last, MusicPosition::kPositionsPerStep);
    EXPECT_TRUE(triplet->valid);
    std::vector<Note> notes;
    for (int i = 0; i < 3; ++i) {
      Note note = MakeNote(key_idx, start + i * (stop - start) / 3, 0.0);
      note.triplet = triplet;
      note.triplet_idx = i;
      notes.push_back(note);
    }
    return notes;
  }

  LanguageStrings language_;
  std::shared_ptr<TranscriptionJob> job_;
};
