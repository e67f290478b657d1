#include "nn/linear_layer.h"

#include <algorithm>

std::vector<int> LinearLayer::OutputShape(const std::vector<const Tensor*>& inputs) {
  return {1, inputs[0]->shape[1], static_cast<int>(bias.size())};
}

void LinearLayer::CalculateChannel(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) {
  const auto& in = inputs[0]->data[0];
  auto& out = output->data[0];
  const size_t outputs = bias.size();
  for (size_t row = 0; row < out.size(); ++row) {
    float* y = out[row].data();
    std::copy(bias.begin(), bias.end(), y);
    const size_t features = std::min(in[row].size(), weights.size());
    for (size_t j = 0; j < features; ++j) {
      const float x = in[row][j];
      const float* w = weights[j].data();
      for (size_t k = 0; k < outputs; ++k) y[k] += w[k] * x;
    }
  }
}
