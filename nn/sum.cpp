#include "nn/sum.h"

#include <algorithm>

std::vector<int> Sum::OutputShape(const std::vector<const Tensor*>& inputs) { return inputs.back()->shape; }

namespace {

void AddChannel(const std::vector<std::vector<float>>& in, std::vector<std::vector<float>>* out) {
  const size_t rows = std::min(in.size(), out->size());
  for (size_t r = 0; r < rows; ++r) {
    const float* x = in[r].data();
    float* y = (*out)[r].data();
    const size_t n = std::min(in[r].size(), (*out)[r].size());
    for (size_t i = 0; i < n; ++i) y[i] += x[i];
  }
}

}  // namespace

void Sum::CalculateChannel(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) {
  auto& out = output->data[channel];
  const int out_channels = output->shape[0];
  const int first_channels = inputs[0]->shape[0];
  bool tiled = false;
  for (const Tensor* input : inputs) tiled = tiled || input->shape[0] != out_channels;
  if (!tiled) {
    AddChannel(inputs[0]->data[channel], &out);
  } else if (first_channels > 0 && inputs.size() > 1) {
    // Channel j of the first input lands on j, j + C, j + 2C ..., repeat-factor times.
    const int repeat = inputs[1]->shape[0] / first_channels;
    if (channel < first_channels * repeat) AddChannel(inputs[0]->data[channel % first_channels], &out);
  } else if (channel < first_channels) {
    AddChannel(inputs[0]->data[channel], &out);
  }
  for (size_t i = 1; i < inputs.size(); ++i)
    if (channel < inputs[i]->shape[0]) AddChannel(inputs[i]->data[channel], &out);
}
