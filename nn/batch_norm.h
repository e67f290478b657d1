#pragma once

#include <vector>

#include "nn/layer.h"

// Inference batch normalisation folded into one scale and offset per channel.
class BatchNorm : public Layer {
 public:
  BatchNorm(const std::vector<float>& means, const std::vector<float>& variances,
            const std::vector<float>& gammas, const std::vector<float>& betas, float epsilon);
  void CalculateChannel(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) override;

  std::vector<float> scales;
  std::vector<float> offsets;
};
