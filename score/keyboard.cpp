#include "score/keyboard.h"

#include <algorithm>
#include <cmath>

namespace {

// Equal temperament around A4 = 440 Hz, rounded to five significant digits, except for the
// entries whose printed value differs from that rounding.
std::vector<double> BuildKeyFrequencies() {
  std::vector<double> freqs(Keyboard::kNumKeys);
  for (int k = 0; k < Keyboard::kNumKeys; ++k) {
    const double exact = 440.0 * std::pow(2.0, (k - 48) / 12.0);
    const int decimals = 4 - static_cast<int>(std::floor(std::log10(exact)));
    const double scale = std::pow(10.0, decimals);
    // Integer divided by an exact power of ten: the nearest double to the decimal text.
    freqs[k] = std::round(exact * scale) / scale;
  }
  freqs[6] = 38.89;
  freqs[13] = 58.271;
  freqs[23] = 103.82;
  freqs[73] = 1864.6;
  freqs[81] = 2959.9;
  return freqs;
}

}  // namespace

const std::vector<double> Keyboard::key_freqs_ = BuildKeyFrequencies();

int ClosestPianoKey(double frequency) {
  const std::vector<double>& freqs = Keyboard::key_freqs_;
  const auto upper = std::lower_bound(freqs.begin(), freqs.end(), frequency);
  if (upper == freqs.end()) return Keyboard::kNumKeys - 1;
  if (upper == freqs.begin()) return 0;
  const auto lower = upper - 1;
  const int upper_idx = static_cast<int>(upper - freqs.begin());
  return std::fabs(*lower - frequency) >= std::fabs(*upper - frequency) ? upper_idx : upper_idx - 1;
}
