#pragma once

#include <vector>

#include "nn/bi_lstm.h"
#include "nn/linear_layer.h"
#include "nn/tensor.h"

// One beat network: three stacked bidirectional LSTMs of 25 units per direction over
// 314 features a frame, then a dense layer with a softmax over no beat, beat, downbeat.
class BiBeatNet {
 public:
  static constexpr int kInputFeatures = 314;
  static constexpr int kOutputs = 3;
  // The factor that every stored weight except extra_bias is multiplied by before use.
  static constexpr float kWeightScale = 0.5318532f;

  BiBeatNet();

  std::vector<BiLSTM*> BiLSTMLayers();
  std::vector<LinearLayer*> LinearLayers();
  // Multiplies recurrent and input weights, biases and peepholes of every block, and the
  // dense weights and bias, by kWeightScale. extra_bias is left alone.
  void Scale();
  // {1, frames, 314} in, {1, frames, 3} out.
  Tensor Process(const Tensor& input, int num_threads);

  int size = 25;
  BiLSTM first;
  BiLSTM second;
  BiLSTM third;
  LinearLayer output;
};
