#include "nn/all_in_window_net.h"

#include <gtest/gtest.h>

#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <random>

#include "nn/note_net_weights.h"
#include "nn/npy_file.h"
#include "tests/support/python_modules.h"

namespace {

Tensor RandomWindow(unsigned seed) {
  std::mt19937 generator(seed);
  // Spectrogram-like: non-negative, mostly small, a few strong cells.
  std::exponential_distribution<float> amplitude(4.0f);
  Tensor t({1, 352, 720});
  for (auto& row : t.data[0])
    for (float& x : row) x = amplitude(generator);
  return t;
}

// One network for the whole suite: a window takes a while.
class AllInWindowNetTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir = new QTemporaryDir();
    weights_path = dir->filePath("notes.safetensors").toStdString();
    std::string error;
    ASSERT_TRUE(WriteNoteWeights(weights_path, RandomNoteWeights(2024), &error)) << error;
    ASSERT_TRUE(SetNetWeights(weights_path)) << NetWeightsError();
    input = new Tensor(RandomWindow(5));
    AllInWindowNet net(720, 12, 7, 7);
    output = new Tensor(net.Process(*input));
  }
  static void TearDownTestSuite() {
    ClearNetWeights();
    delete output;
    delete input;
    delete dir;
  }

  static QTemporaryDir* dir;
  static std::string weights_path;
  static Tensor* input;
  static Tensor* output;
};

QTemporaryDir* AllInWindowNetTest::dir = nullptr;
std::string AllInWindowNetTest::weights_path;
Tensor* AllInWindowNetTest::input = nullptr;
Tensor* AllInWindowNetTest::output = nullptr;

TEST_F(AllInWindowNetTest, AnswersTwoChannelsOfKeysByCroppedColumns) {
  ASSERT_EQ(output->shape, (std::vector<int>{2, 88, 138}));
  for (const auto& channel : output->data)
    for (const auto& row : channel)
      for (float p : row) {
        ASSERT_TRUE(std::isfinite(p));
        ASSERT_GE(p, 0.0f);
        ASSERT_LE(p, 1.0f);
      }
}

TEST_F(AllInWindowNetTest, CropFollowsTheMargins) {
  AllInWindowNet net(720, 12, 7, 7);
  EXPECT_EQ(std::get<0>(net.crop.ranges[2]), 21);
  EXPECT_EQ(std::get<1>(net.crop.ranges[2]), 159);
  AllInWindowNet wide_margins(720, 12, 10, 5);
  EXPECT_EQ(std::get<0>(wide_margins.crop.ranges[2]), 30);
  EXPECT_EQ(std::get<1>(wide_margins.crop.ranges[2]), 165);
}

TEST_F(AllInWindowNetTest, SilentWindowStaysFiniteAndSteadyInTime) {
  AllInWindowNet net(720, 12, 7, 7);
  const Tensor silent({1, 352, 720});
  const Tensor out = net.Process(silent);
  ASSERT_EQ(out.shape, (std::vector<int>{2, 88, 138}));
  for (int k = 0; k < 88; ++k) {
    for (int t = 0; t < 138; ++t) ASSERT_TRUE(std::isfinite(out.data[0][k][t]));
    // Away from the window's edges every column sees the same zeros.
    for (int t = 31; t < 100; ++t) ASSERT_NEAR(out.data[0][k][t], out.data[0][k][30], 1e-5f) << k << "," << t;
  }
}

TEST_F(AllInWindowNetTest, ThreadsAndSeparateNetworksAgree) {
  AllInWindowNet net(720, 12, 7, 7);
  const Tensor threaded = net.Run(*input, 2);
  EXPECT_EQ(threaded.data, output->data);
  std::vector<AllInWindowNet> nets;
  nets.emplace_back(720, 12, 7, 7);
  nets.emplace_back(720, 12, 7, 7);  // moves the first one
  EXPECT_EQ(nets[0].Process(*input).data, output->data);
}


const char kNoTorchNotice[] =
    "[ NOTICE   ] PyTorch is not installed: the note network was NOT compared with the PyTorch reference "
    "(scripts/test.sh installs python3-torch).";

