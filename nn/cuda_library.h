#pragma once

#include <string>
#include <vector>

#include "nn/note_net_weights.h"
#include "nn/tensor.h"

// The optional accelerator library "cudutil" in lib/ beside the program. When present and
// willing it runs every window of the note network in one call; without it the CPU path is
// complete, and its absence costs one line on standard output.

// One window's answer, shaped as AllInWindowNet's output {2, 88, 138}.
using NetOutput = std::vector<std::vector<std::vector<float>>>;
// "RunNet": the weight record, all input windows, the value 1, and the outputs to fill.
using RunNetFunction = void (*)(NetWeights weights, std::vector<Tensor>& inputs, int batch,
                                std::vector<NetOutput>& outputs);
// "IsAvailable": a device is usable.
using IsAvailableFunction = bool (*)();

// The application's folder, then "/lib", then "cudutil" (QLibrary adds the platform suffix).
std::string CudaLibPath();
// Resolves "RunNet" and "IsAvailable" and asks the library. A library that cannot be loaded
// or lacks an entry point has its error written to standard output and gives false. Callers
// repeat the check; it is cheap.
bool CudaIsAvailable();
