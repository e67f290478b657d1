#include "nn/bi_beat_net_ensemble.h"

#include "nn/beat_net_weights.h"
#include "nn/safetensors_file.h"
#include "nn/sum.h"
#include "platform/run_multithread.h"

BiBeatNetEnsemble::BiBeatNetEnsemble(const std::string& weights_path_) : weights_path(weights_path_) {}

Tensor BiBeatNetEnsemble::Process(const Tensor& input_, int num_threads_) {
  error.clear();
  if (input_.data.empty()) {
    error = "The beat networks were given no input channel";
    return Tensor();
  }
  SafetensorsFile file;
  if (!file.Open(weights_path, &error)) return Tensor();
  nets.clear();
  nets.resize(kNumBeatNets);
  for (int i = 0; i < kNumBeatNets; ++i)
    if (!kBeatNetLoaders[i](&nets[i], file, &error)) return Tensor();
  if (!BeatWeightsScaled(file))
    for (BiBeatNet& net : nets) net.Scale();

  outputs.assign(kNumBeatNets, Tensor({1, 1, 1}));
  input = &input_;
  num_threads = num_threads_;
  RunMultithread runner(kNumBeatNets, num_threads, [this](int item, int) { RunNet(item); });
  connect(&runner, &RunMultithread::ProgressUpdate, this, &BiBeatNetEnsemble::ProgressUpdate,
          Qt::DirectConnection);
  connect(&runner, &RunMultithread::OutOfMemory, this, &BiBeatNetEnsemble::OutOfMemory, Qt::DirectConnection);
  runner.Run();
  input = nullptr;

  std::vector<const Tensor*> parts;
  for (const Tensor& output : outputs) parts.push_back(&output);
  Sum sum(Squash::Nonlinearities::None);
  Tensor average = sum(parts, 1);
  for (auto& channel : average.data)
    for (auto& row : channel)
      for (float& x : row) x *= 0.125f;
  return average;
}

void BiBeatNetEnsemble::RunNet(int index) { outputs[index] = nets[index].Process(*input, num_threads); }
