#pragma once

#include <QObject>
#include <string>
#include <vector>

#include "nn/bi_beat_net.h"
#include "nn/tensor.h"

// Runs the eight beat networks, one per worker, and averages their class probabilities.
// Lives on the calling (job worker) thread; Process blocks until all nets are done.
class BiBeatNetEnsemble : public QObject {
  Q_OBJECT

 public:
  explicit BiBeatNetEnsemble(const std::string& weights_path);

  // {1, frames, 314} in; {1, frames, 3} out: no beat, beat, downbeat. Loads the eight nets
  // afresh from the weights file on every call. An empty tensor (and `error` set) when the
  // file is missing or malformed; the caller reports it.
  Tensor Process(const Tensor& input, int num_threads);
  // The body of the parallel run: outputs[index] = nets[index].Process(*input, num_threads).
  void RunNet(int index);

  std::vector<BiBeatNet> nets;
  std::vector<Tensor> outputs;
  int num_threads = 1;
  const Tensor* input = nullptr;
  std::string weights_path;
  std::string error;

 signals:
  void ProgressUpdate(int done);
  void Message(std::string text, bool is_fatal);
  void OutOfMemory();
};
