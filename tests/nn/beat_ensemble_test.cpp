#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <random>

#include "nn/beat_net_weights.h"
#include "nn/bi_beat_net.h"
#include "nn/bi_beat_net_ensemble.h"

namespace {

Tensor RandomFeatures(int frames, unsigned seed) {
  std::mt19937 generator(seed);
  std::uniform_real_distribution<float> dist(0.0f, 1.5f);
  Tensor t({1, frames, BiBeatNet::kInputFeatures});
  for (auto& row : t.data[0])
    for (float& x : row) x = dist(generator);
  return t;
}

class BeatEnsembleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    path = dir.filePath("beats.safetensors").toStdString();
    weights = RandomBeatWeights(42, 0.6f);
    std::string error;
    ASSERT_TRUE(WriteBeatWeights(path, weights, false, &error)) << error;
  }

  QTemporaryDir dir;
  std::string path;
  std::map<std::string, SafetensorsFile::FloatTensor> weights;
};

}  // namespace

TEST_F(BeatEnsembleTest, TensorNamesFollowTheDocumentedScheme) {
  EXPECT_EQ(BeatTensorName(3, 2, true, "forget_gate", "recurrent_weights"),
            "net3.layer2.backward.forget_gate.recurrent_weights");
  EXPECT_EQ(BeatLinearTensorName(7, "bias"), "net7.linear.bias");
  // 8 nets x (3 layers x 2 directions x (4 blocks x 4 fields + 3 peepholes) + 2 dense tensors).
  EXPECT_EQ(weights.size(), 8u * (3 * 2 * 19 + 2));
  EXPECT_EQ(weights.at("net0.layer0.forward.input_gate.input_weights").shape, (std::vector<int64_t>{314, 25}));
  EXPECT_EQ(weights.at("net5.layer1.backward.cell.input_weights").shape, (std::vector<int64_t>{50, 25}));
  EXPECT_EQ(weights.count("net0.layer0.forward.cell.peepholes"), 0u);
}

TEST_F(BeatEnsembleTest, LoaderFillsEveryBlockAndScaleSparesExtraBias) {
  SafetensorsFile file;
  std::string error;
  ASSERT_TRUE(file.Open(path, &error)) << error;
  BiBeatNet net;
  ASSERT_TRUE(LoadW5(&net, file, &error)) << error;
  const LSTMCells& gate = net.second.backward.output_gate;
  const auto& stored = weights.at("net5.layer1.backward.output_gate.recurrent_weights").values;
  EXPECT_EQ(gate.recurrent_weights[2][3], stored[2 * 25 + 3]);
  const float extra = gate.extra_bias[4];
  const float peephole = gate.peepholes[4];
  const float dense = net.output.weights[49][2];
  net.Scale();
  EXPECT_EQ(gate.extra_bias[4], extra);
  EXPECT_EQ(gate.peepholes[4], peephole * 0.5318532f);
  EXPECT_EQ(gate.recurrent_weights[2][3], stored[2 * 25 + 3] * 0.5318532f);
  EXPECT_EQ(net.output.weights[49][2], dense * 0.5318532f);
}

TEST_F(BeatEnsembleTest, SingleFrameGivesProbabilitiesThatSumToOne) {
  BiBeatNetEnsemble ensemble(path);
  const Tensor out = ensemble.Process(RandomFeatures(1, 1), 2);
  ASSERT_EQ(out.shape, (std::vector<int>{1, 1, 3}));
  EXPECT_NEAR(out.data[0][0][0] + out.data[0][0][1] + out.data[0][0][2], 1.0f, 1e-6f);
  ASSERT_EQ(ensemble.outputs.size(), 8u);
  for (const Tensor& net_out : ensemble.outputs) {
    const auto& row = net_out.data[0][0];
    EXPECT_NEAR(row[0] + row[1] + row[2], 1.0f, 1e-6f);
  }
}

TEST_F(BeatEnsembleTest, ThreadCountDoesNotChangeTheResultAndNetsAreLoadedAfresh) {
  const Tensor input = RandomFeatures(37, 2);
  BiBeatNetEnsemble ensemble(path);
  const Tensor one = ensemble.Process(input, 1);
  const Tensor eight = ensemble.Process(input, 8);  // a second call must not scale twice
  EXPECT_EQ(one.data, eight.data);
  EXPECT_EQ(ensemble.nets.size(), 8u);
  // The average is that of the eight nets' outputs.
  for (int k = 0; k < 3; ++k) {
    float sum = 0.0f;
    for (const Tensor& net_out : ensemble.outputs) sum += net_out.data[0][20][k];
    EXPECT_EQ(one.data[0][20][k], sum * 0.125f);
  }
}

TEST_F(BeatEnsembleTest, NoFramesGiveNoRows) {
  BiBeatNetEnsemble ensemble(path);
  const Tensor out = ensemble.Process(Tensor({1, 0, BiBeatNet::kInputFeatures}), 3);
  EXPECT_TRUE(ensemble.error.empty());
  EXPECT_EQ(out.shape, (std::vector<int>{1, 0, 3}));
  EXPECT_TRUE(ensemble.Process(Tensor(), 1).data.empty());
  EXPECT_FALSE(ensemble.error.empty());
}

TEST_F(BeatEnsembleTest, PrescaledFileGivesTheSameActivations) {
  auto scaled = weights;
  for (auto& [name, tensor] : scaled)
    if (name.find("extra_bias") == std::string::npos)
      for (float& v : tensor.values) v *= BiBeatNet::kWeightScale;
  const std::string scaled_path = dir.filePath("scaled.safetensors").toStdString();
  std::string error;
  ASSERT_TRUE(WriteBeatWeights(scaled_path, scaled, true, &error));
  const Tensor input = RandomFeatures(12, 3);
  BiBeatNetEnsemble raw(path), prescaled(scaled_path);
  EXPECT_EQ(raw.Process(input, 2).data, prescaled.Process(input, 2).data);
}

TEST_F(BeatEnsembleTest, MissingOrIncompleteWeightsAreReportedByName) {
  BiBeatNetEnsemble missing(dir.filePath("absent.safetensors").toStdString());
  EXPECT_TRUE(missing.Process(RandomFeatures(3, 4), 1).data.empty());
  EXPECT_NE(missing.error.find("absent.safetensors"), std::string::npos) << missing.error;

  auto incomplete = weights;
  incomplete.erase("net6.layer2.forward.input_gate.peepholes");
  const std::string incomplete_path = dir.filePath("incomplete.safetensors").toStdString();
  std::string error;
  ASSERT_TRUE(WriteBeatWeights(incomplete_path, incomplete, false, &error));
  BiBeatNetEnsemble ensemble(incomplete_path);
  EXPECT_TRUE(ensemble.Process(RandomFeatures(3, 4), 1).data.empty());
  EXPECT_NE(ensemble.error.find("net6.layer2.forward.input_gate.peepholes"), std::string::npos);
  EXPECT_NE(ensemble.error.find("incomplete.safetensors"), std::string::npos);
}
