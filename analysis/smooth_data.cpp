#include "analysis/smooth_data.h"

void SmoothData(int window, const std::vector<double>& in, std::vector<double>* out) {
  const int size = static_cast<int>(in.size());
  out->assign(in.size(), 0.0);
  if (window <= 0 || size < window) return;
  const int half = window / 2;
  const int rest = window - half;
  // Position i averages [i - half, i + rest - 1] clipped to the data.
  double mean = 0.0;
  for (int k = 0; k < rest; ++k) mean += in[k];
  mean /= rest;
  int count = rest;
  (*out)[0] = mean;
  for (int i = 1; i < size; ++i) {
    const int entering = i + rest - 1;
    const int leaving = i - half - 1;
    if (leaving < 0) {
      mean = (mean * count + in[entering]) / (count + 1);
      ++count;
    } else if (entering < size) {
      mean += (in[entering] - in[leaving]) / window;
    } else {
      mean = (mean * count - in[leaving]) / (count - 1);
      --count;
    }
    (*out)[i] = mean;
  }
}
