#include <gtest/gtest.h>

#include <cmath>

#include "score/keyboard.h"

namespace {

const std::vector<double>& keys = Keyboard::key_freqs_;

TEST(KeyboardTable, KeepsThePrintedRoundingOfTheFiveOddEntries) {
  ASSERT_EQ(keys.size(), 88u);
  EXPECT_EQ(keys[6], 38.89);
  EXPECT_EQ(keys[13], 58.271);
  EXPECT_EQ(keys[23], 103.82);
  EXPECT_EQ(keys[73], 1864.6);
  EXPECT_EQ(keys[81], 2959.9);
}

TEST(KeyboardTable, OtherEntriesAreEqualTemperamentToFiveSignificantDigits) {
  EXPECT_EQ(keys[0], 27.5);
  EXPECT_EQ(keys[48], 440.0);
  EXPECT_EQ(keys[87], 4186.0);
  EXPECT_EQ(keys[1], 29.135);
  EXPECT_EQ(keys[39], 261.63);
  EXPECT_EQ(keys[40], 277.18);
  EXPECT_EQ(keys[86], 3951.1);
  for (int k = 0; k < 88; ++k) {
    const double exact = 440.0 * std::pow(2.0, (k - 48) / 12.0);
    EXPECT_NEAR(keys[k] / exact, 1.0, 2e-4) << "key " << k;
    if (k > 0) {
      EXPECT_GT(keys[k], keys[k - 1]);
    }
  }
}

TEST(ClosestPianoKey, ClampsAtBothEndsOfTheKeyboard) {
  EXPECT_EQ(ClosestPianoKey(0.0), 0);
  EXPECT_EQ(ClosestPianoKey(-5.0), 0);
  EXPECT_EQ(ClosestPianoKey(100000.0), 87);
  EXPECT_EQ(ClosestPianoKey(4186.01), 87);
}

TEST(ClosestPianoKey, FindsEveryTableEntryExactly) {
  for (int k = 0; k < 88; ++k) EXPECT_EQ(ClosestPianoKey(keys[k]), k);
}

TEST(ClosestPianoKey, ComparesFrequencyDistanceAndBreaksTiesUpward) {
  // Between keys 11 and 12 the midpoint is an exact tie in double arithmetic.
  const double middle = (keys[11] + keys[12]) / 2.0;
  ASSERT_EQ(std::fabs(keys[11] - middle), std::fabs(keys[12] - middle));
  EXPECT_EQ(ClosestPianoKey(middle), 12);
  EXPECT_EQ(ClosestPianoKey(std::nextafter(middle, 0.0)), 11);
  // 453.0 Hz lies above the geometric midpoint of A4 and A#4 (452.89) but below the linear
  // one (453.08): by frequency distance it is still A4.
  EXPECT_EQ(ClosestPianoKey(453.0), 48);
}

}  // namespace
