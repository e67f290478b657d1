#pragma once

#include <map>
#include <string>

#include "nn/bi_beat_net.h"
#include "nn/safetensors_file.h"

// The weights of the eight beat networks live in one safetensors file,
// "beats.safetensors" (see resources/weights/README.md for every tensor name and shape).
// Metadata "scaled" = "true" says the numbers already carry BiBeatNet::kWeightScale;
// otherwise (the default) the ensemble scales them after loading.

constexpr int kNumBeatNets = 8;

// "net<net>.layer<layer>.<forward|backward>.<block>.<field>", all indices from 0.
std::string BeatTensorName(int net, int layer, bool backward, const std::string& block, const std::string& field);
// "net<net>.linear.<field>".
std::string BeatLinearTensorName(int net, const std::string& field);

// Fills network `index` from `file`; false with an error naming the tensor and the file.
bool LoadBeatNet(int index, const SafetensorsFile& file, BiBeatNet* net, std::string* error);
bool LoadW0(BiBeatNet* net, const SafetensorsFile& file, std::string* error);
bool LoadW1(BiBeatNet* net, const SafetensorsFile& file, std::string* error);
bool LoadW2(BiBeatNet* net, const SafetensorsFile& file, std::string* error);
bool LoadW3(BiBeatNet* net, const SafetensorsFile& file, std::string* error);
bool LoadW4(BiBeatNet* net, const SafetensorsFile& file, std::string* error);
bool LoadW5(BiBeatNet* net, const SafetensorsFile& file, std::string* error);
bool LoadW6(BiBeatNet* net, const SafetensorsFile& file, std::string* error);
bool LoadW7(BiBeatNet* net, const SafetensorsFile& file, std::string* error);
using BeatNetLoader = bool (*)(BiBeatNet*, const SafetensorsFile&, std::string*);
extern const BeatNetLoader kBeatNetLoaders[kNumBeatNets];

bool BeatWeightsScaled(const SafetensorsFile& file);

// Where the program looks for the file: $TONEMILL_BEAT_WEIGHTS if set, otherwise
// "weights/beats.safetensors" beside the executable (or in ../Resources of a bundle). When
// no candidate exists the first is returned, so that the error names it.
std::string DefaultBeatWeightsPath();

// A complete set of uniformly random weights in [-range, range] for all eight networks,
// reproducible from `seed`; for tests and benchmarks until trained weights exist.
std::map<std::string, SafetensorsFile::FloatTensor> RandomBeatWeights(unsigned seed, float range);
bool WriteBeatWeights(const std::string& path, const std::map<std::string, SafetensorsFile::FloatTensor>& tensors,
                      bool scaled, std::string* error);
