#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Test audio made on the spot: tones as floats, WAV files byte by byte, and every other
// format through FFmpeg's encoders, so that no fixture but the Musepack one is committed.
namespace audio_fixtures {

// Interleaved sines, channel c at 220 * (c + 2) Hz, amplitude `amplitude`.
std::vector<float> Tone(int sample_rate, int channels, double seconds, double amplitude);

struct WavLayout {
  int channels = 2;
  int sample_rate = 44100;
  int format_tag = 1;  // 1 PCM, 3 IEEE float
  int bits = 16;       // container bits of one sample
  bool extensible = false;
  bool odd_chunk_before_data = false;  // a 3-byte "junk" chunk with its pad byte
  bool chunk_after_data = false;       // a LIST chunk after the samples
  bool format_after_data = false;
  std::int64_t declared_data_bytes = -1;  // overrides the data chunk size
};

// A WAV file holding `samples` (interleaved, -1 to 1) in the given sample layout.
std::vector<std::uint8_t> MakeWav(const WavLayout& layout, const std::vector<float>& samples);
// A 16-bit PCM WAV holding exactly `samples`.
std::vector<std::uint8_t> MakeWav16(int channels, int sample_rate, const std::vector<std::int16_t>& samples);

// Encodes with FFmpeg into a file: `container` is a muxer name ("ogg", "mp4", "aiff"...),
// `codec` an encoder name ("libvorbis", "aac"...), `sample_format` an FFmpeg sample format
// name ("s16p"), empty for the encoder's first. Returns false if the encoder is missing.
bool EncodeWithFfmpeg(const std::string& path, const std::string& container, const std::string& codec,
                      int sample_rate, int channels, const std::vector<float>& samples, int bit_rate = 0,
                      const std::string& sample_format = "");
// Rounds each sample to a multiple of 1/32768, so that 16-bit codecs keep it exactly.
std::vector<float> QuantizeTo16Bits(std::vector<float> samples);

void WriteFile(const std::string& path, const std::vector<std::uint8_t>& bytes);
std::vector<std::uint8_t> ReadFileBytes(const std::string& path);

// Root mean square of a - b over the shorter length.
double RmsDifference(const std::vector<float>& a, const std::vector<float>& b);
// Frequency of channel `channel` from its zero crossings in the middle three fifths.
double ZeroCrossingFrequency(const std::vector<float>& interleaved, int channels, int channel,
                             int sample_rate);

}  // namespace audio_fixtures
