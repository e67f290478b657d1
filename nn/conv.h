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
};
