#pragma once

#include <vector>

// The piano keyboard as the rest of the program sees it: 88 keys, key 0 = A0 (27.5 Hz),
// key 87 = C8 (4186.0 Hz).
class Keyboard {
 public:
  static constexpr int kNumKeys = 88;

  // Key frequencies in Hz, written to five significant digits as in the printed tables;
  // a handful of entries keep the table's own rounding. Every grid's band ratio is derived
  // from the first and last entry, so these exact values are part of every frequency axis.
  static const std::vector<double> key_freqs_;
};

// The index (0 to 87) of the key nearest to `frequency` in Hz, by frequency distance; an
// exact tie goes to the upper key.
int ClosestPianoKey(double frequency);
