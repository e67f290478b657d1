#include "audio/wav_decoder.h"

#include <cstring>
#include <stdexcept>

namespace nqr {

namespace {

constexpr std::uint16_t kWaveFormatPcm = 0x0001;
constexpr std::uint16_t kWaveFormatIeeeFloat = 0x0003;
constexpr std::uint16_t kWaveFormatExtensible = 0xFFFE;

std::uint16_t Read16(const std::uint8_t* p) { return static_cast<std::uint16_t>(p[0] | (p[1] << 8)); }

std::uint32_t Read32(const std::uint8_t* p) {
  return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

struct WavFormat {
  std::uint16_t format_tag = 0;
  std::uint16_t channels = 0;
  std::uint32_t sample_rate = 0;
  std::uint16_t block_align = 0;
  std::uint16_t bits_per_sample = 0;
};

WavFormat ParseFormatChunk(const std::uint8_t* p, std::size_t size) {
  if (size < 16) throw std::runtime_error("fmt chunk too small");
  WavFormat format;
  format.format_tag = Read16(p);
  format.channels = Read16(p + 2);
  format.sample_rate = Read32(p + 4);
  format.block_align = Read16(p + 12);
  format.bits_per_sample = Read16(p + 14);
  if (format.format_tag == kWaveFormatExtensible) {
    // cbSize(2) validBits(2) channelMask(4) then the sub-format GUID, whose first two bytes
    // are the plain format tag.
    if (size < 40) throw std::runtime_error("extensible fmt chunk too small");
    format.format_tag = Read16(p + 24);
  }
  return format;
}

PCMFormat SampleFormatOf(const WavFormat& format) {
  if (format.channels == 0 || format.block_align == 0 || format.block_align % format.channels != 0)
    throw std::runtime_error("invalid block alignment");
  // The container size decides the layout; bits_per_sample may be smaller (20 bits in 24).
  const int container_bits = format.block_align / format.channels * 8;
  if (format.bits_per_sample == 0 || format.bits_per_sample > container_bits)
    throw std::runtime_error("invalid bits per sample");
  if (format.format_tag == kWaveFormatPcm) {
    switch (container_bits) {
      case 8:
        return PCM_U8;
      case 16:
        return PCM_16;
      case 24:
        return PCM_24;
      case 32:
        return PCM_32;
    }
  } else if (format.format_tag == kWaveFormatIeeeFloat) {
    if (container_bits == 32) return PCM_FLT;
    if (container_bits == 64) return PCM_DBL;
  }
  throw std::runtime_error("unsupported wav encoding");
}

}  // namespace

void WavDecoder::LoadFromBuffer(AudioData* data, const std::vector<std::uint8_t>& bytes) {
  const std::size_t size = bytes.size();
  const std::uint8_t* base = bytes.data();
  if (size < 12 || std::memcmp(base, "RIFF", 4) != 0 || std::memcmp(base + 8, "WAVE", 4) != 0)
    throw std::runtime_error("not a RIFF/WAVE file");

  bool have_format = false;
  WavFormat format;
  const std::uint8_t* samples = nullptr;
  std::size_t sample_bytes = 0;

  // The RIFF size is often wrong (streamed recordings); the file's own size bounds the walk.
  std::size_t pos = 12;
  while (pos + 8 <= size) {
    const std::uint8_t* chunk = base + pos;
    const std::size_t declared = Read32(chunk + 4);
    const std::size_t available = size - pos - 8;
    const std::size_t chunk_size = declared < available ? declared : available;
    if (std::memcmp(chunk, "fmt ", 4) == 0 && !have_format) {
      format = ParseFormatChunk(chunk + 8, chunk_size);
      have_format = true;
    } else if (std::memcmp(chunk, "data", 4) == 0 && !samples) {
      samples = chunk + 8;
      sample_bytes = chunk_size;
    }
    if (declared >= available) break;
    pos += 8 + declared + (declared & 1);  // chunks are padded to an even size
  }
  if (!have_format) throw std::runtime_error("no fmt chunk");
  if (!samples) throw std::runtime_error("no data chunk");

  const PCMFormat sample_format = SampleFormatOf(format);
  ValidateFormat(format.channels, static_cast<int>(format.sample_rate > 0x7FFFFFFF ? 0 : format.sample_rate));
  const std::size_t frames = sample_bytes / format.block_align;
  const std::size_t count = frames * format.channels;

  data->channel_count = format.channels;
  data->sample_rate = static_cast<int>(format.sample_rate);
  data->source_format = sample_format;
  data->samples.resize(count);
  ConvertToFloat32(data->samples.data(), samples, count, sample_format);
}

}  // namespace nqr
