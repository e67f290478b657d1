#pragma once

#include <vector>

#include "nn/layer.h"
#include "nn/lstm_layer.h"

// A forward and a reverse LSTM over the rows of one channel; output row r is row r of the
// forward pass followed by row r of the backward pass. One sequence at a time.
// The nonlinearity given is that of the cell input of both directions (Tanh in the beat
// networks); the layer's own output is the hidden state as it stands, not squashed again.
class BiLSTM : public Layer {
 public:
  BiLSTM(int size, Squash::Nonlinearities cell_squash);
  std::vector<int> OutputShape(const std::vector<const Tensor*>& inputs) override;
  void CalculateChannel(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) override;

  LSTMLayer forward;
  LSTMLayer backward;
};
