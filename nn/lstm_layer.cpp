#include "nn/lstm_layer.h"

#include <algorithm>
#include <cmath>

LSTMLayer::LSTMLayer(int size_, bool reverse_)
    : size(size_),
      reverse(reverse_),
      cell(size_, Squash::Nonlinearities::Tanh),
      input_gate(size_, Squash::Nonlinearities::Sigmoid),
      forget_gate(size_, Squash::Nonlinearities::Sigmoid),
      output_gate(size_, Squash::Nonlinearities::Sigmoid) {}

namespace {

// Block order inside the packed matrices: input gate, forget gate, cell, output gate.
constexpr int kBlocks = 4;

// Packs rows [i][unit] of the four blocks side by side into one flat [i][4 * size] matrix.
std::vector<float> PackRows(const std::vector<const std::vector<std::vector<float>>*>& blocks, int rows,
                            int size) {
  const int width = kBlocks * size;
  std::vector<float> packed(static_cast<size_t>(rows) * width, 0.0f);
  for (int b = 0; b < kBlocks; ++b)
    for (int i = 0; i < rows && i < static_cast<int>(blocks[b]->size()); ++i) {
      const auto& row = (*blocks[b])[i];
      std::copy(row.begin(), row.begin() + std::min<size_t>(row.size(), size),
                packed.begin() + static_cast<size_t>(i) * width + b * size);
    }
  return packed;
}

}  // namespace

void LSTMLayer::InputTerms(const std::vector<std::vector<float>>& input, std::vector<float>* terms) const {
  const int steps = static_cast<int>(input.size());
  const int features = static_cast<int>(input_gate.input_weights.size());
  const int width = kBlocks * size;
  const std::vector<float> weights = PackRows(
      {&input_gate.input_weights, &forget_gate.input_weights, &cell.input_weights, &output_gate.input_weights},
      features, size);
  std::vector<float> bias(width, 0.0f);
  const LSTMCells* blocks[kBlocks] = {&input_gate, &forget_gate, &cell, &output_gate};
  for (int b = 0; b < kBlocks; ++b)
    std::copy(blocks[b]->bias.begin(), blocks[b]->bias.begin() + std::min<size_t>(blocks[b]->bias.size(), size),
              bias.begin() + b * size);

  terms->resize(static_cast<size_t>(steps) * width);
  for (int t = 0; t < steps; ++t) std::copy(bias.begin(), bias.end(), terms->begin() + static_cast<size_t>(t) * width);

  // Blocks of 4 time steps x 8 outputs stay in registers while the features stream past, so
  // each weight is loaded once per 4 steps; every output still sums its features in ascending
  // order, exactly as the plain loop below does.
  constexpr int kSteps = 4, kLanes = 8;
  int t = 0;
  for (; t + kSteps <= steps; t += kSteps) {
    const float* x[kSteps];
    for (int r = 0; r < kSteps; ++r) x[r] = input[t + r].data();
    float* y = terms->data() + static_cast<size_t>(t) * width;
    int j0 = 0;
    for (; j0 + kLanes <= width; j0 += kLanes) {
      float acc[kSteps][kLanes];
      for (int r = 0; r < kSteps; ++r)
        for (int l = 0; l < kLanes; ++l) acc[r][l] = y[r * width + j0 + l];
      for (int i = 0; i < features; ++i) {
        const float* w = weights.data() + static_cast<size_t>(i) * width + j0;
        for (int r = 0; r < kSteps; ++r) {
          const float a = x[r][i];
          for (int l = 0; l < kLanes; ++l) acc[r][l] += a * w[l];
        }
      }
      for (int r = 0; r < kSteps; ++r)
        for (int l = 0; l < kLanes; ++l) y[r * width + j0 + l] = acc[r][l];
    }
    for (int r = 0; r < kSteps; ++r) {
      float* yr = y + r * width;
      for (int i = 0; i < features; ++i) {
        const float* w = weights.data() + static_cast<size_t>(i) * width;
        const float a = x[r][i];
        for (int j = j0; j < width; ++j) yr[j] += a * w[j];
      }
    }
  }
  for (; t < steps; ++t) {
    const float* x = input[t].data();
    float* y = terms->data() + static_cast<size_t>(t) * width;
    for (int i = 0; i < features; ++i) {
      const float* w = weights.data() + static_cast<size_t>(i) * width;
      const float a = x[i];
      for (int j = 0; j < width; ++j) y[j] += a * w[j];
    }
  }
}

