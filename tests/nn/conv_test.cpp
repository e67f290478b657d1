#include "nn/conv.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "nn/batch_norm.h"
#include "nn/conv_layer.h"
#include "nn/conv_layer_norm.h"
#include "nn/fft_conv.h"
#include "nn/fft_conv_layer.h"
#include "nn/layer_norm.h"

namespace {

using N = Squash::Nonlinearities;

ConvWeights RandomKernels(std::mt19937* generator, int outputs, int inputs, int rows, int columns) {
  std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
  ConvWeights w(outputs, std::vector<std::vector<std::vector<float>>>(
                             inputs, std::vector<std::vector<float>>(rows, std::vector<float>(columns))));
  for (auto& a : w)
    for (auto& b : a)
      for (auto& c : b)
        for (float& v : c) v = uniform(*generator);
  return w;
}

std::vector<float> RandomVector(std::mt19937* generator, int size) {
  std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
  std::vector<float> v(size);
  for (float& x : v) x = uniform(*generator);
  return v;
}

Tensor RandomTensor(std::mt19937* generator, int channels, int rows, int columns) {
  std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
  Tensor t({channels, rows, columns});
  for (auto& channel : t.data)
    for (auto& row : channel)
      for (float& x : row) x = uniform(*generator);
  return t;
}

// One channel, one row: kernel taps along the columns.
ConvWeights RowKernel(const std::vector<float>& taps) { return ConvWeights{{{taps}}}; }

float MaxAbs(const Tensor& t) {
  float m = 0.0f;
  for (const auto& channel : t.data)
    for (const auto& row : channel)
      for (float x : row) m = std::max(m, std::fabs(x));
  return m;
}

TEST(ConvTest, SamePaddingKeepsSizeAndBorderCellsUseFewerTaps) {
  const ConvWeights w = RowKernel({1.0f, 10.0f, 100.0f});
  const std::vector<float> bias{0.5f};
  Conv conv(w, bias, N::None, true, {1, 1});
  const Tensor input(std::vector<std::vector<std::vector<float>>>{{{1, 2, 3, 4, 5}}});
  const Tensor out = conv({&input}, 1);
  ASSERT_EQ(out.shape, (std::vector<int>{1, 1, 5}));
  // Cross-correlation, not convolution: tap 0 meets the left neighbour.
  EXPECT_FLOAT_EQ(out.data[0][0][0], 0.5f + 10 * 1 + 100 * 2);  // no mirrored cell at -1
  EXPECT_FLOAT_EQ(out.data[0][0][2], 0.5f + 1 * 2 + 10 * 3 + 100 * 4);
  EXPECT_FLOAT_EQ(out.data[0][0][4], 0.5f + 1 * 4 + 10 * 5);
}

TEST(ConvTest, ValidConvolutionShrinksAndStridesSkip) {
  std::mt19937 generator(1);
  const ConvWeights w = RandomKernels(&generator, 2, 3, 3, 3);
  const std::vector<float> bias{0.0f, 1.0f};
  const Tensor input = RandomTensor(&generator, 3, 9, 10);
  Conv valid(w, bias, N::None, false, {1, 1});
  EXPECT_EQ(valid.OutputShape({&input}), (std::vector<int>{2, 7, 8}));
  Conv strided(w, bias, N::None, true, {2, 3});
  const Tensor out = strided({&input}, 1);
  ASSERT_EQ(out.shape, (std::vector<int>{2, 5, 4}));  // ceil(9 / 2), ceil(10 / 3)
  const Tensor dense = Conv(w, bias, N::None, true, {1, 1})({&input}, 1);
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 4; ++x) EXPECT_FLOAT_EQ(out.data[1][y][x], dense.data[1][2 * y][3 * x]);
}

TEST(ConvTest, TwoRowKernelWithSamePaddingGrowsByOneRow) {
  const ConvWeights w{{{{1.0f}, {1.0f}}}};
  const std::vector<float> bias{0.0f};
  Conv conv(w, bias, N::None, true, {1, 1});
  const Tensor input(std::vector<std::vector<std::vector<float>>>{{{1, 2}, {3, 4}, {5, 6}}});
  const Tensor out = conv({&input}, 1);
  ASSERT_EQ(out.shape, (std::vector<int>{1, 4, 2}));
  EXPECT_FLOAT_EQ(out.data[0][0][0], 1.0f);  // only the first input row reaches
  EXPECT_FLOAT_EQ(out.data[0][1][1], 2.0f + 4.0f);
  EXPECT_FLOAT_EQ(out.data[0][3][0], 5.0f);
}

