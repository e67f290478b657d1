#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "analysis/auto_focus_spectrogram.h"
#include "score/spectrogram.h"

namespace {

std::vector<int> Tops(const std::vector<Peak>& peaks) {
  std::vector<int> tops;
  for (const Peak& p : peaks) tops.push_back(p.top);
  return tops;
}

TEST(FindPeaks, AHumpRunsFromBeforeItsRiseToItsLastFall) {
  //                              0  1  2  3  4  5  6  7  8
  const std::vector<float> row = {1, 1, 3, 5, 4, 4, 2, 6, 6};
  const std::vector<Peak> peaks = AutoFocusSpectrogram::FindPeaks(row);
  ASSERT_EQ(peaks.size(), 1u);  // the second rise never falls
  EXPECT_EQ(peaks[0].start, 1);
  EXPECT_EQ(peaks[0].top, 3);
  EXPECT_EQ(peaks[0].end, 6);  // the flat run at 4..5 changes nothing
  EXPECT_DOUBLE_EQ(peaks[0].height, 3.0);

  // A rise before any fall keeps the hump open: it starts at 0 and tops at 4.
  const std::vector<Peak> open = AutoFocusSpectrogram::FindPeaks({0, 1, 1, 2, 5, 3});
  ASSERT_EQ(open.size(), 1u);
  EXPECT_EQ(std::make_tuple(open[0].start, open[0].top, open[0].end), std::make_tuple(0, 4, 5));
}

TEST(FindPeaks, ARiseAfterAFallStartsTheNextHumpAtTheSampleBeforeIt) {
  const std::vector<float> row = {5, 3, 4, 2, 3, 1, 2, 0.5f};  // an opening fall is no hump
  const std::vector<Peak> peaks = AutoFocusSpectrogram::FindPeaks(row);
  ASSERT_EQ(peaks.size(), 3u);
  EXPECT_EQ(peaks[0].start, 1);
  EXPECT_EQ(peaks[1].start, 3);
  EXPECT_EQ(peaks[2].start, 5);
  EXPECT_EQ(Tops(peaks), (std::vector<int>{2, 4, 6}));
  EXPECT_DOUBLE_EQ(peaks[2].height, 1.5);
  EXPECT_TRUE(AutoFocusSpectrogram::FindPeaks({}).empty());
  EXPECT_TRUE(AutoFocusSpectrogram::FindPeaks({2, 2, 2}).empty());
}

// The Q rule on hand-made preview rows: 5 ms preview columns, 0.1 s map columns.
class QMapRowTest : public ::testing::Test {
 protected:
  QMapRowTest() {
    preview.time_step = 0.005;
    preview.Initialize(0.0, 4.0, 0.602);  // 800 columns
    q_map.time_step = 0.1;
    q_map.Initialize(0.0, 4.0, 0.602);  // 40 columns
  }

  // Triangular humps of `height` on a floor of 0.5, one every `spacing` columns, from
  // column `first` to `last`.
  std::vector<float> Humps(int first, int last, int spacing, float height) const {
    std::vector<float> row(preview.num_times, 0.5f);
    for (int top = first; top <= last; top += spacing) {
      row[top] = 0.5f + height;
      row[top - 1] = row[top + 1] = 0.5f + height / 2;
    }
    return row;
  }

  std::vector<float> QRow(const std::vector<float>& preview_row) const {
    std::vector<float> q(q_map.num_times, -1.0f);
    calculator.FillQMapRow(preview_row, preview, q_map, &q);
    return q;
  }

  AutoFocusSpectrogram calculator;
  Spectrogram preview;
  Spectrogram q_map;
};

TEST_F(QMapRowTest, TwoLargePeaksAreNotEnough) {
  for (float q : QRow(Humps(300, 340, 40, 30.0f))) EXPECT_EQ(q, 5.0f);
}

TEST_F(QMapRowTest, PulsationsRaiseQByTheirHeightTimesTheirNumber) {
  // Humps of 0.3 every 40 columns (0.2 s) from 120 to 680. Map column 20 is preview column
  // 400: the humps at 320 .. 480 lie within 80 columns, five of them.
  const std::vector<float> q = QRow(Humps(120, 680, 40, 0.3f));
  EXPECT_FLOAT_EQ(q[20], static_cast<float>(0.3 * 5 * 5 / 15.0 + 5.0));
  // Column 2 (preview 40) reaches the hump at 120 only, column 5 (preview 100) those at
  // 120 and 160: too few.
  EXPECT_EQ(q[2], 5.0f);
  EXPECT_EQ(q[5], 5.0f);
  // Column 6 (preview 120) reaches 120, 160 and 200: three.
  EXPECT_FLOAT_EQ(q[6], static_cast<float>(0.3 * 3 * 3 / 15.0 + 5.0));
  // Towards the end the cursor stays on the last hump while the window empties again:
  // column 34 (preview 680) reaches 600, 640 and 680, column 36 only 680.
  EXPECT_FLOAT_EQ(q[34], static_cast<float>(0.3 * 3 * 3 / 15.0 + 5.0));
  EXPECT_EQ(q[36], 5.0f);
  EXPECT_EQ(q[39], 5.0f);
}

TEST_F(QMapRowTest, SaturatesAtExactlyForty) {
  const std::vector<float> q = QRow(Humps(100, 700, 20, 50.0f));
  EXPECT_EQ(q[20], 40.0f);
}

TEST_F(QMapRowTest, QuietCellsStayAtMinimumQ) {
  std::vector<float> row = Humps(100, 700, 40, 0.3f);
  row[400] = 0.049f;  // map column 20 reads a quiet preview cell
  const std::vector<float> q = QRow(row);
  EXPECT_EQ(q[20], 5.0f);
  EXPECT_GT(q[19], 5.0f);
}

TEST(DftPeaks, PeaksAreStrictMaximaOfAWindowAndAtLeastThreeBinsApart) {
  std::vector<int> peaks = {99};
  DftPeaks({1, 5, 2, 1, 0, 0, 3, 2, 3.5, 1, 0}, &peaks);
  // 1 wins the window 0..4; 6 ties nothing but loses to 8 (window 4..8); 8 wins 6..10.
  EXPECT_EQ(peaks, (std::vector<int>{1, 8}));

  DftPeaks({4, 1, 1, 1, 1, 1, 9}, &peaks);  // the first window is asymmetric: 0..4
  EXPECT_EQ(peaks, (std::vector<int>{0, 6}));

  DftPeaks({2, 2, 2, 2}, &peaks);  // equal neighbours are no peak
  EXPECT_TRUE(peaks.empty());
  DftPeaks({}, &peaks);
  EXPECT_TRUE(peaks.empty());
  DftPeaks({3}, &peaks);
  EXPECT_EQ(peaks, std::vector<int>{0});
}

}  // namespace
