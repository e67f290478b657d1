#pragma once

#include <vector>

// The value at `percent` (0 to 100) of the cells data[r][c] for r = 0, row_step, ... below
// num_rows and c = 0, col_step, ... below num_cols, found in one pass with two heaps: the
// (trunc(n * percent / 100) + 1)-th smallest of the n sampled cells, capped at the largest.
// Unless `second_percent` is 0, *second_value receives the value at that second percent,
// taken from the elements already split off rather than from another pass over the grid.
// No sampled cell gives 0 (and *second_value 0).
float PercentileValue(const std::vector<std::vector<float>>& data, int num_rows, int num_cols, double percent,
                      int row_step, int col_step, double second_percent, float* second_value);
