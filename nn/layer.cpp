#include "nn/layer.h"

#include "platform/run_multithread.h"

std::vector<int> Layer::OutputShape(const std::vector<const Tensor*>& inputs) { return inputs[0]->shape; }

Tensor Layer::operator()(const std::vector<const Tensor*>& inputs, int num_threads) {
  Tensor output(OutputShape(inputs));
  output.Zero();
  const int channels = output.shape[0];
  if (channels == 1) {
    CalculateChannel(inputs, 0, &output);
  } else if (num_threads == 1) {
    for (int c = 0; c < channels; ++c) CalculateChannel(inputs, c, &output);
  } else {
    RunMultithread runner(channels, num_threads,
                          [&](int item, int) { CalculateChannel(inputs, item, &output); });
    runner.blockSignals(true);
    runner.Run();
  }
  SquashOutput(&output);
  return output;
}

void Layer::SquashOutput(Tensor* output) const {
  if (squash == Squash::Nonlinearities::None) return;
  if (squash == Squash::Nonlinearities::Softmax) {
    std::vector<float> row_out;
    for (auto& channel : output->data)
      for (auto& row : channel) {
        Squash::Softmax(row, &row_out);
        row.swap(row_out);
      }
    return;
  }
  const Squash::Function function = Squash::NonLinearity(squash);
  for (auto& channel : output->data)
    for (auto& row : channel)
      for (float& x : row) x = function(x);
}
