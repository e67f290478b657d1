#include <gtest/gtest.h>

#include <cmath>
#include <mutex>
#include <set>
#include <thread>

#include "nn/batch_norm.h"
#include "nn/layer.h"
#include "nn/layer_norm.h"
#include "nn/linear_layer.h"
#include "nn/max_pool.h"
#include "nn/slice.h"
#include "nn/sum.h"
#include "nn/tensor.h"

namespace {

using N = Squash::Nonlinearities;

// Records the threads its channels ran on and writes the channel index into every cell.
class ThreadRecordingLayer : public Layer {
 public:
  explicit ThreadRecordingLayer(int channels_) : channels(channels_) {}
  std::vector<int> OutputShape(const std::vector<const Tensor*>&) override { return {channels, 2, 3}; }
  void CalculateChannel(const std::vector<const Tensor*>&, int channel, Tensor* output) override {
    {
      std::lock_guard<std::mutex> lock(mutex);
      threads.insert(std::this_thread::get_id());
    }
    for (auto& row : output->data[channel])
      for (float& x : row) x = static_cast<float>(channel);
  }
  int channels;
  std::mutex mutex;
  std::set<std::thread::id> threads;
};

Tensor Filled(int channels, int rows, int columns, float start) {
  Tensor t({channels, rows, columns});
  float v = start;
  for (auto& channel : t.data)
    for (auto& row : channel)
      for (float& x : row) x = v++;
  return t;
}

}  // namespace

TEST(TensorTest, ShapeFromNestingAndResizeKeepsOverlap) {
  Tensor t(std::vector<std::vector<std::vector<float>>>{{{1, 2, 3}, {4, 5, 6}}});
  EXPECT_EQ(t.shape, (std::vector<int>{1, 2, 3}));
  t.Resize({2, 3, 2});
  EXPECT_EQ(t.shape, (std::vector<int>{2, 3, 2}));
  EXPECT_EQ(t.data[0][0], (std::vector<float>{1, 2}));
  EXPECT_EQ(t.data[0][1], (std::vector<float>{4, 5}));
  EXPECT_EQ(t.data[0][2], (std::vector<float>{0, 0}));
  EXPECT_EQ(t.data[1][2], (std::vector<float>{0, 0}));
  t.Zero();
  EXPECT_EQ(t.data[0][0][0], 0.0f);
}

TEST(TensorTest, StatisticsArePopulationStatistics) {
  // Channel 0: 1 2 3 4, channel 1: 5 6 7 8.
  const Tensor t = Filled(2, 2, 2, 1.0f);
  float mean = 0.0f;
  EXPECT_FLOAT_EQ(t.Mean(), 4.5f);
  EXPECT_FLOAT_EQ(t.Variance(&mean), 5.25f);  // sum of squared deviations 42 over 8
  EXPECT_FLOAT_EQ(mean, 4.5f);
  EXPECT_FLOAT_EQ(t.ChannelMean(1), 6.5f);
  EXPECT_FLOAT_EQ(t.ChannelVariance(1, &mean), 1.25f);
  EXPECT_FLOAT_EQ(mean, 6.5f);
  EXPECT_FLOAT_EQ(t.Variance(nullptr), 5.25f);
}

TEST(LayerTest, OneChannelOutputNeverStartsThreads) {
  ThreadRecordingLayer layer(1);
  Tensor in({1, 1, 1});
  layer({&in}, 8);
  ASSERT_EQ(layer.threads.size(), 1u);
  EXPECT_EQ(*layer.threads.begin(), std::this_thread::get_id());
}

TEST(LayerTest, ChannelsOnSeveralThreadsFillEveryChannel) {
  for (int threads : {1, 3, 8}) {
    ThreadRecordingLayer layer(17);
    Tensor in({1, 1, 1});
    const Tensor out = layer({&in}, threads);
    for (int c = 0; c < 17; ++c) EXPECT_EQ(out.data[c][1][2], static_cast<float>(c));
    if (threads == 1) {
      EXPECT_EQ(*layer.threads.begin(), std::this_thread::get_id());
    }
  }
}

