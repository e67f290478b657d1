#include "analysis/fft_filter.h"

#include <algorithm>

FFTFilter::FFTFilter(int start, int centre, int stop) : start_bin(start) {
  weights.reserve(std::max(0, stop - start));
  float value = 0.0f;
  const float rise = centre > start ? 1.0f / (centre - start) : 0.0f;
  for (int b = start; b < centre; ++b, value += rise) weights.push_back(value);
  value = 1.0f;
  const float fall = stop > centre ? 1.0f / (stop - centre) : 0.0f;
  for (int b = centre; b < stop; ++b, value -= fall) weights.push_back(value);
  double sum = 0.0;
  for (float w : weights) sum += w;
  if (sum == 0.0) sum = 1.0;
  for (float& w : weights) w = static_cast<float>(w / sum);
}
