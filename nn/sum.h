#pragma once

#include <vector>

#include "nn/layer.h"

// Adds tensors into the shape of the last input. A first input with fewer channels is tiled
// over the output channels, which serves skip connections with a narrower shortcut.
class Sum : public Layer {
 public:
  explicit Sum(Squash::Nonlinearities squash_) : Layer(squash_) {}
  std::vector<int> OutputShape(const std::vector<const Tensor*>& inputs) override;
  void CalculateChannel(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) override;
};