void LSTMLayer::Calculate(const std::vector<std::vector<float>>& input) {
  const int steps = static_cast<int>(input.size());
  outputs.assign(steps, std::vector<float>(size, 0.0f));
  if (steps == 0) return;
  const int features = static_cast<int>(input_gate.input_weights.size());
  for (const auto& row : input)
    if (static_cast<int>(row.size()) < features) {
      CalculateReference(input);
      return;
    }

  const int width = kBlocks * size;
  std::vector<float> terms;
  InputTerms(input, &terms);
  const std::vector<float> recurrent = PackRows({&input_gate.recurrent_weights, &forget_gate.recurrent_weights,
                                                 &cell.recurrent_weights, &output_gate.recurrent_weights},
                                                size, size);
  std::vector<float> peep_in(input_gate.peepholes), peep_forget(forget_gate.peepholes),
      peep_out(output_gate.peepholes);
  peep_in.resize(size, 0.0f);
  peep_forget.resize(size, 0.0f);
  peep_out.resize(size, 0.0f);

  std::vector<float> h(size, 0.0f), c(size, 0.0f), r(width), in_act(size), forget_act(size), cell_act(size);
  const Squash::Function in_f = input_gate.function, forget_f = forget_gate.function,
                         cell_f = cell.function, out_f = output_gate.function;
  for (int k = 0; k < steps; ++k) {
    const int t = reverse ? steps - 1 - k : k;
    std::fill(r.begin(), r.end(), 0.0f);
    for (int i = 0; i < size; ++i) {
      const float hi = h[i];
      const float* w = recurrent.data() + static_cast<size_t>(i) * width;
      for (int j = 0; j < width; ++j) r[j] += hi * w[j];
    }
    const float* a = terms.data() + static_cast<size_t>(t) * width;
    for (int u = 0; u < size; ++u) {
      in_act[u] = in_f(a[u] + r[u] + c[u] * peep_in[u]);
      forget_act[u] = forget_f(a[size + u] + r[size + u] + c[u] * peep_forget[u]);
      cell_act[u] = cell_f(a[2 * size + u] + r[2 * size + u]);
    }
    for (int u = 0; u < size; ++u) c[u] = forget_act[u] * c[u] + in_act[u] * cell_act[u];
    float* out = outputs[t].data();
    for (int u = 0; u < size; ++u) {
      const float o = out_f(a[3 * size + u] + r[3 * size + u] + c[u] * peep_out[u]);
      h[u] = std::tanh(c[u]) * o;
      out[u] = h[u];
    }
  }
}

void LSTMLayer::CalculateReference(const std::vector<std::vector<float>>& input) {
  const int steps = static_cast<int>(input.size());
  outputs.assign(steps, std::vector<float>(size, 0.0f));
  std::vector<float> h(size, 0.0f), c(size, 0.0f);
  for (int k = 0; k < steps; ++k) {
    const int t = reverse ? steps - 1 - k : k;
    const std::vector<float>& x = input[t];
    input_gate.CalculateGate(x, h, c);
    forget_gate.CalculateGate(x, h, c);
    cell.CalculateCell(x, h);
    for (int u = 0; u < size; ++u)
      c[u] = forget_gate.activations[u] * c[u] + input_gate.activations[u] * cell.activations[u];
    output_gate.CalculateGate(x, h, c);
    for (int u = 0; u < size; ++u) h[u] = std::tanh(c[u]) * output_gate.activations[u];
    outputs[t] = h;
  }
}
