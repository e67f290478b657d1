#include <gtest/gtest.h>

#include <QStringList>
#include <QTemporaryDir>
#include <cmath>
#include <limits>
#include <numeric>

#include "analysis/downbeat_detector.h"
#include "beat_track.h"
#include "nn/beat_net_weights.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

// Clicks of decaying noise-free tone every `interval` seconds, louder on every `meter`-th.
std::vector<float> Clicks(double seconds, double interval, int meter) {
  std::vector<float> mono(static_cast<size_t>(seconds * 44100), 0.0f);
  int k = 0;
  for (double t = 0.25; t < seconds; t += interval, ++k) {
    const size_t start = static_cast<size_t>(t * 44100);
    const double amplitude = k % meter == 0 ? 20000.0 : 9000.0;
    for (size_t i = 0; i < 2000 && start + i < mono.size(); ++i)
      mono[start + i] = static_cast<float>(amplitude * std::exp(-i / 300.0) * std::sin(2 * kPi * 880.0 * i / 44100));
  }
  return mono;
}

// What the detector said and how far it got.
struct Recorder {
  explicit Recorder(DownbeatDetector* detector) {
    QObject::connect(detector, &DownbeatDetector::Message,
                     [this](std::string text, bool fatal) { messages.emplace_back(text, fatal); });
    QObject::connect(detector, &DownbeatDetector::LogStep, [this](QString line) { log << line; });
    QObject::connect(detector, &DownbeatDetector::ProgressUpdate,
                     [this](std::shared_ptr<TranscriptionJob>, JobTasks::Tasks task, int done, int total) {
                       EXPECT_EQ(task, JobTasks::kBeats);
                       progress.emplace_back(done, total);
                     });
  }
  std::vector<std::pair<std::string, bool>> messages;
  QStringList log;
  std::vector<std::pair<int, int>> progress;
};

}  // namespace

TEST(DownbeatDetectorTest, FramesAreCentredOnTheHop) {
  std::vector<int> samples(441 * 5);
  std::iota(samples.begin(), samples.end(), 1);
  std::vector<std::vector<int>> frames;
  DownbeatDetector::FramedAudio(1024, 441, samples, &frames);
  ASSERT_EQ(frames.size(), 5u);  // an exact multiple of the hop gives exactly the quotient
  ASSERT_EQ(frames[0].size(), 1024u);
  for (int j = 0; j < 512; ++j) ASSERT_EQ(frames[0][j], 0) << "first half of the first frame";
  EXPECT_EQ(frames[0][512], 1);
  EXPECT_EQ(frames[2][0], samples[2 * 441 - 512]);
  EXPECT_EQ(frames[4][512 + 440], samples.back());
  EXPECT_EQ(frames[4][512 + 441], 0);

  samples.push_back(7);
  DownbeatDetector::FramedAudio(2048, 441, samples, &frames);
  EXPECT_EQ(frames.size(), 6u);
  DownbeatDetector::FramedAudio(4096, 441, {}, &frames);
  EXPECT_TRUE(frames.empty());
}

TEST(DownbeatDetectorTest, FilterbanksHaveUnitAreaAndTheFixedSizes) {
  DownbeatDetector detector;
  const int expected[][3] = {{1024, 3, 21}, {2048, 6, 45}, {4096, 12, 91}};
  int columns = 0;
  for (const auto& e : expected) {
    std::vector<FFTFilter> filters;
    detector.CalculateFilters(e[0], e[1], &filters);
    ASSERT_EQ(static_cast<int>(filters.size()), e[2]) << e[0];
    columns += 2 * e[2];
    int previous_start = -1;
    for (const FFTFilter& filter : filters) {
      double area = 0.0;
      for (float w : filter.weights) area += w;
      EXPECT_NEAR(area, 1.0, 1e-6);
      EXPECT_EQ(filter.weights.front(), 0.0f);
      EXPECT_GT(filter.start_bin, previous_start);
      EXPECT_LE(filter.start_bin + static_cast<int>(filter.weights.size()), e[0] / 2);
      previous_start = filter.start_bin;
    }
  }
  EXPECT_EQ(columns, DownbeatDetector::kNumFeatures);
}

