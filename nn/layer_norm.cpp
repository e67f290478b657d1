#include "nn/layer_norm.h"

#include <cmath>

LayerNorm::LayerNorm(const std::vector<float>& gammas_, const std::vector<float>& betas_, float epsilon_)
    : gammas(gammas_), betas(betas_), epsilon(epsilon_) {}

void LayerNorm::CalculateChannel(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) {
  const Tensor& input = *inputs[0];
  float mean = 0.0f;
  const float variance = input.ChannelVariance(channel, &mean);
  const float r = 1.0f / std::sqrt(variance + epsilon);
  const float gamma = gammas[channel];
  const float beta = betas[channel];
  const auto& in = input.data[channel];
  auto& out = output->data[channel];
  for (size_t row = 0; row < in.size(); ++row) {
    const float* x = in[row].data();
    float* y = out[row].data();
    const size_t n = in[row].size();
    for (size_t i = 0; i < n; ++i) y[i] = (x[i] - mean) * r * gamma + beta;
  }
}
