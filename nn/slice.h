#pragma once

#include <tuple>
#include <vector>

#include "nn/layer.h"

// Crops and decimates: per axis (channels, rows, columns) a (start, stop, step) range, where
// a stop of -1 stands for the length of the axis.
class Slice : public Layer {
 public:
  explicit Slice(const std::vector<std::tuple<int, int, int>>& ranges_) : ranges(ranges_) {}
  std::vector<int> OutputShape(const std::vector<const Tensor*>& inputs) override;
  void CalculateChannel(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) override;

  std::vector<std::tuple<int, int, int>> ranges;

 private:
  // start, stop with -1 resolved, and step of one axis.
  std::tuple<int, int, int> Range(int axis, int length) const;
};
