#include "analysis/resonator_band.h"

#include <cmath>

#include "score/spectrogram.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

// Splits pos on an axis of `size` cells into its lower cell, upper cell and the fraction
// between them; the last cell pairs with itself.
void Interpolation(double pos, int size, int* lo, int* hi, double* fraction) {
  *lo = static_cast<int>(std::trunc(pos));
  if (*lo + 1 < size) {
    *hi = *lo + 1;
    *fraction = pos - *lo;
  } else {
    *hi = *lo;
    *fraction = 0.0;
  }
}

}  // namespace

ResonatorBand::ResonatorBand(int band, const Spectrogram& out, const Spectrogram* q_map_, double sample_rate)
    : fixed_q(out.q_factor), q_map(q_map_), num_times(out.num_times) {
  const double f = static_cast<float>(out.frequencies[band]);
  const float w = static_cast<float>(2.0 * kPi * f / sample_rate);
  s = std::sin(w);
  c = std::cos(w);
  period = static_cast<int64_t>(std::trunc((1.0 / f) * sample_rate + 0.5));
  if (period < 1) period = 1;

  if (q_map != nullptr && (q_map->num_freqs < 1 || q_map->num_times < 1 ||
                           static_cast<int>(q_map->amplitudes.size()) < q_map->num_freqs)) {
    q_map = nullptr;
  }
  if (q_map != nullptr) {
    const double along = out.num_freqs > 1 ? band / static_cast<double>(out.num_freqs - 1) : 0.0;
    Interpolation((q_map->num_freqs - 1) * along, q_map->num_freqs, &row_lo, &row_hi, &row_fraction);
  }
}

double ResonatorBand::ColumnQ(int t) const {
  if (q_map == nullptr) return fixed_q;
  int col_lo = 0;
  int col_hi = 0;
  double col_fraction = 0.0;
  const double along = num_times > 1 ? t / static_cast<double>(num_times - 1) : 0.0;
  Interpolation((q_map->num_times - 1) * along, q_map->num_times, &col_lo, &col_hi, &col_fraction);
  const std::vector<float>& lo = q_map->amplitudes[row_lo];
  const std::vector<float>& hi = q_map->amplitudes[row_hi];
  const double q_left = lo[col_lo] * (1.0 - row_fraction) + hi[col_lo] * row_fraction;
  const double q_right = lo[col_hi] * (1.0 - row_fraction) + hi[col_hi] * row_fraction;
  return q_left * (1.0 - col_fraction) + q_right * col_fraction;
}
