#include "audio/opus_decoder.h"

#include <opus/opusfile.h>

#include <memory>
#include <stdexcept>

namespace nqr {

namespace {

constexpr int kOpusSampleRate = 48000;

struct OpusFileCloser {
  void operator()(OggOpusFile* file) const { op_free(file); }
};

}  // namespace

void OpusDecoder::LoadFromBuffer(AudioData* data, const std::vector<std::uint8_t>& bytes) {
  int error = 0;
  std::unique_ptr<OggOpusFile, OpusFileCloser> file(op_open_memory(bytes.data(), bytes.size(), &error));
  if (!file) throw std::runtime_error("not an opus stream");

  const int channels = op_channel_count(file.get(), -1);
  ValidateFormat(channels, kOpusSampleRate);
  data->channel_count = channels;
  data->sample_rate = kOpusSampleRate;
  data->source_format = PCM_FLT;

  const ogg_int64_t total = op_pcm_total(file.get(), -1);
  if (total > 0 && static_cast<std::uint64_t>(total) < bytes.size() * 64)
    data->samples.reserve(static_cast<std::size_t>(total) * channels);

  // 120 ms at 48 kHz is the longest Opus packet.
  std::vector<float> buffer(static_cast<std::size_t>(5760) * channels);
  int errors = 0;
  for (;;) {
    int link = 0;
    const int frames = op_read_float(file.get(), buffer.data(), static_cast<int>(buffer.size()), &link);
    if (frames == 0) break;
    if (frames < 0) {
      if (frames == OP_HOLE && ++errors < 64) continue;
      throw std::runtime_error("corrupt opus stream");
    }
    if (op_channel_count(file.get(), link) != channels)
      throw std::runtime_error("opus links differ in format");
    data->samples.insert(data->samples.end(), buffer.begin(),
                         buffer.begin() + static_cast<std::ptrdiff_t>(frames) * channels);
  }
}

}  // namespace nqr
