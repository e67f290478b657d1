#include <gtest/gtest.h>

#include "score/spectrogram_area.h"

namespace {

TEST(SpectrogramArea, DefaultAreaIsTheWholeSong) {
  const SpectrogramArea area;
  EXPECT_TRUE(area.whole);
  EXPECT_EQ(area.first_key, 0.0);
  EXPECT_EQ(area.last_time, 0.0);
  EXPECT_TRUE(area.Contains(87, 1e6));
  EXPECT_TRUE(area.Contains(-3, -1.0));
}

TEST(SpectrogramArea, BoundsAreInclusiveOnBothAxes) {
  const SpectrogramArea area(10, 20, 1.5, 2.5);
  EXPECT_FALSE(area.whole);
  EXPECT_TRUE(area.Contains(10, 1.5));
  EXPECT_TRUE(area.Contains(20, 2.5));
  EXPECT_FALSE(area.Contains(9, 2.0));
  EXPECT_FALSE(area.Contains(21, 2.0));
  EXPECT_FALSE(area.Contains(15, 1.4999));
  EXPECT_FALSE(area.Contains(15, 2.5001));
  // Select-all widens the key range by one either way.
  EXPECT_TRUE(SpectrogramArea(-1.0, 88.0, 0.0, 1.0).Contains(87, 0.5));
}

}  // namespace
