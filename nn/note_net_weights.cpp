#include "nn/note_net_weights.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <cmath>
#include <cstdlib>
#include <random>

const NoteNetLayerShape kNoteNetLayerShapes[kNumNoteNetLayers] = {
    {1, 1, 12, 7, 1},    {2, 12, 25, 1, 7},   {3, 25, 25, 5, 1},  {4, 25, 50, 1, 5},  {5, 50, 50, 9, 1},
    {6, 50, 50, 1, 9},   {7, 50, 50, 21, 1},  {8, 50, 50, 1, 5},  {9, 50, 50, 31, 1}, {10, 50, 50, 1, 11},
    {11, 50, 50, 41, 1}, {12, 50, 50, 1, 11}, {13, 50, 2, 1, 45}, {14, 2, 1, 1, 1}};

namespace {

std::vector<float> Zeros(int number, bool per_output) {
  const NoteNetLayerShape& s = kNoteNetLayerShapes[number - 1];
  return std::vector<float>(per_output ? s.outputs : s.inputs, 0.0f);
}

ConvWeights ZeroKernels(int number) {
  const NoteNetLayerShape& s = kNoteNetLayerShapes[number - 1];
  return ConvWeights(s.outputs,
                     std::vector<std::vector<std::vector<float>>>(
                         s.inputs, std::vector<std::vector<float>>(s.rows, std::vector<float>(s.columns))));
}

}  // namespace

std::vector<float> conv_1_conv_bias = Zeros(1, true);
ConvWeights conv_1_conv_weight = ZeroKernels(1);
std::vector<float> conv_1_layer_norm_scaling_bias = Zeros(1, false);
std::vector<float> conv_1_layer_norm_scaling_weight = Zeros(1, false);

#define TONEMILL_DEFINE_BATCH_NORM_CONV(N)                                 \
  std::vector<float> conv_##N##_batch_norm_bias = Zeros(N, false);         \
  std::vector<float> conv_##N##_batch_norm_running_mean = Zeros(N, false); \
  std::vector<float> conv_##N##_batch_norm_running_var = Zeros(N, false);  \
  std::vector<float> conv_##N##_batch_norm_weight = Zeros(N, false);       \
  std::vector<float> conv_##N##_conv_bias = Zeros(N, true);                \
  ConvWeights conv_##N##_conv_weight = ZeroKernels(N);
TONEMILL_DEFINE_BATCH_NORM_CONV(2)
TONEMILL_DEFINE_BATCH_NORM_CONV(3)
TONEMILL_DEFINE_BATCH_NORM_CONV(4)
TONEMILL_DEFINE_BATCH_NORM_CONV(5)
TONEMILL_DEFINE_BATCH_NORM_CONV(6)
TONEMILL_DEFINE_BATCH_NORM_CONV(7)
TONEMILL_DEFINE_BATCH_NORM_CONV(8)
TONEMILL_DEFINE_BATCH_NORM_CONV(9)
TONEMILL_DEFINE_BATCH_NORM_CONV(10)
TONEMILL_DEFINE_BATCH_NORM_CONV(11)
TONEMILL_DEFINE_BATCH_NORM_CONV(12)
TONEMILL_DEFINE_BATCH_NORM_CONV(13)
TONEMILL_DEFINE_BATCH_NORM_CONV(14)
#undef TONEMILL_DEFINE_BATCH_NORM_CONV

#define TONEMILL_BATCH_NORM_CONV_POINTERS(N)                                                              \
  NetWeights::BatchNormConv {                                                                             \
    &conv_##N##_batch_norm_bias, &conv_##N##_batch_norm_running_mean, &conv_##N##_batch_norm_running_var, \
        &conv_##N##_batch_norm_weight, &conv_##N##_conv_bias, &conv_##N##_conv_weight                     \
  }

NetWeights GetNetWeights() {
  return NetWeights{&conv_1_conv_bias,
                    &conv_1_conv_weight,
                    &conv_1_layer_norm_scaling_bias,
                    &conv_1_layer_norm_scaling_weight,
                    {TONEMILL_BATCH_NORM_CONV_POINTERS(2), TONEMILL_BATCH_NORM_CONV_POINTERS(3),
                     TONEMILL_BATCH_NORM_CONV_POINTERS(4), TONEMILL_BATCH_NORM_CONV_POINTERS(5),
                     TONEMILL_BATCH_NORM_CONV_POINTERS(6), TONEMILL_BATCH_NORM_CONV_POINTERS(7),
                     TONEMILL_BATCH_NORM_CONV_POINTERS(8), TONEMILL_BATCH_NORM_CONV_POINTERS(9),
                     TONEMILL_BATCH_NORM_CONV_POINTERS(10), TONEMILL_BATCH_NORM_CONV_POINTERS(11),
                     TONEMILL_BATCH_NORM_CONV_POINTERS(12), TONEMILL_BATCH_NORM_CONV_POINTERS(13),
                     TONEMILL_BATCH_NORM_CONV_POINTERS(14)}};
}
#undef TONEMILL_BATCH_NORM_CONV_POINTERS

