#pragma once

#include <array>
#include <memory>

class TranscriptionJob;

// The analysis after notes and beats: the key signature by the rule of fewest notes outside
// the scale, and the first beat's tempo figure. A stage object made per run on the worker.
class MusicAnalysis {
 public:
  using JobPtr = std::shared_ptr<TranscriptionJob>;

  // Key signature, tempo, then BeatsAnalyzer::Set().
  void Calculate(JobPtr job);
  // The signature whose scale leaves out the fewest notes (not candidates), fewer accidentals
  // on a tie, goes to the first beat.
  void CalculateKeySignature(JobPtr job);
  // The first beat's tempo: the calculated tempo rounded to whole beats per minute.
  void CalculateTempos(JobPtr job);

  // The best signature, in fifths, for note counts per pitch class (class 0 is A).
  static int BestKeySignature(const std::array<int, 12>& pitch_counts);
};
