#pragma once

#include "platform/version.h"

namespace Constants {

inline constexpr const char* program_name = "Tonemill";
inline constexpr Version sw_version{4, 16, 0};

// The note network always reads a grid of 4 rows per semitone and 10 ms columns.
inline constexpr int kNeuralNetFrequenciesPerNote = 4;
inline constexpr int kNeuralNetTimeStepMs = 10;

// Note groups 0 to 14, one MIDI track each.
inline constexpr int kNumMidiTracks = 15;

#if defined(__APPLE__)
inline constexpr const char* build_os = "mac";
#elif defined(_WIN32)
inline constexpr const char* build_os = "windows";
#else
inline constexpr const char* build_os = "linux";
#endif

// Host of the update, feedback, crash report and usage services.
inline constexpr const char* base_url = "https://updates.tonemill.invalid";

}  // namespace Constants
