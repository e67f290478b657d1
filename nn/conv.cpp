#include "nn/conv.h"

#include <algorithm>
#include <cmath>

#include "nn/accumulate_row_terms.h"

namespace {

int ConvolvedLength(int input, int kernel, int padding, int stride) {
  if (stride < 1) return 0;
  const double length = std::ceil(static_cast<double>(input + 1 - kernel + 2 * padding) / stride);
  return std::max(0, static_cast<int>(length));
}

}  // namespace

Conv::Conv(const ConvWeights& weights_, const std::vector<float>& bias_, Squash::Nonlinearities squash_,
           bool same_, const std::vector<int>& strides_)
    : Layer(squash_), weights(weights_), bias(bias_), strides(strides_), same(same_) {
  const int outputs = static_cast<int>(weights.size());
  const int inputs = outputs > 0 ? static_cast<int>(weights[0].size()) : 0;
  const int rows = inputs > 0 ? static_cast<int>(weights[0][0].size()) : 0;
  const int columns = rows > 0 ? static_cast<int>(weights[0][0][0].size()) : 0;
  shape = {outputs, inputs, rows, columns};
  if (strides.size() < 2) strides.resize(2, 1);
  padding = same ? std::vector<int>{rows / 2, columns / 2} : std::vector<int>{0, 0};
}

std::vector<int> Conv::OutputShape(const std::vector<const Tensor*>& inputs) {
  const Tensor& input = *inputs[0];
  const auto& in = input.shape;
  padded.clear();
  padded_source = nullptr;
  padded_width = 0;
  if (strides[0] == 1 && strides[1] == 1 && padding[1] > 0) {
    const int channels = std::min(shape[1], in[0]);
    padded_width = in[2] + 2 * padding[1];
    padded.assign(static_cast<size_t>(channels) * in[1] * padded_width, 0.0f);
    for (int i = 0; i < channels; ++i)
      for (int r = 0; r < in[1]; ++r)
        std::copy(input.data[i][r].begin(), input.data[i][r].end(),
                  padded.begin() + (static_cast<size_t>(i) * in[1] + r) * padded_width + padding[1]);
  }
  padded_source = &input;
  return {shape[0], ConvolvedLength(in[1], shape[2], padding[0], strides[0]),
          ConvolvedLength(in[2], shape[3], padding[1], strides[1])};
}

float Conv::Cell(const Tensor& input, int channel, int y, int x) const {
  const int top = y * strides[0] - padding[0];
  const int left = x * strides[1] - padding[1];
  const int row_begin = std::max(0, top);
  const int row_end = std::min(input.shape[1], top + shape[2]);
  const int column_begin = std::max(0, left);
  const int column_end = std::min(input.shape[2], left + shape[3]);
  const int input_channels = std::min(shape[1], input.shape[0]);
  const auto& kernels = weights[channel];
  float acc = bias[channel];
  for (int r = row_begin; r < row_end; ++r)
    for (int c = column_begin; c < column_end; ++c)
      for (int i = 0; i < input_channels; ++i) acc += kernels[i][r - top][c - left] * input.data[i][r][c];
  return acc;
}

void Conv::CalculateChannelReference(const std::vector<const Tensor*>& inputs, int channel,
                                     Tensor* output) const {
  auto& out = output->data[channel];
  for (int y = 0; y < output->shape[1]; ++y)
    for (int x = 0; x < output->shape[2]; ++x) out[y][x] = Cell(*inputs[0], channel, y, x);
}

void Conv::CalculateChannel(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) {
  const Tensor& input = *inputs[0];
  if (strides[0] != 1 || strides[1] != 1 || padded_source != &input) {
    CalculateChannelReference(inputs, channel, output);
    return;
  }
  const int input_rows = input.shape[1];
  const int input_channels = std::min(shape[1], input.shape[0]);
  const int kernel_rows = shape[2];
  const int kernel_columns = shape[3];
  const bool use_padded = padding[1] > 0;

  // The terms of one output row in summation order, rebuilt per row because the rows that
  // take part change near the top and bottom edges. Offsets are in the coordinates of the
  // row read: the padded copy starts padding[1] cells early.
  const int max_terms = kernel_rows * kernel_columns * input_channels;
  std::vector<float> term_weights(max_terms);
  std::vector<const float*> term_rows(max_terms);
  std::vector<int> term_offsets(max_terms);
  const auto& kernels = weights[channel];
  auto& out = output->data[channel];
  for (int y = 0; y < output->shape[1]; ++y) {
    const int top = y - padding[0];
    int terms = 0;
    for (int r = std::max(0, top); r < std::min(input_rows, top + kernel_rows); ++r)
      for (int k = 0; k < kernel_columns; ++k)
        for (int i = 0; i < input_channels; ++i, ++terms) {
          term_weights[terms] = kernels[i][r - top][k];
          term_rows[terms] = use_padded ? &padded[(static_cast<size_t>(i) * input_rows + r) * padded_width]
                                        : input.data[i][r].data();
          term_offsets[terms] = k;
        }
    AccumulateRowTerms(term_weights.data(), term_rows.data(), term_offsets.data(), terms, bias[channel], 0,
                       output->shape[2], out[y].data());
  }
}
