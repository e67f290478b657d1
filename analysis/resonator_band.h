#pragma once

#include <cstdint>

class Spectrogram;

// The constants of one band's two-pole resonator and its place in the Q-map. Q comes from
// the grid's own q_factor, or, with a Q-map, from the map's four cells around the band and
// column, so that one map serves grids of any resolution.
class ResonatorBand {
 public:
  // `q_map` may be null or empty; it must outlive this object.
  ResonatorBand(int band, const Spectrogram& out, const Spectrogram* q_map, double sample_rate);

  // Q for column t (0 .. out.num_times - 1, with at least two columns).
  double ColumnQ(int t) const;
  // The bandwidth term of the resonator at column t.
  float Alpha(int t) const { return (s * 0.5) / static_cast<float>(ColumnQ(t)); }

  float s = 0.0f;      // sin of the band's angular frequency per sample
  float c = 0.0f;      // cos of it
  int64_t period = 0;  // samples per cycle, rounded

 private:
  double fixed_q;
  const Spectrogram* q_map;
  int num_times;
  int row_lo = 0;
  int row_hi = 0;
  double row_fraction = 0.0;
};
