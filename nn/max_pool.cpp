#include "nn/max_pool.h"

#include <algorithm>
#include <cmath>

MaxPool::MaxPool(const std::vector<int>& size_, const std::vector<int>& stride_,
                 const std::vector<int>& padding_, Squash::Nonlinearities squash_)
    : Layer(squash_), size(size_), stride(stride_), padding(padding_) {}

namespace {

int PooledLength(int input, int size, int stride, int padding) {
  if (stride < 1) return 0;
  const double length = std::ceil(static_cast<double>(input + 1 - size + 2 * padding) / stride);
  return std::max(0, static_cast<int>(length));
}

}  // namespace

std::vector<int> MaxPool::OutputShape(const std::vector<const Tensor*>& inputs) {
  const auto& in = inputs[0]->shape;
  return {in[0], PooledLength(in[1], size[0], stride[0], padding[0]),
          PooledLength(in[2], size[1], stride[1], padding[1])};
}

void MaxPool::CalculateChannel(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) {
  const auto& in = inputs[0]->data[channel];
  const int in_rows = inputs[0]->shape[1];
  const int in_columns = inputs[0]->shape[2];
  auto& out = output->data[channel];
  for (int r = 0; r < output->shape[1]; ++r) {
    const int row_begin = std::max(0, r * stride[0] - padding[0]);
    const int row_end = std::min(in_rows, r * stride[0] - padding[0] + size[0]);
    for (int c = 0; c < output->shape[2]; ++c) {
      const int column_begin = std::max(0, c * stride[1] - padding[1]);
      const int column_end = std::min(in_columns, c * stride[1] - padding[1] + size[1]);
      float best = -9e10f;
      for (int i = row_begin; i < row_end; ++i)
        for (int j = column_begin; j < column_end; ++j) best = std::max(best, in[i][j]);
      out[r][c] = best;
    }
  }
}
