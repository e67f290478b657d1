#include "nn/lstm_cells.h"

#include <algorithm>

namespace {

void Accumulate(const std::vector<float>& x, const std::vector<std::vector<float>>& matrix, float* out,
                size_t columns) {
  const size_t rows = std::min(x.size(), matrix.size());
  for (size_t i = 0; i < rows; ++i) {
    const float xi = x[i];
    const float* m = matrix[i].data();
    for (size_t j = 0; j < columns; ++j) out[j] += xi * m[j];
  }
}

}  // namespace

void VectorDotMatrix(const std::vector<float>& x, const std::vector<std::vector<float>>& matrix,
                     std::vector<float>* out) {
  const size_t columns = matrix.empty() ? 0 : matrix[0].size();
  out->assign(columns, 0.0f);
  Accumulate(x, matrix, out->data(), columns);
}

void VectorDotMatrixPlusBias(const std::vector<float>& x, const std::vector<std::vector<float>>& matrix,
                             const std::vector<float>& bias, std::vector<float>* out) {
  const size_t columns = matrix.empty() ? 0 : matrix[0].size();
  out->assign(bias.begin(), bias.begin() + std::min(columns, bias.size()));
  out->resize(columns, 0.0f);
  Accumulate(x, matrix, out->data(), columns);
}

LSTMCells::LSTMCells(int size_, Squash::Nonlinearities squash_)
    : size(size_), activations(size_, 0.0f), squash(squash_), function(Squash::NonLinearity(squash_)) {}

void LSTMCells::CalculateGate(const std::vector<float>& x, const std::vector<float>& previous_output,
                              const std::vector<float>& cell_state) {
  VectorDotMatrixPlusBias(x, input_weights, bias, &input_term_);
  VectorDotMatrix(previous_output, recurrent_weights, &recurrent_term_);
  activations.resize(size);
  for (int u = 0; u < size; ++u)
    activations[u] = function(input_term_[u] + recurrent_term_[u] + cell_state[u] * peepholes[u]);
}

void LSTMCells::CalculateCell(const std::vector<float>& x, const std::vector<float>& previous_output) {
  VectorDotMatrixPlusBias(x, input_weights, bias, &input_term_);
  VectorDotMatrix(previous_output, recurrent_weights, &recurrent_term_);
  activations.resize(size);
  for (int u = 0; u < size; ++u) activations[u] = function(input_term_[u] + recurrent_term_[u]);
}
