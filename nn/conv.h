#pragma once

#include <vector>

#include "nn/layer.h"

// Convolution kernels, [output channel][input channel][kernel row][kernel column].
using ConvWeights = std::vector<std::vector<std::vector<std::vector<float>>>>;

// Direct two-dimensional cross-correlation with zero padding. The kernel is not flipped.
// Each output cell starts from its bias and adds its terms in a fixed order: kernel row,
// kernel column, then input channel innermost, in float; cells outside the input take no
// part. The weights and bias are borrowed and must outlive the layer.
class Conv : public Layer {
 public:
  // `same` pads by kernel rows / 2 and kernel columns / 2 so that an odd kernel keeps the size.
  Conv(const ConvWeights& weights, const std::vector<float>& bias, Squash::Nonlinearities squash_, bool same,
       const std::vector<int>& strides);

  // The output shape; with stride 1 and column padding it also lays out a zero-padded copy of
  // the input for the channels to read.
  std::vector<int> OutputShape(const std::vector<const Tensor*>& inputs) override;
  // Stride 1 goes through the vectorised path; any other stride through the reference.
  void CalculateChannel(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) override;
  // The plain scalar path, one cell at a time; the vectorised path gives the same numbers.
  void CalculateChannelReference(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) const;

  const ConvWeights& weights;
  const std::vector<float>& bias;
  std::vector<int> shape;  // output channels, input channels, kernel rows, kernel columns
  std::vector<int> strides;
  bool same;
  std::vector<int> padding;

 private:
  // One output cell by the reference order, clipped to the input.
  float Cell(const Tensor& input, int channel, int y, int x) const;

  // The input with padding[1] zeros on both sides of every row, [input channel][row][column],
  // made by OutputShape and only read by the channels. A padded cell adds w * 0 to a sum,
  // which leaves it as it was, so the border cells come out as the reference's clipped sums.
  std::vector<float> padded;
  const Tensor* padded_source = nullptr;
  int padded_width = 0;
};
