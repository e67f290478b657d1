#include "nn/tensor.h"

#include <algorithm>

Tensor::Tensor(const std::vector<int>& new_shape) { Resize(new_shape); }

Tensor::Tensor(const std::vector<std::vector<std::vector<float>>>& values) : data(values) {
  const int channels = static_cast<int>(values.size());
  const int rows = channels > 0 ? static_cast<int>(values[0].size()) : 0;
  const int columns = rows > 0 ? static_cast<int>(values[0][0].size()) : 0;
  shape = {channels, rows, columns};
}

void Tensor::Resize(const std::vector<int>& new_shape) {
  shape = {new_shape.size() > 0 ? new_shape[0] : 0, new_shape.size() > 1 ? new_shape[1] : 0,
           new_shape.size() > 2 ? new_shape[2] : 0};
  data.resize(shape[0]);
  for (auto& channel : data) {
    channel.resize(shape[1]);
    for (auto& row : channel) row.resize(shape[2], 0.0f);
  }
}

void Tensor::Zero() {
  for (auto& channel : data)
    for (auto& row : channel) std::fill(row.begin(), row.end(), 0.0f);
}

namespace {

float Sum(const std::vector<std::vector<float>>& channel) {
  float sum = 0.0f;
  for (const auto& row : channel)
    for (float x : row) sum += x;
  return sum;
}

// Adds to `sum` in place so that one running float total covers several channels.
void AddSquaredDeviations(const std::vector<std::vector<float>>& channel, float mean, float* sum) {
  for (const auto& row : channel)
    for (float x : row) *sum += (x - mean) * (x - mean);
}

}  // namespace

float Tensor::Mean() const {
  float sum = 0.0f;
  for (const auto& channel : data)
    for (const auto& row : channel)
      for (float x : row) sum += x;
  return sum / static_cast<float>(shape[0] * shape[1] * shape[2]);
}

float Tensor::Variance(float* mean) const {
  const float m = Mean();
  float sum = 0.0f;
  for (const auto& channel : data) AddSquaredDeviations(channel, m, &sum);
  if (mean) *mean = m;
  return sum / static_cast<float>(shape[0] * shape[1] * shape[2]);
}

float Tensor::ChannelMean(int channel) const {
  return Sum(data[channel]) / static_cast<float>(shape[1] * shape[2]);
}

float Tensor::ChannelVariance(int channel, float* mean) const {
  const float m = ChannelMean(channel);
  if (mean) *mean = m;
  float sum = 0.0f;
  AddSquaredDeviations(data[channel], m, &sum);
  return sum / static_cast<float>(shape[1] * shape[2]);
}