TEST(DownbeatDetectorTest, FilterShapeRisesThenFalls) {
  const FFTFilter filter(10, 12, 16);  // rises over 2 bins, falls over 4
  ASSERT_EQ(filter.weights.size(), 6u);
  const double sum = 0.0 + 0.5 + 1.0 + 0.75 + 0.5 + 0.25;
  const double expected[] = {0.0, 0.5, 1.0, 0.75, 0.5, 0.25};
  for (int i = 0; i < 6; ++i) EXPECT_NEAR(filter.weights[i], expected[i] / sum, 1e-7);
  EXPECT_EQ(filter.start_bin, 10);
}

TEST(DownbeatDetectorTest, FrequenciesAndWindow) {
  DownbeatDetector detector;
  std::vector<double> frequencies;
  detector.LogFrequencies(12, &frequencies);
  EXPECT_GE(frequencies.front(), 30.0);
  EXPECT_LE(frequencies.back(), 17000.0);
  EXPECT_TRUE(std::find_if(frequencies.begin(), frequencies.end(),
                           [](double f) { return std::abs(f - 440.0) < 1e-9; }) != frequencies.end());
  for (size_t i = 1; i < frequencies.size(); ++i)
    EXPECT_NEAR(frequencies[i] / frequencies[i - 1], std::pow(2.0, 1.0 / 12), 1e-6);

  const std::vector<double> window = DownbeatDetector::Window(1024);
  EXPECT_EQ(window[0], 0.0);
  EXPECT_NEAR(window[1023], 0.0, 1e-20);
  EXPECT_NEAR(window[511], window[512], 1e-12);
  EXPECT_NEAR(*std::max_element(window.begin(), window.end()), 1.0 / 32767, 1e-9);
}

TEST(DownbeatDetectorTest, DifferencesUseTheLagOfTheirRowLength) {
  std::vector<std::vector<float>> rows21 = {std::vector<float>(21, 1.0f), std::vector<float>(21, 3.0f),
                                            std::vector<float>(21, 2.0f)};
  std::vector<std::vector<float>> features;
  DownbeatDetector::AmplitudeDiffs(rows21, &features);
  ASSERT_EQ(features[0].size(), 42u);
  EXPECT_EQ(features[0][21], 0.0f);
  EXPECT_EQ(features[1][0], 3.0f);
  EXPECT_EQ(features[1][21], 2.0f);
  EXPECT_EQ(features[2][21], 0.0f) << "falls are clipped to zero";

  std::vector<std::vector<float>> rows91 = {std::vector<float>(91, 1.0f), std::vector<float>(91, 5.0f),
                                            std::vector<float>(91, 4.0f)};
  DownbeatDetector::AmplitudeDiffs(rows91, &features);
  EXPECT_EQ(features[1][91], 0.0f) << "rows before the lag of 2 have no differences";
  EXPECT_EQ(features[2][91], 3.0f);
}

TEST(DownbeatDetectorTest, SilenceGivesZeroFeaturesAndToneLightsItsBand) {
  DownbeatDetector detector;
  std::vector<std::vector<float>> features;
  detector.Features(std::vector<int>(44100, 0), &features);
  ASSERT_EQ(features.size(), 100u);
  for (const auto& row : features) {
    ASSERT_EQ(row.size(), 314u);
    for (float x : row) ASSERT_EQ(x, 0.0f);
  }

  std::vector<int> tone(44100);
  for (size_t i = 0; i < tone.size(); ++i) tone[i] = static_cast<int>(10000 * std::sin(2 * kPi * 1000.0 * i / 44100));
  detector.Features(tone, &features);
  // In the 12-band block (columns 132 .. 222) the strongest filter is the one centred nearest 1 kHz.
  std::vector<FFTFilter> filters;
  detector.CalculateFilters(4096, 12, &filters);
  const auto& row = features[50];
  const int best = static_cast<int>(std::max_element(row.begin() + 132, row.begin() + 223) - row.begin()) - 132;
  const double centre_hz = (filters[best].start_bin +
                            std::max_element(filters[best].weights.begin(), filters[best].weights.end()) -
                            filters[best].weights.begin()) *
                           44100.0 / 4096;
  EXPECT_NEAR(centre_hz, 1000.0, 1000.0 * 0.06);
  for (int c = 132 + 91; c < 314; ++c) EXPECT_LT(row[c], 0.05f) << "a steady tone has no onsets";
}

