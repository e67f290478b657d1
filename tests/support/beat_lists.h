#pragma once

#include <vector>

#include "score/beat.h"

// `count` beats of 4/4 at 120 beats a minute from 0 s, then the end-of-song sentinel.
inline std::vector<Beat> FourFourBeats(int count) {
  std::vector<Beat> beats;
  for (int i = 0; i < count; ++i) beats.emplace_back(i % 4 + 1, i * 0.5);
  beats.front().time_signature_top = 4;
  beats.front().time_signature_bottom = 4;
  beats.emplace_back(1, count * 0.5);
  return beats;
}
