#include "score/multi_selection.h"

#include <algorithm>

namespace {

void Widen(SpectrogramArea* bounds, const SpectrogramArea& area) {
  bounds->first_key = std::min(bounds->first_key, area.first_key);
  bounds->last_key = std::max(bounds->last_key, area.last_key);
  bounds->first_time = std::min(bounds->first_time, area.first_time);
  bounds->last_time = std::max(bounds->last_time, area.last_time);
}

}  // namespace

void MultiSelection::AddArea(const SpectrogramArea& area) {
  if (areas.empty()) {
    bounds = area;
  } else {
    Widen(&bounds, area);
  }
  areas.push_back(area);
}

bool MultiSelection::Contains(int key_idx, double time) const {
  if (areas.empty() || !bounds.Contains(key_idx, time)) return false;
  for (const SpectrogramArea& area : areas) {
    if (area.Contains(key_idx, time)) return true;
  }
  return false;
}

void MultiSelection::RecalculateBounds() {
  if (areas.empty()) return;
  bounds = areas.front();
  for (const SpectrogramArea& area : areas) Widen(&bounds, area);
}
