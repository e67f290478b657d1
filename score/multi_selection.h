#pragma once

#include <vector>

#include "score/spectrogram_area.h"

// The user's selection on the canvas: a union of rectangles in keys and seconds, and the
// smallest rectangle round them all.
class MultiSelection {
 public:
  // The first area becomes the bounds; later ones widen them.
  void AddArea(const SpectrogramArea& area);
  SpectrogramArea Bounds() const { return bounds; }
  // False for an empty selection, whatever the bounds still hold.
  bool Contains(int key_idx, double time) const;
  // Rebuilds the bounds from the areas; with no areas the bounds stay as they are.
  void RecalculateBounds();

  std::vector<SpectrogramArea> areas;
  SpectrogramArea bounds;
};
