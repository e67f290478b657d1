#pragma once

#include <vector>

class Spectrogram;

// Fills a group of adjacent rows of a grid at once: the same resonators and read-out as
// AutoFocusSpectrogram::SingleFrequencyAmplitudes, with every band of the group in its own
// SIMD lane. All bands of a grid share the segment boundaries, so the lanes only differ in
// their coefficients. The filter passes are chained per sample rather than run one after
// the other, which gives the same numbers, and the filtered signal is kept only for a
// sliding window of samples, so memory stays small however long the song.
class ResonatorBank {
 public:
  // Sixteen lanes keep four SSE registers of independent recursions in flight, enough to
  // hide the latency of the division; with AVX-512 thirty-two lanes fill two registers,
  // and the 32 registers hold every state without spilling.
  static constexpr int kBaseLanes = 16;
  static constexpr int kWideLanes = 32;
  // The filter passes that are chained in the SIMD path; more go one band at a time.
  static constexpr int kMaxPasses = 4;

  // The widest group this processor runs: kWideLanes where AVX-512 is available.
  static int Lanes();

  // Filters rows first_band .. first_band + lanes - 1 (those that exist) of `out` from
  // `samples` at `sample_rate` and writes their amplitudes. `lanes` is kBaseLanes, or
  // kWideLanes where Lanes() allows it. `q_map` may be null. Returns false, touching
  // nothing, when out->filter_passes is outside 1 .. kMaxPasses or `lanes` cannot be run.
  static bool Fill(int first_band, const std::vector<float>& samples, double sample_rate, Spectrogram* out,
                   const Spectrogram* q_map, int lanes = Lanes());
};
