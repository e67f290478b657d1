#pragma once

// One hump of an amplitude row, in column indices: it rises from `start` to `top` and
// falls to `end`; `height` is the drop from the top to the end.
struct Peak {
  Peak() = default;
  Peak(int start_, int top_, int end_, double height_) : start(start_), top(top_), end(end_), height(height_) {}

  int start = 0;
  int top = 0;
  int end = 0;
  double height = 0.0;
};
