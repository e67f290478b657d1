// Runs the note network on spectrogram windows from a .npy file and writes its answers as
// .npy, for the training code.
//
//   note-net [--weights FILE | --random-weights SEED] [--threads N] INPUT.npy OUTPUT.npy
//
// INPUT is one window (352, 720) or a stack of them (N, 352, 720): 4 bands per key, lowest
// first, by 10 ms frames, amplitudes as in the main spectrogram. OUTPUT is (2, 88, 138) or
// (N, 2, 88, 138); channel 0 is the onset probability per key and 40 ms step.

#include <QCoreApplication>
#include <QTemporaryDir>
#include <iostream>
#include <string>
#include <vector>

#include "nn/all_in_window_net.h"
#include "nn/note_net_weights.h"
#include "nn/npy_file.h"

namespace {

constexpr int kBands = 352;
constexpr int kFrames = 720;

int Usage() {
  std::cerr
      << "usage: note-net [--weights FILE | --random-weights SEED] [--threads N] INPUT.npy OUTPUT.npy\n"
         "  INPUT: (352, 720) or (N, 352, 720) float32/float64; OUTPUT: (2, 88, 138) or (N, 2, 88, 138)\n";
  return 2;
}

bool LoadWeights(const std::string& weights, int random_seed) {
  if (random_seed < 0) {
    const std::string path = weights.empty() ? DefaultNoteWeightsPath() : weights;
    if (SetNetWeights(path)) return true;
    std::cerr << NetWeightsError() << std::endl;
    return false;
  }
  QTemporaryDir dir;
  const std::string path = dir.filePath("random.safetensors").toStdString();
  std::string error;
  if (WriteNoteWeights(path, RandomNoteWeights(static_cast<unsigned>(random_seed)), &error) &&
      SetNetWeights(path))
    return true;
  std::cerr << (error.empty() ? NetWeightsError() : error) << std::endl;
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  std::string weights;
  int random_seed = -1;
  int threads = 1;
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--weights" && i + 1 < argc) {
      weights = argv[++i];
    } else if (arg == "--random-weights" && i + 1 < argc) {
      random_seed = std::max(0, std::atoi(argv[++i]));
    } else if (arg == "--threads" && i + 1 < argc) {
      threads = std::max(1, std::atoi(argv[++i]));
    } else if (!arg.empty() && arg[0] == '-') {
      return Usage();
    } else {
      files.push_back(arg);
    }
  }
  if (files.size() != 2) return Usage();

  std::vector<int64_t> shape;
  std::vector<float> values;
  std::string error;
  if (!NpyFile::Read(files[0], &shape, &values, &error)) {
    std::cerr << error << std::endl;
    return 1;
  }
  const bool stacked = shape.size() == 3;
  if (!((shape.size() == 2 && shape[0] == kBands && shape[1] == kFrames) ||
        (stacked && shape[1] == kBands && shape[2] == kFrames))) {
    std::cerr << "Array file " << files[0] << ": expected (352, 720) or (N, 352, 720)" << std::endl;
    return 1;
  }
  if (!LoadWeights(weights, random_seed)) return 1;

  const int64_t windows = stacked ? shape[0] : 1;
  AllInWindowNet net(kFrames, 12, 7, 7);
  std::vector<float> out;
  std::vector<int64_t> out_shape;
  for (int64_t w = 0; w < windows; ++w) {
    Tensor input({1, kBands, kFrames});
    const float* src = values.data() + w * kBands * kFrames;
    for (int r = 0; r < kBands; ++r) input.data[0][r].assign(src + r * kFrames, src + (r + 1) * kFrames);
    const Tensor answer = net.Run(input, threads);
    if (out_shape.empty()) out_shape = {answer.shape[0], answer.shape[1], answer.shape[2]};
    for (const auto& channel : answer.data)
      for (const auto& row : channel) out.insert(out.end(), row.begin(), row.end());
  }
  if (out_shape.empty()) out_shape = {2, 88, 138};
  if (stacked) out_shape.insert(out_shape.begin(), windows);
  if (!NpyFile::Write(files[1], out_shape, out, &error)) {
    std::cerr << error << std::endl;
    return 1;
  }
  return 0;
}
