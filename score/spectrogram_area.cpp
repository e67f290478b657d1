#include "score/spectrogram_area.h"

SpectrogramArea::SpectrogramArea(double first_key_, double last_key_, double first_time_, double last_time_)
    : whole(false), first_key(first_key_), last_key(last_key_), first_time(first_time_), last_time(last_time_) {}

bool SpectrogramArea::Contains(int key, double time) const {
  if (whole) return true;
  const double k = key;
  return k >= first_key && k <= last_key && time >= first_time && time <= last_time;
}