// The vectorised path must agree with the scalar one bit for bit: it adds the same terms in
// the same order, one SIMD lane per cell.
TEST(ConvTest, VectorisedPathEqualsReferenceExactly) {
  struct Case {
    int inputs, rows, columns, kernel_rows, kernel_columns;
  };
  const Case cases[] = {{12, 9, 100, 1, 7}, {25, 23, 45, 5, 1}, {3, 11, 70, 3, 3}, {5, 4, 180, 1, 45},
                        {4, 6, 30, 1, 45},  {2, 3, 3, 7, 7},    {1, 40, 37, 7, 1}, {6, 5, 64, 2, 4}};
  std::mt19937 generator(7);
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message()
                 << c.kernel_rows << "x" << c.kernel_columns << " on " << c.rows << "x" << c.columns);
    const ConvWeights w = RandomKernels(&generator, 3, c.inputs, c.kernel_rows, c.kernel_columns);
    const std::vector<float> bias = RandomVector(&generator, 3);
    const Tensor input = RandomTensor(&generator, c.inputs, c.rows, c.columns);
    Conv conv(w, bias, N::None, true, {1, 1});
    const Tensor fast = conv({&input}, 1);
    Tensor slow(fast.shape);
    for (int ch = 0; ch < 3; ++ch) conv.CalculateChannelReference({&input}, ch, &slow);
    for (int ch = 0; ch < 3; ++ch)
      for (int y = 0; y < fast.shape[1]; ++y)
        for (int x = 0; x < fast.shape[2]; ++x)
          ASSERT_EQ(fast.data[ch][y][x], slow.data[ch][y][x]) << "cell " << ch << "," << y << "," << x;
  }
}

TEST(ConvTest, ThreadsDoNotChangeTheResult) {
  std::mt19937 generator(3);
  const ConvWeights w = RandomKernels(&generator, 9, 4, 1, 5);
  const std::vector<float> bias = RandomVector(&generator, 9);
  const Tensor input = RandomTensor(&generator, 4, 8, 50);
  Conv conv(w, bias, N::Relu, true, {1, 1});
  const Tensor one = conv({&input}, 1);
  const Tensor four = conv({&input}, 4);
  EXPECT_EQ(one.data, four.data);
}

TEST(NextPowerOfTwoTest, RoundsUpAndKeepsPowers) {
  EXPECT_EQ(NextPowerOfTwo(108), 128);
  EXPECT_EQ(NextPowerOfTwo(128), 128);
  EXPECT_EQ(NextPowerOfTwo(190), 256);
  EXPECT_EQ(NextPowerOfTwo(64), 64);
  EXPECT_EQ(NextPowerOfTwo(256), 256);
  EXPECT_EQ(NextPowerOfTwo(512), 512);
  EXPECT_EQ(NextPowerOfTwo(129), 256);
  EXPECT_EQ(NextPowerOfTwo(1), 1);
}

class FFTConvTest : public ::testing::Test {
 protected:
  // FFTConv and Conv on the same random data; their largest difference relative to the
  // largest output.
  float RelativeDifference(int inputs, int outputs, int rows, int columns, int kernel_rows,
                           int kernel_columns, int threads = 1) {
    std::mt19937 generator(11 + kernel_rows * 100 + kernel_columns);
    kernels = RandomKernels(&generator, outputs, inputs, kernel_rows, kernel_columns);
    bias = RandomVector(&generator, outputs);
    const Tensor input = RandomTensor(&generator, inputs, rows, columns);
    Conv direct(kernels, bias, N::None, true, {1, 1});
    FFTConv fft(kernels, bias, N::None, true);
    const Tensor expected = direct({&input}, 1);
    const Tensor got = fft({&input}, threads);
    EXPECT_EQ(got.shape, expected.shape);
    if (got.shape != expected.shape) return 1.0f;
    float worst = 0.0f;
    for (int c = 0; c < got.shape[0]; ++c)
      for (int y = 0; y < got.shape[1]; ++y)
        for (int x = 0; x < got.shape[2]; ++x)
          worst = std::max(worst, std::fabs(got.data[c][y][x] - expected.data[c][y][x]));
    return worst / std::max(1.0f, MaxAbs(expected));
  }

  ConvWeights kernels;
  std::vector<float> bias;
};

TEST_F(FFTConvTest, AgreesWithConvAlongRowsAndColumns) {
  EXPECT_LT(RelativeDifference(8, 5, 12, 180, 1, 11), 1e-5f);  // lines of 180, fft_size 256
  EXPECT_LT(RelativeDifference(8, 5, 88, 14, 41, 1), 1e-5f);   // lines of 88, fft_size 128
  EXPECT_LT(RelativeDifference(50, 4, 88, 6, 21, 1), 1e-5f);   // the channel count of the network
}

