#include "nn/slice.h"

#include <algorithm>

std::tuple<int, int, int> Slice::Range(int axis, int length) const {
  auto [start, stop, step] = ranges[axis];
  if (stop == -1) stop = length;
  return {start, std::min(stop, length), step};
}

std::vector<int> Slice::OutputShape(const std::vector<const Tensor*>& inputs) {
  std::vector<int> shape(3, 0);
  for (int axis = 0; axis < 3; ++axis) {
    const auto [start, stop, step] = Range(axis, inputs[0]->shape[axis]);
    if (step > 0 && start >= 0 && stop > start) shape[axis] = (stop - 1 - start) / step + 1;
  }
  return shape;
}

void Slice::CalculateChannel(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) {
  const Tensor& input = *inputs[0];
  const auto [channel_start, channel_stop, channel_step] = Range(0, input.shape[0]);
  const auto [row_start, row_stop, row_step] = Range(1, input.shape[1]);
  const auto [column_start, column_stop, column_step] = Range(2, input.shape[2]);
  const int source_channel = channel_start + channel * channel_step;
  if (source_channel >= channel_stop) return;
  const auto& in = input.data[source_channel];
  auto& out = output->data[channel];
  int r = 0;
  for (int i = row_start; i < row_stop && r < output->shape[1]; i += row_step, ++r) {
    int c = 0;
    for (int j = column_start; j < column_stop && c < output->shape[2]; j += column_step, ++c)
      out[r][c] = in[i][j];
  }
}
