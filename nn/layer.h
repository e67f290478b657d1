#pragma once

#include <vector>

#include "nn/squash.h"
#include "nn/tensor.h"

// Base of the inference layers. A layer computes one output channel at a time; channels are
// the unit of parallelism, so CalculateChannel writes only its own channel and keeps its
// scratch space local.
class Layer {
 public:
  explicit Layer(Squash::Nonlinearities squash_ = Squash::Nonlinearities::None) : squash(squash_) {}
  virtual ~Layer() = default;
  // The shape of the first input unless a layer says otherwise.
  virtual std::vector<int> OutputShape(const std::vector<const Tensor*>& inputs);
  virtual void CalculateChannel(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) = 0;

  // Runs the layer: a zeroed output of OutputShape, its channels computed on up to
  // `num_threads` threads (a one-channel output always on the calling thread), then squashed.
  Tensor operator()(const std::vector<const Tensor*>& inputs, int num_threads);
  void SquashOutput(Tensor* output) const;

  Squash::Nonlinearities squash;
};