TEST(DownbeatDetectorTest, SampleListFollowsTheRate) {
  const std::vector<float> mono = {10.9f, -3.7f, 100.0f, std::numeric_limits<float>::quiet_NaN(), 1e20f};
  EXPECT_EQ(DownbeatDetector::BeatSamples(mono, 44100.0),
            (std::vector<int>{10, -3, 100, 0, std::numeric_limits<int>::max()}));
  EXPECT_EQ(DownbeatDetector::BeatSamples(mono, 48000.0).size(), mono.size());
  const std::vector<int> doubled = DownbeatDetector::BeatSamples({10.0f, 20.0f, -5.0f}, 22050.0);
  EXPECT_EQ(doubled, (std::vector<int>{10, 15, 20, 7, -5, -5}));
}

class DownbeatDetectorStageTest : public ::testing::Test {
 protected:
  std::string WriteWeights() {
    const std::string path = dir.filePath("beats.safetensors").toStdString();
    std::string error;
    EXPECT_TRUE(WriteBeatWeights(path, RandomBeatWeights(5, 0.3f), false, &error)) << error;
    return path;
  }
  QTemporaryDir dir;
};

TEST_F(DownbeatDetectorStageTest, ZeroSampleRateCancels) {
  auto job = beat_test::Job(std::vector<float>(44100, 0.0f));
  job->sample_rate = 0.0;
  DownbeatDetector detector;
  Recorder said(&detector);
  detector.Calculate(job);
  EXPECT_TRUE(job->cancelled);
  ASSERT_EQ(said.messages.size(), 1u);
  EXPECT_EQ(said.messages[0].first, job->language.INVALID_SAMPLE_RATE);
  EXPECT_FALSE(said.messages[0].second);
}

TEST_F(DownbeatDetectorStageTest, MissingWeightsCancelWithTheFileName) {
  auto job = beat_test::Job(Clicks(2.0, 0.5, 4));
  DownbeatDetector detector;
  detector.weights_path = dir.filePath("missing/beats.safetensors").toStdString();
  Recorder said(&detector);
  detector.Calculate(job);
  EXPECT_TRUE(job->cancelled);
  ASSERT_EQ(said.messages.size(), 1u);
  EXPECT_NE(said.messages[0].first.find("missing/beats.safetensors"), std::string::npos);
  EXPECT_TRUE(job->beats.empty());
  EXPECT_FALSE(job->beats_ready);
}

TEST_F(DownbeatDetectorStageTest, WholeStageGivesAWellFormedBeatList) {
  auto job = beat_test::Job(Clicks(6.0, 0.5, 4));
  DownbeatDetector detector;
  detector.weights_path = WriteWeights();
  Recorder said(&detector);
  detector.Calculate(job);
  ASSERT_FALSE(job->cancelled);
  EXPECT_TRUE(job->beats_ready);
  EXPECT_EQ(detector.job, nullptr);
  ASSERT_GE(job->beats.size(), 2u);
  EXPECT_EQ(job->beats.front().number, 1);
  EXPECT_EQ(job->beats.back().number, 1);
  EXPECT_GT(job->beats.back().time, job->end_time);
  ASSERT_FALSE(said.progress.empty());
  EXPECT_EQ(said.progress.back(), std::make_pair(10, 10)) << "the HMM stage ends the progress";
  EXPECT_EQ(said.log.size(), 1);
  EXPECT_TRUE(said.messages.empty());
}

TEST_F(DownbeatDetectorStageTest, EmptyAudioStillEndsWithBeats) {
  auto job = beat_test::Job({}, 0.0);
  DownbeatDetector detector;
  detector.weights_path = WriteWeights();
  detector.Calculate(job);
  ASSERT_FALSE(job->cancelled);
  EXPECT_GE(job->beats.size(), 2u);
}
