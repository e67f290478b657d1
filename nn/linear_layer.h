#pragma once

#include <vector>

#include "nn/layer.h"

// A dense layer over the last axis of channel 0: one output row per input row.
// The owner fills `weights` (one row per input feature) and `bias` after construction.
class LinearLayer : public Layer {
 public:
  explicit LinearLayer(Squash::Nonlinearities squash_) : Layer(squash_) {}
  std::vector<int> OutputShape(const std::vector<const Tensor*>& inputs) override;
  void CalculateChannel(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) override;

  std::vector<std::vector<float>> weights;
  std::vector<float> bias;
};
