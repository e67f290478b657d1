#include <gtest/gtest.h>

#include <QFileInfo>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <cmath>
#include <iostream>
#include <random>

#include "nn/beat_net_weights.h"
#include "nn/bi_beat_net_ensemble.h"
#include "nn/npy_file.h"
#include "tests/support/python_modules.h"

// PyTorch's own LSTM, built from the same weights file (peepholes zero, since it has none),
// must give the ensemble's activations to 1e-5: random tables scaled and unscaled, and the
// trained ones.
TEST(BeatEnsembleReferenceTest, MatchesPyTorchLSTMs) {
  const QString python = PythonWithModules("torch, numpy");
  if (python.isEmpty()) {
    std::cout << "[ NOTICE   ] PyTorch is not installed: the beat networks were NOT compared with the PyTorch "
                 "reference (scripts/test.sh installs python3-torch)."
              << std::endl;
    GTEST_SKIP() << "PyTorch not installed";
  }
  QTemporaryDir dir;
  auto weights = RandomBeatWeights(77, 0.5f);
  for (auto& [name, tensor] : weights)
    if (name.find("peepholes") != std::string::npos) std::fill(tensor.values.begin(), tensor.values.end(), 0.0f);

  const int frames = 300;
  std::mt19937 generator(8);
  std::uniform_real_distribution<float> dist(0.0f, 2.0f);
  Tensor input({1, frames, 314});
  std::vector<float> flat;
  for (auto& row : input.data[0])
    for (float& x : row) flat.push_back(x = dist(generator));
  const std::string input_path = dir.filePath("features.npy").toStdString();
  std::string error;
  ASSERT_TRUE(NpyFile::Write(input_path, {frames, 314}, flat, &error)) << error;

  // The random tables written scaled and unscaled, then the committed trained weights: training's
  // model and the program's networks must read every table the same way.
  struct WeightsFile {
    std::string what;
    std::string path;
    bool random;
  };
  std::vector<WeightsFile> files;
  for (bool scaled : {false, true}) {
    const std::string path = dir.filePath(scaled ? "scaled.safetensors" : "raw.safetensors").toStdString();
    ASSERT_TRUE(WriteBeatWeights(path, weights, scaled, &error)) << error;
    files.push_back({scaled ? "scaled file" : "unscaled file", path, true});
  }
  const std::string trained = std::string(TONEMILL_SOURCE_DIR) + "/resources/weights/beats.safetensors";
  if (QFileInfo::exists(QString::fromStdString(trained))) files.push_back({"trained weights", trained, false});

  for (const auto& [what, weights_path, random] : files) {
    SCOPED_TRACE(what);
    BiBeatNetEnsemble ensemble(weights_path);
    const Tensor output = ensemble.Process(input, 2);
    ASSERT_EQ(output.shape, (std::vector<int>{1, frames, 3}));

    const QString output_path = dir.filePath("torch.npy");
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(python, {QString(TONEMILL_SOURCE_DIR) + "/training/reference/beat_net.py", "--weights",
                           QString::fromStdString(weights_path), "--input", QString::fromStdString(input_path),
                           "--output", output_path});
    ASSERT_TRUE(process.waitForFinished(300000));
    ASSERT_EQ(process.exitCode(), 0) << process.readAll().toStdString();
    std::vector<int64_t> shape;
    std::vector<float> expected;
    ASSERT_TRUE(NpyFile::Read(output_path.toStdString(), &shape, &expected, &error)) << error;
    ASSERT_EQ(shape, (std::vector<int64_t>{frames, 3}));
    float worst = 0.0f, spread = 0.0f;
    for (int t = 0; t < frames; ++t)
      for (int k = 0; k < 3; ++k) {
        worst = std::max(worst, std::fabs(output.data[0][t][k] - expected[t * 3 + k]));
        spread = std::max(spread, std::fabs(expected[t * 3 + k] - expected[k]));
      }
    std::cout << "[ INFO     ] largest difference from PyTorch: " << worst << std::endl;
    EXPECT_LT(worst, 1e-5f);
    if (random) {
      EXPECT_GT(spread, 0.01f) << "random weights should not give a constant output";
    }
  }
}
