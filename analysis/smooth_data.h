#pragma once

#include <vector>

// Centred moving average of `window` values: position i averages in[i - window / 2] to
// in[i + window - window / 2 - 1], clipped to the data, so the window grows at the start and
// shrinks at the end. `out` takes the size of `in`; a window of 0, or more values than `in`
// holds, gives zeros. The means are updated as they slide, not recomputed.
void SmoothData(int window, const std::vector<double>& in, std::vector<double>* out);