TEST(SquashTest, SoftmaxNormalisesAndSurvivesUnderflow) {
  EXPECT_EQ(Squash::NonLinearity(N::Softmax)(3.0f), 3.0f);  // not an element function

  std::vector<float> out;
  Squash::Softmax({1.0f, 2.0f, 3.0f}, &out);
  EXPECT_NEAR(out[0] + out[1] + out[2], 1.0f, 1e-6f);
  EXPECT_NEAR(out[2] / out[1], std::exp(1.0f), 1e-5f);

  // Every exponential underflows: the row stays zero instead of becoming NaN.
  Squash::Softmax({-1000.0f, -2000.0f, -1500.0f}, &out);
  EXPECT_EQ(out, (std::vector<float>{0.0f, 0.0f, 0.0f}));
}

TEST(LayerTest, SoftmaxLayerNormalisesEachRow) {
  LinearLayer layer(N::Softmax);
  layer.weights = {{1.0f, 0.0f}, {0.0f, 1.0f}};
  layer.bias = {0.0f, 0.0f};
  Tensor in(std::vector<std::vector<std::vector<float>>>{{{0.0f, 0.0f}, {0.0f, std::log(3.0f)}}});
  const Tensor out = layer({&in}, 1);
  EXPECT_FLOAT_EQ(out.data[0][0][0], 0.5f);
  EXPECT_FLOAT_EQ(out.data[0][1][1], 0.75f);
}

TEST(SumTest, SingleChannelIsAddedToAllChannelsOfTheWiderInput) {
  Tensor one = Filled(1, 2, 2, 1.0f);
  Tensor wide({32, 2, 2});
  for (auto& channel : wide.data) channel[1][1] = 10.0f;
  const Tensor out = Sum(N::None)({&one, &wide}, 4);
  ASSERT_EQ(out.shape, (std::vector<int>{32, 2, 2}));
  for (int c = 0; c < 32; ++c) {
    EXPECT_EQ(out.data[c][0][0], 1.0f);
    EXPECT_EQ(out.data[c][1][1], 14.0f);
  }
}

TEST(SumTest, TilingStopsAtTheRepeatFactor) {
  // 3 channels into 32: the repeat factor is 10, so channels 30 and 31 get nothing from the first.
  Tensor narrow({3, 1, 1});
  for (int c = 0; c < 3; ++c) narrow.data[c][0][0] = static_cast<float>(c + 1);
  Tensor wide({32, 1, 1});
  const Tensor out = Sum(N::Relu)({&narrow, &wide}, 1);
  EXPECT_EQ(out.data[0][0][0], 1.0f);
  EXPECT_EQ(out.data[4][0][0], 2.0f);
  EXPECT_EQ(out.data[29][0][0], 3.0f);
  EXPECT_EQ(out.data[30][0][0], 0.0f);
  EXPECT_EQ(out.data[31][0][0], 0.0f);
}

TEST(SumTest, EqualShapesAddElementwiseAndSquash) {
  Tensor a = Filled(2, 1, 2, -3.0f);  // -3 -2 | -1 0
  Tensor b = Filled(2, 1, 2, 1.0f);   // 1 2 | 3 4
  const Tensor out = Sum(N::Relu)({&a, &b, &b}, 2);
  EXPECT_EQ(out.data[0][0], (std::vector<float>{0.0f, 2.0f}));
  EXPECT_EQ(out.data[1][0], (std::vector<float>{5.0f, 8.0f}));
}

TEST(MaxPoolTest, PaddingActsAsMinusInfinity) {
  Tensor in(std::vector<std::vector<std::vector<float>>>{{{-5.0f}}});
  const Tensor out = MaxPool({3, 3}, {1, 1}, {1, 1}, N::None)({&in}, 1);
  ASSERT_EQ(out.shape, (std::vector<int>{1, 1, 1}));
  EXPECT_EQ(out.data[0][0][0], -5.0f);
}

