#pragma once

#include <vector>

#include "nn/layer.h"

// Two-dimensional max pooling per channel. Cells outside the input do not take part, so
// padding acts as minus infinity; a window wholly outside keeps -9e10.
class MaxPool : public Layer {
 public:
  // Each argument holds rows, then columns.
  MaxPool(const std::vector<int>& size, const std::vector<int>& stride, const std::vector<int>& padding,
          Squash::Nonlinearities squash_);
  std::vector<int> OutputShape(const std::vector<const Tensor*>& inputs) override;
  void CalculateChannel(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) override;

  std::vector<int> size;
  std::vector<int> stride;
  std::vector<int> padding;
};
