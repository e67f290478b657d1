#include "nn/batch_norm.h"

#include <cmath>

BatchNorm::BatchNorm(const std::vector<float>& means, const std::vector<float>& variances,
                     const std::vector<float>& gammas, const std::vector<float>& betas, float epsilon) {
  scales.resize(means.size());
  offsets.resize(means.size());
  for (size_t c = 0; c < means.size(); ++c) {
    const float r = 1.0f / std::sqrt(variances[c] + epsilon);
    scales[c] = gammas[c] * r;
    offsets[c] = betas[c] - gammas[c] * means[c] * r;
  }
}

void BatchNorm::CalculateChannel(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) {
  const float scale = scales[channel];
  const float offset = offsets[channel];
  const auto& in = inputs[0]->data[channel];
  auto& out = output->data[channel];
  for (size_t r = 0; r < in.size(); ++r) {
    const float* x = in[r].data();
    float* y = out[r].data();
    const size_t n = in[r].size();
    for (size_t i = 0; i < n; ++i) y[i] = x[i] * scale + offset;
  }
}
