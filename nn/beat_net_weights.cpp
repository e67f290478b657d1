#include "nn/beat_net_weights.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <cstdlib>
#include <random>
#include <vector>

namespace {

const char* const kBlockNames[] = {"input_gate", "forget_gate", "cell", "output_gate"};

LSTMCells* Block(LSTMLayer* layer, int b) {
  switch (b) {
    case 0:
      return &layer->input_gate;
    case 1:
      return &layer->forget_gate;
    case 2:
      return &layer->cell;
    default:
      return &layer->output_gate;
  }
}

bool ReadVector(const SafetensorsFile& file, const std::string& name, int64_t size, std::vector<float>* out,
                std::string* error) {
  return file.ReadFloats(name, {size}, out, error);
}

bool ReadMatrix(const SafetensorsFile& file, const std::string& name, int64_t rows, int64_t columns,
                std::vector<std::vector<float>>* out, std::string* error) {
  std::vector<float> flat;
  if (!file.ReadFloats(name, {rows, columns}, &flat, error)) return false;
  out->assign(rows, std::vector<float>(columns));
  for (int64_t r = 0; r < rows; ++r)
    std::copy(flat.begin() + r * columns, flat.begin() + (r + 1) * columns, (*out)[r].begin());
  return true;
}

int LayerInputs(int layer) { return layer == 0 ? BiBeatNet::kInputFeatures : 50; }


}  // namespace

std::string BeatTensorName(int net, int layer, bool backward, const std::string& block, const std::string& field) {
  return "net" + std::to_string(net) + ".layer" + std::to_string(layer) + (backward ? ".backward." : ".forward.") +
         block + "." + field;
}

std::string BeatLinearTensorName(int net, const std::string& field) {
  return "net" + std::to_string(net) + ".linear." + field;
}

bool LoadBeatNet(int index, const SafetensorsFile& file, BiBeatNet* net, std::string* error) {
  const std::vector<BiLSTM*> layers = net->BiLSTMLayers();
  for (int l = 0; l < static_cast<int>(layers.size()); ++l) {
    for (int d = 0; d < 2; ++d) {
      LSTMLayer* direction = d == 0 ? &layers[l]->forward : &layers[l]->backward;
      const int units = direction->size;
      for (int b = 0; b < 4; ++b) {
        LSTMCells* cells = Block(direction, b);
        auto name = [&](const char* field) { return BeatTensorName(index, l, d == 1, kBlockNames[b], field); };
        if (!ReadVector(file, name("bias"), units, &cells->bias, error) ||
            !ReadVector(file, name("extra_bias"), units, &cells->extra_bias, error) ||
            !ReadMatrix(file, name("recurrent_weights"), units, units, &cells->recurrent_weights, error) ||
            !ReadMatrix(file, name("input_weights"), LayerInputs(l), units, &cells->input_weights, error))
          return false;
        if (cells == &direction->cell) {
          cells->peepholes.assign(units, 0.0f);
        } else if (!ReadVector(file, name("peepholes"), units, &cells->peepholes, error)) {
          return false;
        }
      }
    }
  }
  LinearLayer* linear = net->LinearLayers()[0];
  return ReadMatrix(file, BeatLinearTensorName(index, "weights"), 50, BiBeatNet::kOutputs, &linear->weights,
                    error) &&
         ReadVector(file, BeatLinearTensorName(index, "bias"), BiBeatNet::kOutputs, &linear->bias, error);
}

bool LoadW0(BiBeatNet* net, const SafetensorsFile& file, std::string* error) { return LoadBeatNet(0, file, net, error); }
bool LoadW1(BiBeatNet* net, const SafetensorsFile& file, std::string* error) { return LoadBeatNet(1, file, net, error); }
bool LoadW2(BiBeatNet* net, const SafetensorsFile& file, std::string* error) { return LoadBeatNet(2, file, net, error); }
bool LoadW3(BiBeatNet* net, const SafetensorsFile& file, std::string* error) { return LoadBeatNet(3, file, net, error); }
bool LoadW4(BiBeatNet* net, const SafetensorsFile& file, std::string* error) { return LoadBeatNet(4, file, net, error); }
bool LoadW5(BiBeatNet* net, const SafetensorsFile& file, std::string* error) { return LoadBeatNet(5, file, net, error); }
bool LoadW6(BiBeatNet* net, const SafetensorsFile& file, std::string* error) { return LoadBeatNet(6, file, net, error); }
bool LoadW7(BiBeatNet* net, const SafetensorsFile& file, std::string* error) { return LoadBeatNet(7, file, net, error); }

const BeatNetLoader kBeatNetLoaders[kNumBeatNets] = {&LoadW0, &LoadW1, &LoadW2, &LoadW3,
                                                     &LoadW4, &LoadW5, &LoadW6, &LoadW7};

bool BeatWeightsScaled(const SafetensorsFile& file) { return file.Metadata("scaled", "false") == "true"; }

std::string DefaultBeatWeightsPath() {
  if (const char* env = std::getenv("TONEMILL_BEAT_WEIGHTS"); env && *env) return env;
  const QString app_dir =
      QCoreApplication::instance() ? QCoreApplication::applicationDirPath() : QDir::currentPath();
  const QString beside = QDir(app_dir).absoluteFilePath("weights/beats.safetensors");
  const QString bundle = QDir(app_dir).absoluteFilePath("../Resources/weights/beats.safetensors");
  if (!QFileInfo::exists(beside) && QFileInfo::exists(bundle)) return QDir::cleanPath(bundle).toStdString();
  return beside.toStdString();
}

std::map<std::string, SafetensorsFile::FloatTensor> RandomBeatWeights(unsigned seed, float range) {
  std::mt19937 generator(seed);
  auto values = [&](int64_t count) {
    std::vector<float> v(count);
    for (float& x : v) x = (static_cast<float>(generator() / 4294967296.0) * 2.0f - 1.0f) * range;
    return v;
  };
  std::map<std::string, SafetensorsFile::FloatTensor> tensors;
  for (int n = 0; n < kNumBeatNets; ++n) {
    for (int l = 0; l < 3; ++l)
      for (int d = 0; d < 2; ++d)
        for (int b = 0; b < 4; ++b) {
          auto name = [&](const char* field) { return BeatTensorName(n, l, d == 1, kBlockNames[b], field); };
          tensors[name("bias")] = {{25}, values(25)};
          tensors[name("extra_bias")] = {{25}, values(25)};
          tensors[name("recurrent_weights")] = {{25, 25}, values(25 * 25)};
          tensors[name("input_weights")] = {{LayerInputs(l), 25}, values(LayerInputs(l) * 25)};
          if (b != 2) tensors[name("peepholes")] = {{25}, values(25)};
        }
    tensors[BeatLinearTensorName(n, "weights")] = {{50, 3}, values(150)};
    tensors[BeatLinearTensorName(n, "bias")] = {{3}, values(3)};
  }
  return tensors;
}

bool WriteBeatWeights(const std::string& path, const std::map<std::string, SafetensorsFile::FloatTensor>& tensors,
                      bool scaled, std::string* error) {
  return SafetensorsFile::Write(path, tensors, {{"scaled", scaled ? "true" : "false"}}, error);
}
