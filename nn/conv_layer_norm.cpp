#include "nn/conv_layer_norm.h"

ConvLayerNorm::ConvLayerNorm(const std::vector<float>& gammas, const std::vector<float>& betas,
                             const ConvWeights& weights, const std::vector<float>& bias,
                             Squash::Nonlinearities squash, bool same)
    : layer_norm(gammas, betas, 1e-5f), conv(weights, bias, squash, same, {1, 1}) {}

Tensor ConvLayerNorm::operator()(const std::vector<const Tensor*>& inputs, int num_threads) {
  const Tensor normalised = layer_norm(inputs, num_threads);
  return conv({&normalised}, num_threads);
}
