#include "nn/bi_lstm.h"

#include <algorithm>

BiLSTM::BiLSTM(int size, Squash::Nonlinearities cell_squash)
    : Layer(Squash::Nonlinearities::None), forward(size, false), backward(size, true) {
  for (LSTMLayer* direction : {&forward, &backward}) {
    direction->cell.squash = cell_squash;
    direction->cell.function = Squash::NonLinearity(cell_squash);
  }
}

std::vector<int> BiLSTM::OutputShape(const std::vector<const Tensor*>& inputs) {
  return {1, inputs[0]->shape[1], forward.size + backward.size};
}

void BiLSTM::CalculateChannel(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) {
  const auto& rows = inputs[0]->data[channel];
  forward.Calculate(rows);
  backward.Calculate(rows);
  auto& out = output->data[channel];
  for (size_t r = 0; r < rows.size(); ++r) {
    std::copy(forward.outputs[r].begin(), forward.outputs[r].end(), out[r].begin());
    std::copy(backward.outputs[r].begin(), backward.outputs[r].end(), out[r].begin() + forward.size);
  }
  // The sequences' states are not needed once copied out.
  forward.outputs.clear();
  backward.outputs.clear();
}
