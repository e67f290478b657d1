#include "analysis/resonator_grid.h"

#include <cmath>

#include "score/spectrogram.h"

ResonatorGrid::ResonatorGrid(const Spectrogram& out, int64_t num_samples_, double sample_rate_)
    : num_samples(num_samples_),
      half_hop(static_cast<int64_t>(std::trunc(sample_rate_ * 0.5 * out.time_step))),
      num_times(out.num_times),
      time_step(out.time_step),
      sample_rate(sample_rate_) {}

int64_t ResonatorGrid::SegmentEnd(int t) const {
  const int64_t last = num_samples - 1;
  if (t == num_times - 1) return last;
  int64_t e = static_cast<int64_t>(std::trunc(time_step * t * sample_rate));
  if (e >= num_samples) e = last;
  e += half_hop;
  if (e >= num_samples) e = last;
  return e;
}

int64_t ResonatorGrid::Centre(int t) const {
  int64_t centre = static_cast<int64_t>(std::trunc(t * time_step * sample_rate));
  if (centre < 1) centre = 1;
  if (centre >= num_samples - 1) centre = num_samples - 2;
  return centre;
}

float ResonatorGrid::Envelope(const float* b, int64_t origin, int stride, int64_t centre,
                              int64_t period) const {
  // The walks keep the three samples around the candidate in registers and load one new
  // sample per step.
  const float* const at_centre = b + (centre - origin) * stride;

  int64_t left_limit = centre - period;
  if (left_limit <= 0) left_limit = 1;
  int64_t j = centre;
  const float* p = at_centre;
  float after = p[stride];
  float here = p[0];
  while (j > left_limit) {
    const float before = p[-stride];
    if ((here > before && here > after) || (here < before && here < after)) break;
    after = here;
    here = before;
    p -= stride;
    --j;
  }
  if (j <= left_limit) return 0.0f;
  const float left_value = here;

  int64_t right_limit = centre + period;
  if (right_limit >= num_samples) right_limit = num_samples - 1;
  int64_t k = centre + 1;
  p = at_centre + stride;
  float before = p[-stride];
  here = p[0];
  while (k < right_limit) {
    const float next = p[stride];
    if ((here > before && here > next) || (here < before && here < next)) break;
    before = here;
    here = next;
    p += stride;
    ++k;
  }
  if (k >= right_limit) return 0.0f;

  const double fraction = static_cast<double>(centre - j) / static_cast<double>(k - j);
  return static_cast<float>(std::fabs(left_value) * (1.0 - fraction) + std::fabs(here) * fraction);
}
