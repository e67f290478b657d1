#pragma once

#include <vector>

#include "nn/batch_norm.h"
#include "nn/conv.h"

// Batch normalisation (epsilon 1e-5, no nonlinearity) ahead of a stride-1 Conv. The
// nonlinearity belongs to the convolution: normalise, convolve, add bias, squash.
class ConvLayer {
 public:
  ConvLayer(const std::vector<float>& running_means, const std::vector<float>& running_variances,
            const std::vector<float>& gammas, const std::vector<float>& betas, const ConvWeights& weights,
            const std::vector<float>& bias, Squash::Nonlinearities squash, bool same);

  Tensor operator()(const std::vector<const Tensor*>& inputs, int num_threads);

  BatchNorm batch_norm;
  Conv conv;
};
