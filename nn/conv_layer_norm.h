#pragma once

#include <vector>

#include "nn/conv.h"
#include "nn/layer_norm.h"

// Per-channel LayerNorm (epsilon 1e-5, no nonlinearity) ahead of a stride-1 Conv; the
// nonlinearity belongs to the convolution.
class ConvLayerNorm {
 public:
  ConvLayerNorm(const std::vector<float>& gammas, const std::vector<float>& betas, const ConvWeights& weights,
                const std::vector<float>& bias, Squash::Nonlinearities squash, bool same);

  Tensor operator()(const std::vector<const Tensor*>& inputs, int num_threads);

  LayerNorm layer_norm;
  Conv conv;
};
