#include "score/percentile_value.h"

#include <algorithm>
#include <cmath>
#include <functional>

namespace {

// Keeps the smallest trunc(n * fraction) + 1 values in a max-heap `low` and the rest in a
// min-heap `high`, moving at most one value between them per addition, so that the top
// of `low` is always the wanted order statistic. The heaps are plain vectors so that
// their storage order can seed another selector.
class PercentileSelector {
 public:
  explicit PercentileSelector(double fraction_) : fraction(fraction_) {}

  void Reserve(size_t n) { low.reserve(n); }

  void Add(float x) {
    if (low.empty() || !(x > low.front())) {
      low.push_back(x);
      std::push_heap(low.begin(), low.end());
    } else {
      high.push_back(x);
      std::push_heap(high.begin(), high.end(), std::greater<float>());
    }
    const double total = static_cast<double>(low.size() + high.size());
    const size_t target = static_cast<size_t>(std::trunc(total * fraction)) + 1;
    if (low.size() > target) {
      std::pop_heap(low.begin(), low.end());
      high.push_back(low.back());
      low.pop_back();
      std::push_heap(high.begin(), high.end(), std::greater<float>());
    } else if (low.size() < target && !high.empty()) {
      std::pop_heap(high.begin(), high.end(), std::greater<float>());
      low.push_back(high.back());
      high.pop_back();
      std::push_heap(low.begin(), low.end());
    }
  }

  float Value() const { return low.empty() ? 0.0f : low.front(); }

  double fraction;
  std::vector<float> low;   // max-heap
  std::vector<float> high;  // min-heap
};

}  // namespace

float PercentileValue(const std::vector<std::vector<float>>& data, int num_rows, int num_cols, double percent,
                      int row_step, int col_step, double second_percent, float* second_value) {
  row_step = std::max(row_step, 1);
  col_step = std::max(col_step, 1);
  num_rows = std::min(num_rows, static_cast<int>(data.size()));
  PercentileSelector selector(percent * 0.01);
  if (num_rows > 0 && num_cols > 0) {
    selector.Reserve(static_cast<size_t>((num_rows + row_step - 1) / row_step) *
                     static_cast<size_t>((num_cols + col_step - 1) / col_step));
  }
  for (int r = 0; r < num_rows; r += row_step) {
    const std::vector<float>& row = data[r];
    const int cols = std::min(num_cols, static_cast<int>(row.size()));
    for (int c = 0; c < cols; c += col_step) selector.Add(row[c]);
  }
  const float value = selector.Value();
  if (second_percent == 0.0 || second_value == nullptr) return value;

  const bool above = second_percent > percent;
  const std::vector<float>& source = above ? selector.high : selector.low;
  if (source.empty()) {
    *second_value = value;
    return value;
  }
  // Above the first percent the second one lies among the values of `high`, at its share of
  // what remains; below it among `low`, at the ratio of the two percents.
  const double fraction =
      above ? ((second_percent - percent) * 0.01) / (1.0 - percent * 0.01) : second_percent / percent;
  PercentileSelector second(fraction);
  second.Reserve(source.size());
  for (float x : source) second.Add(x);
  *second_value = second.Value();
  return value;
}
