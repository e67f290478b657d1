// Prints seconds for the score model's grid work on a 10-minute song in 4/4 at 120 bpm with
// 20000 notes: Recalculate, a DoubleMeasures edit (which rebuilds everything), and one step of a
// beat drag through UpdateNotePositions. A drag step must stay far below a frame (16 ms).

#include <QDir>
#include <chrono>
#include <cstdio>
#include <random>
#include <set>
#include <vector>

#include "platform/language_strings.h"
#include "score/transcription_job.h"

namespace {

double Seconds(const std::chrono::steady_clock::time_point& since) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

}  // namespace

int main() {
  LanguageStrings language(QDir(TONEMILL_SOURCE_DIR "/resources/TM_resources/languages"), "English");
  TranscriptionJob job(language, nullptr);

  const int beat_count = 1200;  // 10 minutes at 120 bpm
  std::vector<Beat> beats;
  for (int i = 0; i < beat_count; ++i) beats.emplace_back(i % 4 + 1, i * 0.5);
  beats.front().time_signature_top = 4;
  beats.front().time_signature_bottom = 4;
  beats.emplace_back(1, beat_count * 0.5);
  job.beats_analyzer.SetBeats(beats);

  std::mt19937 random(7);
  std::uniform_real_distribution<double> time(0.0, beat_count * 0.5);
  std::uniform_int_distribution<int> key(20, 70);
  std::vector<Note> notes(20000);
  for (Note& note : notes) {
    note.key_idx = key(random);
    note.start_time = time(random);
  }
  std::vector<Note> candidates(notes.begin(), notes.begin() + 5000);

  auto start = std::chrono::steady_clock::now();
  job.notes.SetNotesCandidatesPermanent(candidates, notes);
  std::printf("SetNotesCandidatesPermanent, 20000 notes + 5000 candidates: %.4f s\n", Seconds(start));

  start = std::chrono::steady_clock::now();
  const int repeats = 10;
  for (int i = 0; i < repeats; ++i) job.notes.Recalculate();
  std::printf("Recalculate: %.4f s\n", Seconds(start) / repeats);

  start = std::chrono::steady_clock::now();
  job.beats_analyzer.DoubleMeasures(10, false);
  std::printf("DoubleMeasures (Set and Recalculate): %.4f s\n", Seconds(start));

  // A drag of a downbeat near the middle of the song: the notes of its two measures move.
  const unsigned long dragged = job.beats_analyzer.measures[150].front() - job.beats.data();
  const auto bounds = job.beats_analyzer.BeatMoveInterpolationBounds(dragged);
  const auto affected = job.beats_analyzer.BeatMoveAffectedBeats(dragged, false);
  std::set<unsigned long> affected_notes;
  for (unsigned long i = 0; i < job.notes.GetNotes().size(); ++i) {
    const double t = job.notes.GetNotes()[i].start_time;
    if (t >= bounds.first && t <= bounds.second) affected_notes.insert(i);
  }
  const double old_time = job.beats[dragged].time;
  start = std::chrono::steady_clock::now();
  const int steps = 100;
  for (int i = 0; i < steps; ++i) {
    job.beats_analyzer.MoveBeat(dragged, old_time + 0.001 * (i % 10), false, bounds, affected, affected_notes,
                                false);
  }
  std::printf("Beat drag step, %zu notes repositioned: %.6f s\n", affected_notes.size(),
              Seconds(start) / steps);
  return 0;
}
