#include "output/string_fret_data.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace {

using Placement = std::vector<std::pair<int, int>>;

TEST(StringFretData, KeysTakeTheFirstFreeStringInTuningOrder) {
  const StringFretData guitar(19, {43, 38, 34, 29, 24, 19});
  EXPECT_EQ(guitar.StringsFrets({19}), (Placement{{6, 0}}));
  // Lowest first: 24 takes the A string open, then 24 again goes to the E string at fret 5.
  EXPECT_EQ(guitar.StringsFrets({24, 24}), (Placement{{5, 0}, {6, 5}}));
  // Results follow the order of the keys given, not the order of placement.
  EXPECT_EQ(guitar.StringsFrets({47, 19}), (Placement{{1, 4}, {6, 0}}));
}

TEST(StringFretData, KeysNoStringReachesGetMinusOne) {
  const StringFretData guitar(19, {43, 38, 34, 29, 24, 19});
  EXPECT_EQ(guitar.StringsFrets({18, 62, 63}), (Placement{{-1, -1}, {1, 19}, {-1, -1}}));
  // Seven keys for six strings: the last finds every string taken.
  EXPECT_EQ(guitar.StringsFrets({43, 43, 43, 43, 43, 43, 43}).back(), (std::pair<int, int>{-1, -1}));
}

TEST(StringFretData, ReentrantTuningTriesStringsInListOrder) {
  const StringFretData ukulele(15, {48, 43, 39, 46});
  // Key 46 is the open fourth string, but the second string (43) comes first in the list.
  EXPECT_EQ(ukulele.StringsFrets({46}), (Placement{{2, 3}}));
  EXPECT_EQ(ukulele.StringsFrets({43, 46}), (Placement{{2, 0}, {3, 7}}));
}

TEST(StringFretData, UnsetFretCountLimitsNothingButTheOpenString) {
  const StringFretData bass(-1, {22, 17, 12, 7});
  EXPECT_EQ(bass.StringsFrets({60, 6}), (Placement{{1, 38}, {-1, -1}}));
}

}  // namespace