namespace {

std::string LayerName(int number) { return "conv_" + std::to_string(number) + "_"; }

// One table of the record with its name and file shape.
struct Table {
  std::string name;
  std::vector<float>* values = nullptr;  // set for vectors
  ConvWeights* kernels = nullptr;        // set for conv weights
  std::vector<int64_t> shape;
};

// The tables of layer conv_<number>, in the order of the record.
std::vector<Table> LayerTables(int number) {
  const NetWeights record = GetNetWeights();
  const NoteNetLayerShape& s = kNoteNetLayerShapes[number - 1];
  const std::string prefix = LayerName(number);
  const std::vector<int64_t> kernel_shape{s.outputs, s.inputs, s.rows, s.columns};
  if (number == 1) {
    return {
        {prefix + "conv_bias", record.conv_1_conv_bias, nullptr, {s.outputs}},
        {prefix + "conv_weight", nullptr, record.conv_1_conv_weight, kernel_shape},
        {prefix + "layer_norm_scaling_bias", record.conv_1_layer_norm_scaling_bias, nullptr, {s.inputs}},
        {prefix + "layer_norm_scaling_weight", record.conv_1_layer_norm_scaling_weight, nullptr, {s.inputs}}};
  }
  const NetWeights::BatchNormConv& layer = record.conv[number - 2];
  return {{prefix + "batch_norm_bias", layer.batch_norm_bias, nullptr, {s.inputs}},
          {prefix + "batch_norm_running_mean", layer.batch_norm_running_mean, nullptr, {s.inputs}},
          {prefix + "batch_norm_running_var", layer.batch_norm_running_var, nullptr, {s.inputs}},
          {prefix + "batch_norm_weight", layer.batch_norm_weight, nullptr, {s.inputs}},
          {prefix + "conv_bias", layer.conv_bias, nullptr, {s.outputs}},
          {prefix + "conv_weight", nullptr, layer.conv_weight, kernel_shape}};
}

bool ReadTable(const SafetensorsFile& file, const Table& table, std::string* error) {
  std::vector<float> flat;
  if (!file.ReadFloats(table.name, table.shape, &flat, error)) return false;
  if (table.values) {
    *table.values = std::move(flat);
    return true;
  }
  size_t k = 0;
  for (auto& input_channels : *table.kernels)
    for (auto& rows : input_channels)
      for (auto& row : rows)
        for (float& value : row) value = flat[k++];
  return true;
}

bool LoadLayer(int number, const SafetensorsFile& file, std::string* error) {
  for (const Table& table : LayerTables(number))
    if (!ReadTable(file, table, error)) return false;
  return true;
}

bool weights_loaded = false;
std::string weights_error = "The note network weights have not been loaded.";

}  // namespace

bool SetNetWeights0(const SafetensorsFile& file, std::string* error) { return LoadLayer(1, file, error); }
bool SetNetWeights1(const SafetensorsFile& file, std::string* error) { return LoadLayer(2, file, error); }
bool SetNetWeights2(const SafetensorsFile& file, std::string* error) { return LoadLayer(3, file, error); }
bool SetNetWeights3(const SafetensorsFile& file, std::string* error) { return LoadLayer(4, file, error); }
bool SetNetWeights4(const SafetensorsFile& file, std::string* error) { return LoadLayer(5, file, error); }
bool SetNetWeights5(const SafetensorsFile& file, std::string* error) { return LoadLayer(6, file, error); }
bool SetNetWeights6(const SafetensorsFile& file, std::string* error) { return LoadLayer(7, file, error); }
bool SetNetWeights7(const SafetensorsFile& file, std::string* error) { return LoadLayer(8, file, error); }
bool SetNetWeights8(const SafetensorsFile& file, std::string* error) { return LoadLayer(9, file, error); }
bool SetNetWeights9(const SafetensorsFile& file, std::string* error) { return LoadLayer(10, file, error); }
bool SetNetWeights10(const SafetensorsFile& file, std::string* error) { return LoadLayer(11, file, error); }
bool SetNetWeights11(const SafetensorsFile& file, std::string* error) { return LoadLayer(12, file, error); }
bool SetNetWeights12(const SafetensorsFile& file, std::string* error) { return LoadLayer(13, file, error); }
bool SetNetWeights13(const SafetensorsFile& file, std::string* error) { return LoadLayer(14, file, error); }

