#include "analysis/music_analysis.h"

#include <cstdlib>
#include <mutex>
#include <stdexcept>

#include "score/key_note_names.h"
#include "score/transcription_job.h"

int MusicAnalysis::BestKeySignature(const std::array<int, 12>& pitch_counts) {
  const KeyNoteNames names;
  int best = Beat::kNoKeyChange;
  long best_score = 0;
  bool first = true;
  for (const int fifths : names.fifths_values) {
    long score = 0;
    for (const int pitch : names.MissingPitches(fifths)) score += pitch_counts[((pitch % 12) + 12) % 12];
    if (first || score < best_score || (score == best_score && std::abs(fifths) < std::abs(best))) {
      best = fifths;
      best_score = score;
      first = false;
    }
  }
  return best;
}

void MusicAnalysis::CalculateKeySignature(JobPtr job) {
  std::array<int, 12> counts{};
  {
    std::lock_guard<std::recursive_mutex> lock(job->notes.lock);
    for (const Note& note : job->notes.GetNotes()) ++counts[((note.key_idx % 12) + 12) % 12];
  }
  if (!job->beats.empty()) job->beats.front().key_signature = BestKeySignature(counts);
}

void MusicAnalysis::CalculateTempos(JobPtr job) {
  if (job->beats.empty()) return;
  Beat& first = job->beats.front();
  try {
    const double tempo = job->beats_analyzer.CalculatedTempo(first);
    if (tempo >= 0.0 && tempo < 1e6) first.tempo = static_cast<int>(tempo + 0.5);
  } catch (const std::out_of_range&) {
    // The measure tables are not built for this beat list: the tempo stays as it is.
  }
}

void MusicAnalysis::Calculate(JobPtr job) {
  CalculateKeySignature(job);
  CalculateTempos(job);
  job->beats_analyzer.Set();
}
