#include <gtest/gtest.h>

#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <cmath>
#include <iostream>

#include "analysis/downbeat_detector.h"
#include "nn/npy_file.h"
#include "tests/support/python_modules.h"

// The NumPy front end of training/reference, on the bundled example recording, must give the
// features that the detector computes from the same samples.
TEST(BeatFeaturesReferenceTest, MatchesTheNumpyFrontEndOnARealFile) {
  const QString python = PythonWithModules("numpy");
  if (python.isEmpty()) {
    std::cout << "[ NOTICE   ] NumPy is not installed: the beat features were NOT compared with the NumPy "
                 "reference (scripts/test.sh installs python3-numpy)."
              << std::endl;
    GTEST_SKIP() << "NumPy not installed";
  }
  QTemporaryDir dir;
  const QString samples_path = dir.filePath("samples.npy"), features_path = dir.filePath("features.npy");
  QProcess process;
  process.setProcessChannelMode(QProcess::MergedChannels);
  process.start(python, {QString(TONEMILL_SOURCE_DIR) + "/training/reference/beat_features.py", "--wav",
                         QString(TONEMILL_SOURCE_DIR) + "/examples/example.wav", "--samples-out", samples_path,
                         "--features-out", features_path});
  ASSERT_TRUE(process.waitForFinished(300000));
  ASSERT_EQ(process.exitCode(), 0) << process.readAll().toStdString();

  std::vector<int64_t> shape;
  std::vector<float> values, expected;
  std::string error;
  ASSERT_TRUE(NpyFile::Read(samples_path.toStdString(), &shape, &values, &error)) << error;
  const std::vector<int> samples(values.begin(), values.end());
  ASSERT_TRUE(NpyFile::Read(features_path.toStdString(), &shape, &expected, &error)) << error;

  DownbeatDetector detector;
  std::vector<std::vector<float>> features;
  detector.Features(samples, &features);
  ASSERT_EQ(shape, (std::vector<int64_t>{static_cast<int64_t>(features.size()), 314}));
  ASSERT_GT(features.size(), 1000u);
  float worst = 0.0f, largest = 0.0f;
  for (size_t t = 0; t < features.size(); ++t)
    for (size_t c = 0; c < 314; ++c) {
      worst = std::max(worst, std::fabs(features[t][c] - expected[t * 314 + c]));
      largest = std::max(largest, expected[t * 314 + c]);
    }
  std::cout << "[ INFO     ] largest difference from NumPy: " << worst << " (largest feature " << largest << ")"
            << std::endl;
  EXPECT_LT(worst, 1e-4f);
  EXPECT_GT(largest, 1.0f) << "the example should not be near silence";
}
