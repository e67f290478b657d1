#include "nn/bi_beat_net.h"

BiBeatNet::BiBeatNet()
    : first(25, Squash::Nonlinearities::Tanh),
      second(25, Squash::Nonlinearities::Tanh),
      third(25, Squash::Nonlinearities::Tanh),
      output(Squash::Nonlinearities::Softmax) {}

std::vector<BiLSTM*> BiBeatNet::BiLSTMLayers() { return {&first, &second, &third}; }

std::vector<LinearLayer*> BiBeatNet::LinearLayers() { return {&output}; }

namespace {

void ScaleVector(std::vector<float>* values) {
  for (float& v : *values) v *= BiBeatNet::kWeightScale;
}

void ScaleMatrix(std::vector<std::vector<float>>* rows) {
  for (auto& row : *rows) ScaleVector(&row);
}

}  // namespace

void BiBeatNet::Scale() {
  for (BiLSTM* layer : BiLSTMLayers())
    for (LSTMLayer* direction : {&layer->forward, &layer->backward})
      for (LSTMCells* block :
           {&direction->input_gate, &direction->forget_gate, &direction->cell, &direction->output_gate}) {
        ScaleMatrix(&block->recurrent_weights);
        ScaleMatrix(&block->input_weights);
        ScaleVector(&block->bias);
        ScaleVector(&block->peepholes);
      }
  ScaleMatrix(&output.weights);
  ScaleVector(&output.bias);
}

Tensor BiBeatNet::Process(const Tensor& input, int num_threads) {
  Tensor a = first({&input}, num_threads);
  Tensor b = second({&a}, num_threads);
  a = third({&b}, num_threads);
  return output({&a}, num_threads);
}
