#include "output/string_fret_data.h"

#include <algorithm>
#include <numeric>

std::vector<std::pair<int, int>> StringFretData::StringsFrets(const std::vector<int>& keys) const {
  std::vector<std::pair<int, int>> result(keys.size(), {-1, -1});
  std::vector<size_t> order(keys.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), [&keys](size_t a, size_t b) { return keys[a] < keys[b]; });
  std::vector<bool> used(string_keys.size(), false);
  for (size_t place : order) {
    for (size_t s = 0; s < string_keys.size(); ++s) {
      const int fret = keys[place] - string_keys[s];
      if (used[s] || fret < 0 || (frets >= 0 && fret > frets)) continue;
      used[s] = true;
      result[place] = {static_cast<int>(s) + 1, fret};
      break;
    }
  }
  return result;
}
