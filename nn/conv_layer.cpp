#include "nn/conv_layer.h"

ConvLayer::ConvLayer(const std::vector<float>& running_means, const std::vector<float>& running_variances,
                     const std::vector<float>& gammas, const std::vector<float>& betas,
                     const ConvWeights& weights, const std::vector<float>& bias,
                     Squash::Nonlinearities squash, bool same)
    : batch_norm(running_means, running_variances, gammas, betas, 1e-5f),
      conv(weights, bias, squash, same, {1, 1}) {}

Tensor ConvLayer::operator()(const std::vector<const Tensor*>& inputs, int num_threads) {
  const Tensor normalised = batch_norm(inputs, num_threads);
  return conv({&normalised}, num_threads);
}
