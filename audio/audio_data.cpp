#include "audio/audio_data.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace nqr {

namespace {

std::int32_t ReadLittleEndian24(const std::uint8_t* p) {
  const std::uint32_t u = p[0] | (p[1] << 8) | (static_cast<std::uint32_t>(p[2]) << 16);
  // Sign-extend from bit 23.
  return static_cast<std::int32_t>(u << 8) >> 8;
}

}  // namespace

int GetFormatBitsPerSample(PCMFormat format) {
  switch (format) {
    case PCM_U8:
    case PCM_S8:
      return 8;
    case PCM_16:
      return 16;
    case PCM_24:
      return 24;
    case PCM_32:
    case PCM_FLT:
      return 32;
    case PCM_DBL:
      return 64;
    default:
      return 0;
  }
}

void ConvertToFloat32(float* dst, const std::uint8_t* src, std::size_t count, PCMFormat format) {
  switch (format) {
    case PCM_U8:
      for (std::size_t i = 0; i < count; ++i) dst[i] = (static_cast<int>(src[i]) - 128) / 128.0f;
      break;
    case PCM_S8:
      for (std::size_t i = 0; i < count; ++i) dst[i] = static_cast<std::int8_t>(src[i]) / 128.0f;
      break;
    case PCM_16:
      for (std::size_t i = 0; i < count; ++i) {
        const auto v = static_cast<std::int16_t>(src[2 * i] | (src[2 * i + 1] << 8));
        dst[i] = v / 32768.0f;
      }
      break;
    case PCM_24:
      for (std::size_t i = 0; i < count; ++i) dst[i] = ReadLittleEndian24(src + 3 * i) / 8388608.0f;
      break;
    case PCM_32:
      for (std::size_t i = 0; i < count; ++i) {
        std::int32_t v;
        std::memcpy(&v, src + 4 * i, 4);
        dst[i] = static_cast<float>(v / 2147483648.0);
      }
      break;
    case PCM_FLT:
      std::memcpy(dst, src, count * sizeof(float));
      break;
    case PCM_DBL:
      for (std::size_t i = 0; i < count; ++i) {
        double v;
        std::memcpy(&v, src + 8 * i, 8);
        dst[i] = static_cast<float>(v);
      }
      break;
    default:
      throw std::runtime_error("unsupported sample format");
  }
}

NyquistFileBuffer ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  if (!file) throw std::runtime_error("file not found");
  const std::streamoff size = file.tellg();
  if (size <= 0 || static_cast<std::uint64_t>(size) > kMaxFileBytes)
    throw std::runtime_error("error reading file or file too small");
  NyquistFileBuffer buffer(static_cast<std::size_t>(size));
  file.seekg(0);
  if (!file.read(reinterpret_cast<char*>(buffer.data()), size))
    throw std::runtime_error("error reading file or file too small");
  return buffer;
}

std::string ParsePathForExtension(const std::string& path) {
  const std::size_t slash = path.find_last_of("/\\");
  const std::size_t dot = path.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return {};
  std::string extension = path.substr(dot + 1);
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension;
}

void ValidateFormat(int channel_count, int sample_rate) {
  if (channel_count < 1 || channel_count > kMaxChannels) throw std::runtime_error("invalid channel count");
  if (sample_rate < kMinSampleRate || sample_rate > kMaxSampleRate)
    throw std::runtime_error("invalid sample rate");
}

}  // namespace nqr
