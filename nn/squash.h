#pragma once

#include <vector>

// The nonlinearities of the networks, in single precision. The enumeration is scoped so that
// its values and the functions of the same names can stand side by side:
// Squash::Nonlinearities::Tanh names the choice, Squash::Tanh(x) computes it.
class Squash {
 public:
  enum class Nonlinearities { None = 0, Relu = 1, Sigmoid = 2, Tanh = 3, Softmax = 4 };
  using Function = float (*)(float);

  static float None(float x) { return x; }
  static float Relu(float x) { return x > 0.0f ? x : 0.0f; }
  static float Sigmoid(float x);
  static float Tanh(float x);
  // exp of each value in float, normalised by their double sum; no shift by the maximum,
  // so a row whose exponentials all underflow stays zero.
  static void Softmax(const std::vector<float>& in, std::vector<float>* out);

  // The element function of None, Relu, Sigmoid or Tanh; None for anything else.
  static Function NonLinearity(Nonlinearities squash);
};