TEST_F(FFTConvTest, LayoutFollowsTheLineAndKernelLengths) {
  std::mt19937 generator(5);
  kernels = RandomKernels(&generator, 2, 3, 31, 1);
  bias = RandomVector(&generator, 2);
  FFTConv fft(kernels, bias, N::None, true);
  const Tensor input = RandomTensor(&generator, 3, 88, 4);
  EXPECT_EQ(fft.OutputShape({&input}), (std::vector<int>{2, 88, 4}));
  EXPECT_TRUE(fft.along_rows);
  EXPECT_EQ(fft.kernel_length, 31);
  EXPECT_EQ(fft.fft_size, 128);  // 30 + 88 = 118
  EXPECT_EQ(fft.kernel_offset, (128 - 31) / 2);
  EXPECT_EQ(fft.input_offset, (128 - 88) / 2);
  ASSERT_NE(fft.weight_ffts, nullptr);
}

TEST_F(FFTConvTest, SingleSampleLinesWrapToTheLastBin) {
  // L = 1: the one output reads real[-1], the last sample of the transform buffer.
  EXPECT_LT(RelativeDifference(3, 2, 5, 1, 1, 11), 1e-5f);
  EXPECT_LT(RelativeDifference(3, 2, 1, 4, 7, 1), 1e-5f);
}

TEST_F(FFTConvTest, ChannelsOnSeveralThreadsGiveTheSameNumbers) {
  std::mt19937 generator(9);
  kernels = RandomKernels(&generator, 6, 4, 1, 11);
  bias = RandomVector(&generator, 6);
  const Tensor input = RandomTensor(&generator, 4, 10, 60);
  FFTConv fft(kernels, bias, N::Relu, true);
  const Tensor one = fft({&input}, 1);
  const Tensor three = fft({&input}, 3);
  EXPECT_EQ(one.data, three.data);
  // A moved layer keeps its borrowed weights and works on.
  FFTConv moved(std::move(fft));
  EXPECT_EQ(moved({&input}, 1).data, one.data);
}

TEST_F(FFTConvTest, TwoDimensionalKernelsAreNotComputed) {
  std::mt19937 generator(2);
  kernels = RandomKernels(&generator, 1, 1, 3, 3);
  bias = {5.0f};
  FFTConv fft(kernels, bias, N::None, true);
  const Tensor input = RandomTensor(&generator, 1, 6, 6);
  testing::internal::CaptureStdout();
  const Tensor out = fft({&input}, 1);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(MaxAbs(out), 0.0f);
}

TEST(ConvCompositeTest, NormaliseThenConvolveThenSquash) {
  std::mt19937 generator(4);
  const ConvWeights w = RandomKernels(&generator, 3, 2, 1, 5);
  const std::vector<float> bias{-50.0f, 0.0f, 0.25f};  // channel 0 ends below zero everywhere
  const std::vector<float> means{0.5f, -0.25f}, variances{2.0f, 0.5f}, gammas{1.5f, 0.5f}, betas{0.1f, -0.2f};
  const Tensor input = RandomTensor(&generator, 2, 4, 20);

  ConvLayer layer(means, variances, gammas, betas, w, bias, N::Relu, true);
  const Tensor got = layer({&input}, 1);
  BatchNorm norm(means, variances, gammas, betas, 1e-5f);
  const Tensor normalised = norm({&input}, 1);
  Tensor expected = Conv(w, bias, N::None, true, {1, 1})({&normalised}, 1);
  for (auto& channel : expected.data)
    for (auto& row : channel)
      for (float& x : row) x = std::max(x, 0.0f);
  EXPECT_EQ(got.data, expected.data);
  EXPECT_EQ(MaxAbs(Tensor(std::vector<std::vector<std::vector<float>>>{got.data[0]})), 0.0f);

  FFTConvLayer fft_layer(means, variances, gammas, betas, w, bias, N::Relu, true);
  const Tensor fft_got = fft_layer({&input}, 1);
  for (int c = 0; c < 3; ++c)
    for (int y = 0; y < 4; ++y)
      for (int x = 0; x < 20; ++x) EXPECT_NEAR(fft_got.data[c][y][x], expected.data[c][y][x], 1e-4f);
}

TEST(ConvCompositeTest, LayerNormUsesTheWholeChannel) {
  const ConvWeights w = RowKernel({1.0f});
  const std::vector<float> bias{0.0f}, gammas{2.0f}, betas{1.0f};
  ConvLayerNorm layer(gammas, betas, w, bias, N::None, true);
  const Tensor input(std::vector<std::vector<std::vector<float>>>{{{1, 3}, {1, 3}}});
  const Tensor out = layer({&input}, 1);
  // Mean 2, variance 1: (x - 2) / sqrt(1 + 1e-5) * 2 + 1.
  EXPECT_NEAR(out.data[0][0][0], -1.0f, 1e-4f);
  EXPECT_NEAR(out.data[0][1][1], 3.0f, 1e-4f);
}

}  // namespace
