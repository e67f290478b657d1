#include "analysis/estimate_note_volume.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int kVolumeColumns = 15;
constexpr double kVolumePerAmplitude = 0.011627197265625;
// A hostile grid may hold enormous amplitudes; the velocity stays an int.
constexpr double kLargestVolume = 1e9;

}  // namespace

int ClosestBand(const std::vector<double>& frequencies, double frequency) {
  const auto upper = std::lower_bound(frequencies.begin(), frequencies.end(), frequency);
  if (upper == frequencies.end()) return static_cast<int>(frequencies.size()) - 1;
  if (upper == frequencies.begin()) return 0;
  const auto lower = upper - 1;
  const int index = static_cast<int>(upper - frequencies.begin());
  return std::fabs(*lower - frequency) >= std::fabs(*upper - frequency) ? index : index - 1;
}

int EstimateNoteVolume(const Note& note, const Spectrogram& spectrogram) {
  if (spectrogram.frequencies.empty() || spectrogram.amplitudes.empty() || spectrogram.times.empty())
    return 1;
  const double columns_from_start = (note.start_time - spectrogram.times[0]) / spectrogram.time_step;
  const int first =
      columns_from_start > 0.0
          ? static_cast<int>(std::min(columns_from_start, static_cast<double>(spectrogram.num_times)))
          : 0;
  const int last = std::min(first + kVolumeColumns, spectrogram.num_times);
  double peak = 0.0;
  for (const double frequency : {note.frequency, 2.0 * note.frequency}) {
    const int band = ClosestBand(spectrogram.frequencies, frequency);
    if (band < 0 || band >= static_cast<int>(spectrogram.amplitudes.size())) continue;
    const std::vector<float>& row = spectrogram.amplitudes[band];
    for (int c = first; c < std::min(last, static_cast<int>(row.size())); ++c)
      peak = std::max(peak, static_cast<double>(row[c]));
  }
  return static_cast<int>(std::min(peak * kVolumePerAmplitude + 32.5, kLargestVolume));
}