TEST(MaxPoolTest, ShapeStridesAndWindowsOutside) {
  const Tensor in = Filled(2, 4, 5, 0.0f);
  const Tensor out = MaxPool({2, 2}, {2, 2}, {0, 0}, N::None)({&in}, 2);
  // ceil((4 + 1 - 2) / 2) = 2 rows, ceil((5 + 1 - 2) / 2) = 2 columns.
  ASSERT_EQ(out.shape, (std::vector<int>{2, 2, 2}));
  EXPECT_EQ(out.data[0][0][0], 6.0f);
  EXPECT_EQ(out.data[0][1][1], 18.0f);
  EXPECT_EQ(out.data[1][1][1], 38.0f);

  // Size 1 with padding 2: the first window lies wholly in the padding.
  const Tensor padded = MaxPool({1, 1}, {1, 1}, {2, 0}, N::None)({&in}, 1);
  ASSERT_EQ(padded.shape[1], 8);
  EXPECT_EQ(padded.data[0][0][0], -9e10f);
  EXPECT_EQ(padded.data[0][2][0], 0.0f);
}

TEST(SliceTest, StepsAndStopOfMinusOne) {
  const Tensor in = Filled(3, 5, 4, 0.0f);
  const Tensor rows = Slice({{0, -1, 1}, {0, -1, 2}, {0, -1, 1}})({&in}, 1);
  ASSERT_EQ(rows.shape, (std::vector<int>{3, 3, 4}));
  EXPECT_EQ(rows.data[0][0][0], 0.0f);
  EXPECT_EQ(rows.data[0][1][0], 8.0f);
  EXPECT_EQ(rows.data[0][2][0], 16.0f);

  const Tensor crop = Slice({{1, 3, 1}, {1, 4, 2}, {1, -1, 2}})({&in}, 2);
  ASSERT_EQ(crop.shape, (std::vector<int>{2, 2, 2}));
  EXPECT_EQ(crop.data[0][0], (std::vector<float>{25.0f, 27.0f}));
  EXPECT_EQ(crop.data[1][1], (std::vector<float>{53.0f, 55.0f}));
}

TEST(NormalisationTest, BatchNormFoldsIntoScaleAndOffset) {
  BatchNorm norm({1.0f, -2.0f}, {4.0f, 0.25f}, {2.0f, 1.0f}, {0.5f, 0.0f}, 0.0f);
  EXPECT_FLOAT_EQ(norm.scales[0], 1.0f);
  EXPECT_FLOAT_EQ(norm.offsets[0], -0.5f);
  Tensor in(std::vector<std::vector<std::vector<float>>>{{{3.0f}}, {{-1.0f}}});
  const Tensor out = norm({&in}, 2);
  EXPECT_FLOAT_EQ(out.data[0][0][0], 2.5f);  // (3 - 1) / 2 * 2 + 0.5
  EXPECT_FLOAT_EQ(out.data[1][0][0], 2.0f);  // (-1 + 2) / 0.5
}

TEST(NormalisationTest, LayerNormUsesEachChannelsOwnStatistics) {
  Tensor in = Filled(2, 2, 2, 0.0f);
  for (auto& row : in.data[1])
    for (float& x : row) x *= 100.0f;
  const Tensor out = LayerNorm({1.0f, 2.0f}, {0.0f, 1.0f}, 0.0f)({&in}, 2);
  for (int c = 0; c < 2; ++c) {
    float mean = 0.0f;
    const float variance = out.ChannelVariance(c, &mean);
    EXPECT_NEAR(mean, c == 0 ? 0.0f : 1.0f, 1e-5f);
    EXPECT_NEAR(variance, c == 0 ? 1.0f : 4.0f, 1e-4f);
  }
}

TEST(LinearLayerTest, OneOutputRowPerInputRow) {
  LinearLayer layer(N::None);
  layer.weights = {{1.0f, 2.0f, 0.0f}, {-1.0f, 0.5f, 3.0f}};
  layer.bias = {0.5f, 0.0f, -1.0f};
  Tensor in(std::vector<std::vector<std::vector<float>>>{{{1.0f, 2.0f}, {0.0f, -1.0f}}});
  const Tensor out = layer({&in}, 4);
  ASSERT_EQ(out.shape, (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(out.data[0][0], (std::vector<float>{-0.5f, 3.0f, 5.0f}));
  EXPECT_EQ(out.data[0][1], (std::vector<float>{1.5f, -0.5f, -4.0f}));
}
