#pragma once

#include <kiss_fft.h>

#include <vector>

#include "nn/conv.h"

// 2 ^ ceil(ln(x) * 1.4426950408889634), so that 64, 128, 256 and 512 map to themselves;
// 1 for x of 1 or less.
int NextPowerOfTwo(int x);
// Clear a buffer when `count` is positive.
void ZeroReals(float* buffer, int count);
void ZeroFft(kiss_fft_cpx* buffer, int count);
// Releases a table made by FFTConv::OutputShape; null is allowed.
void DeleteWeightFfts(kiss_fft_cpx*** ffts, int outputs, int inputs);

// The convolution of Conv with `same` padding, for kernels along one axis (1 x K or K x 1),
// computed with real FFTs. An odd kernel gives Conv's numbers apart from rounding. A line is
// a row of the input (1 x K kernels) or a column (K x 1 kernels). The weights and bias are
// borrowed. One object serves one thread: OutputShape prepares per-call transforms that the
// channels then only read.
class FFTConv : public Layer {
 public:
  FFTConv(const ConvWeights& weights, const std::vector<float>& bias, Squash::Nonlinearities squash_,
          bool same);
  FFTConv(FFTConv&& other) noexcept;
  FFTConv(const FFTConv&) = delete;
  FFTConv& operator=(const FFTConv&) = delete;
  FFTConv& operator=(FFTConv&&) = delete;
  ~FFTConv() override;

  // The output shape; also lays out the transforms for this input's size and transforms the
  // flipped kernels and the input lines.
  std::vector<int> OutputShape(const std::vector<const Tensor*>& inputs) override;
  void CalculateChannel(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) override;

  std::vector<int> shape;  // output channels, input channels, kernel rows, kernel columns
  const ConvWeights& weights;
  const std::vector<float>& bias;
  bool same;
  int fft_size = 0;
  int kernel_offset = 0;
  int input_offset = 0;
  int kernel_length = 0;
  bool along_rows = false;
  kiss_fft_cpx*** weight_ffts = nullptr;  // [output][input], fft_size entries each

 private:
  bool TransformKernels();
  void TransformInput(const Tensor& input);
  void ReleaseTransforms();

  int fft_outputs = 0;  // the dimensions weight_ffts was made with
  int fft_inputs = 0;
  int lines = 0;        // lines per channel of the current input
  int line_length = 0;  // L
  // Bins 0 to fft_size / 2, rounded up to whole vectors; the extra bins are zero and unread.
  int padded_bins = 0;
  // Real and imaginary parts apart, so that the products vectorise: the kernels' transforms
  // [output][input][part][bin], and each input channel's lines transformed once per call
  // instead of once per output channel (the same transform of the same numbers, so the
  // results do not change) [line][input][part][bin].
  std::vector<float> split_weight_ffts;
  std::vector<float> input_ffts;
};
