#pragma once

#include <cstddef>
#include <cstdint>

class Spectrogram;

// Where the columns of a grid fall in the sample stream, shared by every band of the grid.
// Sample 0 is the grid's start_time; a column's Q rules the samples up to half a hop beyond
// the column, and its amplitude is read off the filtered wave around the column's sample.
class ResonatorGrid {
 public:
  // Filtering starts with the segment of column first_filter_frame - 1. Starting at column 0
  // gives every column's samples the Q of that column, the first half hop included; a later
  // start would let the second column's Q rule the opening of the song.
  static constexpr int first_filter_frame = 1;

  // The length of the work buffer and of what is filtered: the whole sample vector. Anything
  // shorter would leave the columns past its end at zero, and the cost is linear in the
  // length either way; the SIMD path keeps only a sliding window of it in memory.
  static int64_t ResonatorBufferLength(size_t num_samples) { return static_cast<int64_t>(num_samples); }

  // `num_samples` is what is filtered (at least 3), `sample_rate` in Hz.
  ResonatorGrid(const Spectrogram& out, int64_t num_samples, double sample_rate);

  // Last sample (inclusive) filtered with column t's coefficients. The last column runs to
  // the end of the buffer, whatever its time.
  int64_t SegmentEnd(int t) const;
  // The sample at which column t is read, kept inside [1, num_samples - 2].
  int64_t Centre(int t) const;

  // The envelope at `centre`: the magnitudes of the nearest strict extrema before and after
  // it, within one period either way, joined by a straight line; 0 if either side has none.
  // Sample i of the filtered signal is b[(i - origin) * stride].
  float Envelope(const float* b, int64_t origin, int stride, int64_t centre, int64_t period) const;

  int64_t num_samples;
  int64_t half_hop;
  int num_times;
  double time_step;
  double sample_rate;
};