// Runs the independent PyTorch model of the same layer table on `input` with the weights file at
// `weights`; its (2, 88, 138) probabilities, flattened, land in `expected`.
void RunPyTorchModel(const QString& python, const std::string& weights, const Tensor& input,
                     const QTemporaryDir& dir, std::vector<float>* expected) {
  const std::string in_path = dir.filePath("window.npy").toStdString();
  const std::string out_path = dir.filePath("torch_out.npy").toStdString();
  std::vector<float> flat;
  for (const auto& row : input.data[0]) flat.insert(flat.end(), row.begin(), row.end());
  std::string error;
  ASSERT_TRUE(NpyFile::Write(in_path, {352, 720}, flat, &error)) << error;

  QProcess process;
  process.setProcessChannelMode(QProcess::MergedChannels);
  process.start(python, {QString(TONEMILL_SOURCE_DIR) + "/training/reference/note_net.py", "--weights",
                         QString::fromStdString(weights), "--input", QString::fromStdString(in_path),
                         "--output", QString::fromStdString(out_path)});
  ASSERT_TRUE(process.waitForFinished(300000));
  ASSERT_EQ(process.exitCode(), 0) << process.readAll().toStdString();

  std::vector<int64_t> shape;
  ASSERT_TRUE(NpyFile::Read(out_path, &shape, expected, &error)) << error;
  ASSERT_EQ(shape, (std::vector<int64_t>{2, 88, 138}));
}

float LargestDifference(const Tensor& output, const std::vector<float>& expected) {
  float worst = 0.0f;
  size_t i = 0;
  for (int c = 0; c < 2; ++c)
    for (int k = 0; k < 88; ++k)
      for (int t = 0; t < 138; ++t, ++i) worst = std::max(worst, std::fabs(output.data[c][k][t] - expected[i]));
  return worst;
}

// An independent PyTorch model of the same layer table, on the same weights file, must give
// the same probabilities.
TEST_F(AllInWindowNetTest, MatchesTheIndependentPyTorchModel) {
  const QString python = PythonWithModules("torch, numpy");
  if (python.isEmpty()) {
    std::cout << kNoTorchNotice << std::endl;
    GTEST_SKIP() << "PyTorch not installed";
  }
  std::vector<float> expected;
  RunPyTorchModel(python, weights_path, *input, *dir, &expected);
  if (HasFatalFailure()) return;
  float spread = 0.0f;
  for (float p : expected) spread = std::max(spread, std::fabs(p - expected[0]));
  const float worst = LargestDifference(*output, expected);
  std::cout << "[ INFO     ] largest difference from PyTorch: " << worst << std::endl;
  EXPECT_LT(worst, 1e-4f);
  EXPECT_GT(spread, 0.05f) << "random weights should not saturate the output";
}

// The committed, trained weights go through the same comparison: training's model and the
// program's network must read every table the same way.
TEST(TrainedNoteWeightsTest, MatchTheIndependentPyTorchModel) {
  const std::string weights = std::string(TONEMILL_SOURCE_DIR) + "/resources/weights/notes.safetensors";
  if (!QFileInfo::exists(QString::fromStdString(weights))) GTEST_SKIP() << "no trained note weights";
  const QString python = PythonWithModules("torch, numpy");
  if (python.isEmpty()) {
    std::cout << kNoTorchNotice << std::endl;
    GTEST_SKIP() << "PyTorch not installed";
  }
  ASSERT_TRUE(SetNetWeights(weights)) << NetWeightsError();
  const Tensor input = RandomWindow(7);
  AllInWindowNet net(720, 12, 7, 7);
  const Tensor output = net.Process(input);
  ClearNetWeights();
  QTemporaryDir dir;
  std::vector<float> expected;
  RunPyTorchModel(python, weights, input, dir, &expected);
  if (HasFatalFailure()) return;
  const float worst = LargestDifference(output, expected);
  std::cout << "[ INFO     ] trained weights, largest difference from PyTorch: " << worst << std::endl;
  // Trained tables are larger than the random ones, so sums taken in another order drift further.
  EXPECT_LT(worst, 2e-4f);
}

}  // namespace
