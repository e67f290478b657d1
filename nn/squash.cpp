#include "nn/squash.h"

#include <cmath>

float Squash::Sigmoid(float x) { return 1.0f / (std::exp(-x) + 1.0f); }

float Squash::Tanh(float x) { return std::tanh(x); }

void Squash::Softmax(const std::vector<float>& in, std::vector<float>* out) {
  out->resize(in.size());
  double sum = 0.0;
  for (size_t i = 0; i < in.size(); ++i) {
    (*out)[i] = std::exp(in[i]);
    sum += (*out)[i];
  }
  if (sum == 0.0) return;
  for (float& e : *out) e = static_cast<float>(e / sum);
}

Squash::Function Squash::NonLinearity(Nonlinearities squash) {
  switch (squash) {
    case Nonlinearities::Relu:
      return &Relu;
    case Nonlinearities::Sigmoid:
      return &Sigmoid;
    case Nonlinearities::Tanh:
      return &Tanh;
    default:
      return &None;
  }
}
