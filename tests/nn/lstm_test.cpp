#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "nn/bi_lstm.h"
#include "nn/lstm_cells.h"
#include "nn/lstm_layer.h"

namespace {

std::vector<float> RandomVector(std::mt19937* generator, int size, float range) {
  std::uniform_real_distribution<float> dist(-range, range);
  std::vector<float> v(size);
  for (float& x : v) x = dist(*generator);
  return v;
}

std::vector<std::vector<float>> RandomMatrix(std::mt19937* generator, int rows, int columns, float range) {
  std::vector<std::vector<float>> m(rows);
  for (auto& row : m) row = RandomVector(generator, columns, range);
  return m;
}

void Randomise(LSTMLayer* layer, int inputs, unsigned seed) {
  std::mt19937 generator(seed);
  for (LSTMCells* block : {&layer->input_gate, &layer->forget_gate, &layer->cell, &layer->output_gate}) {
    block->bias = RandomVector(&generator, layer->size, 0.5f);
    block->extra_bias = RandomVector(&generator, layer->size, 0.5f);
    block->recurrent_weights = RandomMatrix(&generator, layer->size, layer->size, 0.4f);
    block->input_weights = RandomMatrix(&generator, inputs, layer->size, 0.4f);
    block->peepholes = RandomVector(&generator, layer->size, 0.5f);
  }
}

// A one-unit layer over one feature whose only weights are biases and peepholes, so that the
// cell state path can be followed by hand.
void SetScalar(LSTMLayer* layer, float b_in, float b_forget, float b_cell, float b_out, float p_in,
               float p_forget, float p_out) {
  auto set = [](LSTMCells* block, float bias, float peephole) {
    block->bias = {bias};
    block->extra_bias = {100.0f};  // never read
    block->recurrent_weights = {{0.0f}};
    block->input_weights = {{0.0f}};
    block->peepholes = {peephole};
  };
  set(&layer->input_gate, b_in, p_in);
  set(&layer->forget_gate, b_forget, p_forget);
  set(&layer->cell, b_cell, 1000.0f);  // the cell input has no peephole term
  set(&layer->output_gate, b_out, p_out);
}

double Sig(double x) { return 1.0 / (1.0 + std::exp(-x)); }

}  // namespace

TEST(VectorDotMatrixTest, SumsRunOverInputsInAscendingOrderInFloat) {
  // In ascending order 1e8 + 1 rounds back to 1e8, so the total is 0; any other order gives 1.
  const std::vector<std::vector<float>> matrix = {{1.0f, 2.0f}, {1.0f, 0.0f}, {1.0f, 2.0f}};
  std::vector<float> out;
  VectorDotMatrix({1e8f, 1.0f, -1e8f}, matrix, &out);
  EXPECT_EQ(out, (std::vector<float>{0.0f, 0.0f}));
  VectorDotMatrixPlusBias({1e8f, 1.0f, -1e8f}, matrix, {1.0f, 0.5f}, &out);
  EXPECT_EQ(out[0], 0.0f);  // the bias is the starting value and is absorbed by 1e8
  EXPECT_EQ(out[1], 0.0f);
}

TEST(LSTMLayerTest, EmptyInputGivesNoRowsAndLeavesTheGatesAlone) {
  LSTMLayer layer(3, false);
  Randomise(&layer, 2, 1);
  layer.input_gate.activations = {7.0f, 7.0f, 7.0f};
  layer.Calculate({});
  EXPECT_TRUE(layer.outputs.empty());
  EXPECT_EQ(layer.input_gate.activations, (std::vector<float>{7.0f, 7.0f, 7.0f}));
  layer.CalculateReference({});
  EXPECT_TRUE(layer.outputs.empty());
}