void ClearNetWeights() {
  for (int number = 1; number <= kNumNoteNetLayers; ++number)
    for (const Table& table : LayerTables(number)) {
      if (table.values) table.values->assign(static_cast<size_t>(table.shape[0]), 0.0f);
      if (table.kernels) *table.kernels = ZeroKernels(number);
    }
}

bool SetNetWeights() { return SetNetWeights(DefaultNoteWeightsPath()); }

bool SetNetWeights(const std::string& path) {
  using Loader = bool (*)(const SafetensorsFile&, std::string*);
  static const Loader kLoaders[kNumNoteNetLayers] = {
      &SetNetWeights0,  &SetNetWeights1,  &SetNetWeights2,  &SetNetWeights3, &SetNetWeights4,
      &SetNetWeights5,  &SetNetWeights6,  &SetNetWeights7,  &SetNetWeights8, &SetNetWeights9,
      &SetNetWeights10, &SetNetWeights11, &SetNetWeights12, &SetNetWeights13};
  SafetensorsFile file;
  std::string error;
  bool ok = file.Open(path, &error);
  for (int i = 0; ok && i < kNumNoteNetLayers; ++i) ok = kLoaders[i](file, &error);
  weights_loaded = ok;
  if (ok) {
    weights_error.clear();
  } else {
    ClearNetWeights();
    weights_error = error;
  }
  return ok;
}

bool NetWeightsLoaded() { return weights_loaded; }

std::string NetWeightsError() { return weights_error; }

std::string DefaultNoteWeightsPath() {
  if (const char* env = std::getenv("TONEMILL_NOTE_WEIGHTS"); env && *env) return env;
  const QString app_dir =
      QCoreApplication::instance() ? QCoreApplication::applicationDirPath() : QDir::currentPath();
  const QString beside = QDir(app_dir).absoluteFilePath("weights/notes.safetensors");
  const QString bundle = QDir(app_dir).absoluteFilePath("../Resources/weights/notes.safetensors");
  if (!QFileInfo::exists(beside) && QFileInfo::exists(bundle)) return QDir::cleanPath(bundle).toStdString();
  return beside.toStdString();
}

std::vector<std::string> NoteNetTensorNames() {
  std::vector<std::string> names;
  for (int number = 1; number <= kNumNoteNetLayers; ++number)
    for (const Table& table : LayerTables(number)) names.push_back(table.name);
  return names;
}

std::vector<int64_t> NoteNetTensorShape(const std::string& name) {
  for (int number = 1; number <= kNumNoteNetLayers; ++number)
    for (const Table& table : LayerTables(number))
      if (table.name == name) return table.shape;
  return {};
}

std::map<std::string, SafetensorsFile::FloatTensor> RandomNoteWeights(unsigned seed) {
  std::mt19937 generator(seed);
  auto uniform = [&](float low, float high) {
    return low + (high - low) * static_cast<float>(generator() / 4294967296.0);
  };
  std::map<std::string, SafetensorsFile::FloatTensor> tensors;
  for (int number = 1; number <= kNumNoteNetLayers; ++number) {
    const NoteNetLayerShape& s = kNoteNetLayerShapes[number - 1];
    // Uniform kernels with variance 1 / fan-in keep the activations near unit scale
    // through the residual stack.
    const float limit = std::sqrt(3.0f / static_cast<float>(s.inputs * s.rows * s.columns));
    for (const Table& table : LayerTables(number)) {
      int64_t count = 1;
      for (int64_t d : table.shape) count *= d;
      std::vector<float> values(count);
      const std::string field = table.name.substr(LayerName(number).size());
      for (float& v : values) {
        if (field == "conv_weight") {
          v = uniform(-limit, limit);
        } else if (field == "batch_norm_running_var") {
          v = uniform(0.5f, 1.5f);
        } else if (field == "batch_norm_weight" || field == "layer_norm_scaling_weight") {
          v = uniform(0.8f, 1.2f);
        } else {
          v = uniform(-0.1f, 0.1f);
        }
      }
      tensors[table.name] = {table.shape, std::move(values)};
    }
  }
  return tensors;
}

bool WriteNoteWeights(const std::string& path,
                      const std::map<std::string, SafetensorsFile::FloatTensor>& tensors,
                      std::string* error) {
  return SafetensorsFile::Write(path, tensors, {}, error);
}
