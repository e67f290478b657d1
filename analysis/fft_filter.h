#pragma once

#include <vector>

// One triangular filter on FFT bins: rises from `start_bin` to 1 at `centre_bin`, falls until
// before `stop_bin`, normalised to unit area.
struct FFTFilter {
  FFTFilter(int start_bin, int centre_bin, int stop_bin);

  int start_bin;
  std::vector<float> weights;  // stop_bin - start_bin values from start_bin on
};
