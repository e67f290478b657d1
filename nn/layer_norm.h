#pragma once

#include <vector>

#include "nn/layer.h"

// Normalises each channel of the tensor at hand by its own mean and population variance,
// then applies a per-channel gain and bias.
class LayerNorm : public Layer {
 public:
  LayerNorm(const std::vector<float>& gammas, const std::vector<float>& betas, float epsilon);
  void CalculateChannel(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) override;

  std::vector<float> gammas;
  std::vector<float> betas;
  float epsilon;
};
