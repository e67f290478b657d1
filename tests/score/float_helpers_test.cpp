#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "score/float_helpers.h"

namespace {

TEST(FloatEquals, ToleranceIsInclusiveAndNanCountsAsEqual) {
  EXPECT_TRUE(float_equals(1.0, 1.5, 0.5));
  EXPECT_FALSE(float_equals(1.0, 1.5000001, 0.5));
  EXPECT_TRUE(float_equals(1.0f, 1.25f, 0.25f));
  EXPECT_FALSE(float_equals(1.0f, 1.5f, 0.25f));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(float_equals(nan, 3.0, 0.1));
  EXPECT_TRUE(float_equals(std::numeric_limits<float>::quiet_NaN(), 3.0f, 0.1f));
}

TEST(FloorMod, TakesTheSignOfTheDivisor) {
  EXPECT_FLOAT_EQ(floor_mod(7.0f, 3.0f), 1.0f);
  EXPECT_FLOAT_EQ(floor_mod(-7.0f, 3.0f), 2.0f);
  EXPECT_FLOAT_EQ(floor_mod(7.0f, -3.0f), -2.0f);
  EXPECT_FLOAT_EQ(floor_mod(-1.5f, 12.0f), 10.5f);
  EXPECT_FLOAT_EQ(floor_mod(24.0f, 12.0f), 0.0f);
}

TEST(ParabolaInterpolation, FindsTheVertexOfAKnownParabola) {
  // y = -2 (x - 1.3)^2 + 4 through three unevenly spaced points.
  auto y = [](double x) { return -2.0 * (x - 1.3) * (x - 1.3) + 4.0; };
  double xv = 0.0, yv = 0.0;
  parabola_interpolation(0.0, y(0.0), 1.0, y(1.0), 3.5, y(3.5), &xv, &yv);
  EXPECT_NEAR(xv, 1.3, 1e-12);
  EXPECT_NEAR(yv, 4.0, 1e-12);
}

TEST(ParabolaInterpolation, DegenerateCasesReturnTheMiddlePoint) {
  double xv = 0.0, yv = 0.0;
  parabola_interpolation(1.0, 1.0, 2.0, 2.0, 3.0, 3.0, &xv, &yv);  // collinear
  EXPECT_EQ(xv, 2.0);
  EXPECT_EQ(yv, 2.0);
  parabola_interpolation(1.0, 5.0, 1.0, 7.0, 3.0, 2.0, &xv, &yv);  // repeated abscissa
  EXPECT_EQ(xv, 1.0);
  EXPECT_EQ(yv, 7.0);
}

TEST(ParabolaInterpolationEven, MatchesTheGeneralFitOnEvenSpacing) {
  auto y = [](double x) { return 0.7 * x * x - 3.1 * x + 2.0; };
  double xe = 0.0, ye = 0.0, xg = 0.0, yg = 0.0;
  parabola_interpolation_even(1.5, y(1.5), 2.0, y(2.0), 2.5, y(2.5), &xe, &ye);
  parabola_interpolation(1.5, y(1.5), 2.0, y(2.0), 2.5, y(2.5), &xg, &yg);
  EXPECT_NEAR(xe, 3.1 / 1.4, 1e-12);
  EXPECT_NEAR(xe, xg, 1e-12);
  EXPECT_NEAR(ye, yg, 1e-12);
}

}  // namespace
