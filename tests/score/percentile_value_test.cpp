#include "score/percentile_value.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace {

using Grid = std::vector<std::vector<float>>;

Grid RandomGrid(int rows, int cols, unsigned seed) {
  std::mt19937 random(seed);
  std::lognormal_distribution<float> loud(0.0f, 2.0f);
  Grid grid(rows, std::vector<float>(cols));
  for (auto& row : grid) {
    for (float& cell : row) cell = loud(random);
  }
  return grid;
}

// The k-th smallest of the sampled cells, k = trunc(n * fraction) + 1, capped at n.
float SortedOrderStatistic(std::vector<float> values, double fraction) {
  std::sort(values.begin(), values.end());
  const size_t k = std::min(static_cast<size_t>(std::trunc(values.size() * fraction)) + 1, values.size());
  return values[k - 1];
}

std::vector<float> Sampled(const Grid& grid, int row_step, int col_step) {
  std::vector<float> values;
  for (size_t r = 0; r < grid.size(); r += row_step) {
    for (size_t c = 0; c < grid[r].size(); c += col_step) values.push_back(grid[r][c]);
  }
  return values;
}

TEST(PercentileValue, MatchesASortOfTheSampledCells) {
  for (unsigned seed = 1; seed <= 4; ++seed) {
    const Grid grid = RandomGrid(37, 53, seed);
    for (double percent : {0.0, 10.0, 50.0, 97.0, 99.9, 100.0}) {
      for (int step : {1, 2, 3}) {
        const float value = PercentileValue(grid, 37, 53, percent, step, step, 0.0, nullptr);
        EXPECT_EQ(value, SortedOrderStatistic(Sampled(grid, step, step), percent * 0.01))
            << "seed " << seed << " percent " << percent << " step " << step;
      }
    }
  }
}

TEST(PercentileValue, SecondPercentAboveIsTakenFromTheUpperHeap) {
  const Grid grid = RandomGrid(60, 90, 11);
  float second = -1.0f;
  const float first = PercentileValue(grid, 60, 90, 97.0, 2, 2, 98.0, &second);
  const std::vector<float> sampled = Sampled(grid, 2, 2);
  EXPECT_EQ(first, SortedOrderStatistic(sampled, 0.97));
  // The upper heap holds the values above the first percentile; the second lies at
  // (98 - 97) / (100 - 97) of them.
  std::vector<float> upper = sampled;
  std::sort(upper.begin(), upper.end());
  upper.erase(upper.begin(), upper.begin() + static_cast<long>(std::trunc(sampled.size() * 0.97)) + 1);
  EXPECT_EQ(second, SortedOrderStatistic(upper, (1.0 * 0.01) / (1.0 - 0.97)));
  EXPECT_GT(second, first);
}

TEST(PercentileValue, SecondPercentBelowUsesTheRatioOfThePercents) {
  const Grid grid = RandomGrid(40, 40, 5);
  float second = -1.0f;
  const float first = PercentileValue(grid, 40, 40, 80.0, 1, 1, 40.0, &second);
  std::vector<float> lower = Sampled(grid, 1, 1);
  std::sort(lower.begin(), lower.end());
  lower.resize(static_cast<size_t>(std::trunc(lower.size() * 0.8)) + 1);
  EXPECT_EQ(first, lower.back());
  EXPECT_EQ(second, SortedOrderStatistic(lower, 40.0 / 80.0));
}

TEST(PercentileValue, ASingleSampledCellAnswersBothPercents) {
  const Grid grid = {{4.5f, 9.0f}, {7.0f, 8.0f}};
  float second = 0.0f;
  EXPECT_EQ(PercentileValue(grid, 2, 2, 97.0, 2, 2, 98.0, &second), 4.5f);
  EXPECT_EQ(second, 4.5f);
  second = 123.0f;  // a second percent of 0 leaves the output alone
  PercentileValue(grid, 2, 2, 50.0, 1, 1, 0.0, &second);
  EXPECT_EQ(second, 123.0f);
}

TEST(PercentileValue, NoSampledCellsGiveZero) {
  const Grid empty;
  float second = 5.0f;
  EXPECT_EQ(PercentileValue(empty, 0, 0, 97.0, 2, 2, 98.0, &second), 0.0f);
  EXPECT_EQ(second, 0.0f);
  const Grid short_rows = {{}, {}};
  EXPECT_EQ(PercentileValue(short_rows, 2, 5, 50.0, 1, 1, 0.0, nullptr), 0.0f);
}

}  // namespace
