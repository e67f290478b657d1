#pragma once

#include <vector>

#include "nn/lstm_cells.h"

// One direction of a peephole LSTM. State lives only for one Calculate, so an object serves
// one sequence at a time.
class LSTMLayer {
 public:
  LSTMLayer(int size, bool reverse);

  // Input rows are time steps, each with at least as many values as input_weights has rows.
  // Fills `outputs` with one row of `size` values per input row, at the row's own index
  // whichever the direction. The four blocks' input terms are computed for all steps first,
  // then the recurrence runs over flat packed matrices; the sums keep the order of the
  // gate functions, so the result equals CalculateReference bit for bit.
  void Calculate(const std::vector<std::vector<float>>& input);
  // Step by step through the blocks' own CalculateGate and CalculateCell.
  void CalculateReference(const std::vector<std::vector<float>>& input);

  int size;
  bool reverse;
  LSTMCells cell;
  LSTMCells input_gate;
  LSTMCells forget_gate;
  LSTMCells output_gate;
  std::vector<std::vector<float>> outputs;

 private:
  void InputTerms(const std::vector<std::vector<float>>& input, std::vector<float>* terms) const;
};
