#pragma once

#include <vector>

#include "nn/squash.h"

// out[j] = sum over i of x[i] * matrix[i][j], j over the columns of the first row. Each sum
// starts from 0 (or bias[j]) and runs over i in ascending order in float; that order is
// part of the contract so that results do not wander between builds.
void VectorDotMatrix(const std::vector<float>& x, const std::vector<std::vector<float>>& matrix,
                     std::vector<float>* out);
void VectorDotMatrixPlusBias(const std::vector<float>& x, const std::vector<std::vector<float>>& matrix,
                             const std::vector<float>& bias, std::vector<float>* out);

// One block of LSTM units: an input, forget or output gate, or the cell input. The weight
// loaders fill the vectors; `extra_bias` is kept with the block but never read.
class LSTMCells {
 public:
  LSTMCells(int size, Squash::Nonlinearities squash);

  // activations = function(x * input_weights + bias + previous_output * recurrent_weights
  //                        + cell_state * peepholes)
  void CalculateGate(const std::vector<float>& x, const std::vector<float>& previous_output,
                     const std::vector<float>& cell_state);
  // The same without the peephole term.
  void CalculateCell(const std::vector<float>& x, const std::vector<float>& previous_output);

  std::vector<float> bias;
  std::vector<float> extra_bias;
  std::vector<std::vector<float>> recurrent_weights;  // [unit of previous step][unit]
  std::vector<std::vector<float>> input_weights;      // [input feature][unit]
  std::vector<float> peepholes;
  int size;
  std::vector<float> activations;
  Squash::Nonlinearities squash;
  Squash::Function function;

 private:
  std::vector<float> input_term_;
  std::vector<float> recurrent_term_;
};
