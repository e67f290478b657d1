#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The decoding front end: a thin layer over the codec libraries that turns a file, or the
// bytes of one, into interleaved float samples.
namespace nqr {

// Channel counts and sample rates outside these bounds are refused by every decoder: a
// header that claims them is damaged or hostile, and later stages could not cope anyway.
constexpr int kMaxChannels = 64;
constexpr int kMinSampleRate = 1000;
constexpr int kMaxSampleRate = 1536000;
// Files above this size are left to the streaming OS route rather than read into memory.
constexpr std::uint64_t kMaxFileBytes = std::uint64_t{1} << 31;

enum PCMFormat { PCM_U8, PCM_S8, PCM_16, PCM_24, PCM_32, PCM_FLT, PCM_DBL, PCM_END };

// Bits that one sample of `format` takes in a file; 0 for PCM_END.
int GetFormatBitsPerSample(PCMFormat format);

// A decoded file: interleaved float samples, nominally within -1 to 1.
struct AudioData {
  int channel_count = 0;
  int sample_rate = 0;
  double length_seconds = 0.0;
  PCMFormat source_format = PCM_END;
  std::vector<float> samples;
};

using NyquistFileBuffer = std::vector<std::uint8_t>;

// Converts `count` little-endian integer samples of `format` at `src` to floats in -1 to 1
// (8-bit samples are unsigned, as in WAV files). Float formats are copied or narrowed.
void ConvertToFloat32(float* dst, const std::uint8_t* src, std::size_t count, PCMFormat format);

// Reads a whole file. Throws std::runtime_error "file not found" and "error reading file or
// file too small".
NyquistFileBuffer ReadFile(const std::string& path);

// The lower-cased text after the last dot of the file name, or empty.
std::string ParsePathForExtension(const std::string& path);

// Throws std::runtime_error unless the channel count and sample rate lie within the bounds above.
void ValidateFormat(int channel_count, int sample_rate);

}  // namespace nqr
