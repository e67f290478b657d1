#pragma once

#include <map>
#include <string>
#include <vector>

#include "nn/conv.h"
#include "nn/safetensors_file.h"

// The parameters of the note network (AllInWindowNet): process-wide tables, sized and zeroed
// at program start, filled once by SetNetWeights() before any job starts and read-only after
// that, so networks on several threads borrow them without locks.
//
// They come from one safetensors file, "notes.safetensors", whose tensor names are the table
// names below (resources/weights/README.md lists every name and shape). `conv_N_conv_weight`
// is [output channel][input channel][kernel row][kernel column]; every other table holds one
// float per channel. conv_14 belongs to the record but no network reads it.

constexpr int kNumNoteNetLayers = 14;

// Channels and kernel of one layer: conv_<number>.
struct NoteNetLayerShape {
  int number;
  int inputs;   // input channels, also the length of the normalisation vectors
  int outputs;  // output channels, the length of conv_bias
  int rows;     // kernel rows (frequency)
  int columns;  // kernel columns (time)
};
extern const NoteNetLayerShape kNoteNetLayerShapes[kNumNoteNetLayers];

extern std::vector<float> conv_1_conv_bias;
extern ConvWeights conv_1_conv_weight;
extern std::vector<float> conv_1_layer_norm_scaling_bias;
extern std::vector<float> conv_1_layer_norm_scaling_weight;

#define TONEMILL_DECLARE_BATCH_NORM_CONV(N)                     \
  extern std::vector<float> conv_##N##_batch_norm_bias;         \
  extern std::vector<float> conv_##N##_batch_norm_running_mean; \
  extern std::vector<float> conv_##N##_batch_norm_running_var;  \
  extern std::vector<float> conv_##N##_batch_norm_weight;       \
  extern std::vector<float> conv_##N##_conv_bias;               \
  extern ConvWeights conv_##N##_conv_weight;
TONEMILL_DECLARE_BATCH_NORM_CONV(2)
TONEMILL_DECLARE_BATCH_NORM_CONV(3)
TONEMILL_DECLARE_BATCH_NORM_CONV(4)
TONEMILL_DECLARE_BATCH_NORM_CONV(5)
TONEMILL_DECLARE_BATCH_NORM_CONV(6)
TONEMILL_DECLARE_BATCH_NORM_CONV(7)
TONEMILL_DECLARE_BATCH_NORM_CONV(8)
TONEMILL_DECLARE_BATCH_NORM_CONV(9)
TONEMILL_DECLARE_BATCH_NORM_CONV(10)
TONEMILL_DECLARE_BATCH_NORM_CONV(11)
TONEMILL_DECLARE_BATCH_NORM_CONV(12)
TONEMILL_DECLARE_BATCH_NORM_CONV(13)
TONEMILL_DECLARE_BATCH_NORM_CONV(14)
#undef TONEMILL_DECLARE_BATCH_NORM_CONV

// Pointers to every table, 82 of them, in this order: the four of conv_1 (conv bias, conv
// weight, layer-norm bias, layer-norm weight), then for N = 2 to 14 batch-norm bias, running
// mean, running variance, batch-norm weight, conv bias, conv weight. This is the record that
// the accelerator library receives.
struct NetWeights {
  std::vector<float>* conv_1_conv_bias;
  ConvWeights* conv_1_conv_weight;
  std::vector<float>* conv_1_layer_norm_scaling_bias;
  std::vector<float>* conv_1_layer_norm_scaling_weight;
  struct BatchNormConv {
    std::vector<float>* batch_norm_bias;
    std::vector<float>* batch_norm_running_mean;
    std::vector<float>* batch_norm_running_var;
    std::vector<float>* batch_norm_weight;
    std::vector<float>* conv_bias;
    ConvWeights* conv_weight;
  };
  BatchNormConv conv[kNumNoteNetLayers - 1];  // conv[0] is conv_2, conv[12] is conv_14
};

NetWeights GetNetWeights();

// Fills every table from DefaultNoteWeightsPath(), or from `path`. On any problem (a missing
// file, a missing tensor, a wrong shape or dtype, a truncated file) the tables are left at
// zero and false is returned; NetWeightsError() then names the file and the tensor. The chain
// SetNetWeights0 (conv_1) to SetNetWeights13 (conv_14) fills one layer each.
bool SetNetWeights();
bool SetNetWeights(const std::string& path);
bool SetNetWeights0(const SafetensorsFile& file, std::string* error);
bool SetNetWeights1(const SafetensorsFile& file, std::string* error);
bool SetNetWeights2(const SafetensorsFile& file, std::string* error);
bool SetNetWeights3(const SafetensorsFile& file, std::string* error);
bool SetNetWeights4(const SafetensorsFile& file, std::string* error);
bool SetNetWeights5(const SafetensorsFile& file, std::string* error);
bool SetNetWeights6(const SafetensorsFile& file, std::string* error);
bool SetNetWeights7(const SafetensorsFile& file, std::string* error);
bool SetNetWeights8(const SafetensorsFile& file, std::string* error);
bool SetNetWeights9(const SafetensorsFile& file, std::string* error);
bool SetNetWeights10(const SafetensorsFile& file, std::string* error);
bool SetNetWeights11(const SafetensorsFile& file, std::string* error);
bool SetNetWeights12(const SafetensorsFile& file, std::string* error);
bool SetNetWeights13(const SafetensorsFile& file, std::string* error);

// Whether the last SetNetWeights call filled the tables, and why not. Before any call the
// tables are zero and the error says that no weights were loaded.
bool NetWeightsLoaded();
std::string NetWeightsError();
// Back to the zeroed tables of program start.
void ClearNetWeights();

// Where the program looks for the file: $TONEMILL_NOTE_WEIGHTS if set, otherwise
// "weights/notes.safetensors" beside the executable (or in ../Resources of a bundle). When
// no candidate exists the first is returned, so that the error names it.
std::string DefaultNoteWeightsPath();

// The table names, in the order of the record.
std::vector<std::string> NoteNetTensorNames();
// The shape each tensor must have in the file.
std::vector<int64_t> NoteNetTensorShape(const std::string& name);

// A complete, reproducible set of random weights with the scale of a trained network
// (unit-variance activations), for tests, benchmarks and the training code's checks.
std::map<std::string, SafetensorsFile::FloatTensor> RandomNoteWeights(unsigned seed);
bool WriteNoteWeights(const std::string& path,
                      const std::map<std::string, SafetensorsFile::FloatTensor>& tensors, std::string* error);