TEST(LSTMLayerTest, OutputGateSeesTheNewCellStateAndTheOthersTheOld) {
  const float b_in = 0.3f, b_forget = -0.2f, b_cell = 0.8f, b_out = 0.1f;
  const float p_in = 0.7f, p_forget = -1.1f, p_out = 2.5f;
  // Two steps by hand, in double.
  double c = 0.0;
  std::vector<double> expected;
  for (int t = 0; t < 2; ++t) {
    const double i = Sig(b_in + c * p_in);
    const double f = Sig(b_forget + c * p_forget);
    c = f * c + i * std::tanh(b_cell);
    expected.push_back(std::tanh(c) * Sig(b_out + c * p_out));
  }
  for (bool reference : {false, true}) {
    LSTMLayer layer(1, false);
    SetScalar(&layer, b_in, b_forget, b_cell, b_out, p_in, p_forget, p_out);
    if (reference)
      layer.CalculateReference({{0.0f}, {0.0f}});
    else
      layer.Calculate({{0.0f}, {0.0f}});
    ASSERT_EQ(layer.outputs.size(), 2u);
    EXPECT_NEAR(layer.outputs[0][0], expected[0], 1e-6);
    EXPECT_NEAR(layer.outputs[1][0], expected[1], 1e-6);
  }
}

TEST(LSTMLayerTest, ReverseWritesEachOutputAtItsOwnRow) {
  LSTMLayer forward(4, false), backward(4, true);
  Randomise(&forward, 3, 7);
  Randomise(&backward, 3, 7);
  std::mt19937 generator(3);
  const auto input = RandomMatrix(&generator, 6, 3, 1.0f);
  std::vector<std::vector<float>> reversed(input.rbegin(), input.rend());
  forward.Calculate(reversed);
  backward.Calculate(input);
  for (int t = 0; t < 6; ++t) EXPECT_EQ(backward.outputs[t], forward.outputs[5 - t]);
}

TEST(LSTMLayerTest, FastPathEqualsTheStepByStepReferenceExactly) {
  // Step counts on both sides of the four-row blocking of the input terms.
  for (int steps : {1, 3, 4, 9, 50}) {
    for (bool reverse : {false, true}) {
      LSTMLayer layer(25, reverse);
      Randomise(&layer, 31, 11 + steps);
      std::mt19937 generator(steps);
      const auto input = RandomMatrix(&generator, steps, 31, 2.0f);
      layer.Calculate(input);
      const auto fast = layer.outputs;
      layer.CalculateReference(input);
      ASSERT_EQ(fast.size(), layer.outputs.size());
      for (int t = 0; t < steps; ++t) EXPECT_EQ(fast[t], layer.outputs[t]) << "step " << t;
    }
  }
}

TEST(BiLSTMTest, SingleRowWithEqualWeightsGivesEqualHalves) {
  BiLSTM layer(5, Squash::Nonlinearities::Tanh);
  Randomise(&layer.forward, 4, 21);
  Randomise(&layer.backward, 4, 21);
  Tensor in(std::vector<std::vector<std::vector<float>>>{{{0.5f, -1.0f, 0.25f, 2.0f}}});
  const Tensor out = layer({&in}, 8);
  ASSERT_EQ(out.shape, (std::vector<int>{1, 1, 10}));
  for (int u = 0; u < 5; ++u) EXPECT_EQ(out.data[0][0][u], out.data[0][0][u + 5]);
}

TEST(BiLSTMTest, OutputRowIsForwardThenBackward) {
  BiLSTM layer(3, Squash::Nonlinearities::Tanh);
  Randomise(&layer.forward, 2, 31);
  Randomise(&layer.backward, 2, 32);
  std::mt19937 generator(5);
  const auto rows = RandomMatrix(&generator, 7, 2, 1.0f);
  Tensor in(std::vector<std::vector<std::vector<float>>>{rows});
  const Tensor out = layer({&in}, 1);
  ASSERT_EQ(out.shape, (std::vector<int>{1, 7, 6}));

  LSTMLayer forward = layer.forward, backward = layer.backward;
  forward.CalculateReference(rows);
  backward.CalculateReference(rows);
  for (int t = 0; t < 7; ++t)
    for (int u = 0; u < 3; ++u) {
      EXPECT_EQ(out.data[0][t][u], forward.outputs[t][u]);
      EXPECT_EQ(out.data[0][t][u + 3], backward.outputs[t][u]);
    }
}
