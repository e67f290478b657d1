#pragma once

#include <vector>

// A three-dimensional float array: data[channel][row][column]. `shape` always holds the
// three sizes {channels, rows, columns}. Rows are separate vectors.
class Tensor {
 public:
  Tensor() = default;
  // Sized and zero-filled.
  explicit Tensor(const std::vector<int>& shape);
  // Copies the nesting; the shape comes from the outer size, the first channel and its first row.
  explicit Tensor(const std::vector<std::vector<std::vector<float>>>& values);

  // Adopts `new_shape`; values in the overlap survive and new cells are zero.
  void Resize(const std::vector<int>& new_shape);
  void Zero();

  // Population statistics over the whole tensor, summed in float. `mean` may be null.
  float Mean() const;
  float Variance(float* mean) const;
  float ChannelMean(int channel) const;
  float ChannelVariance(int channel, float* mean) const;

  int Channels() const { return shape[0]; }
  int Rows() const { return shape[1]; }
  int Columns() const { return shape[2]; }

  std::vector<int> shape{0, 0, 0};
  std::vector<std::vector<std::vector<float>>> data;
};
