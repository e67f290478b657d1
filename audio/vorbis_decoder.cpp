#include "audio/vorbis_decoder.h"

#include <vorbis/vorbisfile.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

#include "audio/memory_reader.h"

namespace nqr {

namespace {

size_t ReadCallback(void* ptr, size_t size, size_t count, void* source) {
  if (size == 0) return 0;
  return static_cast<MemoryReader*>(source)->Read(ptr, size * count) / size;
}

int SeekCallback(void* source, ogg_int64_t offset, int whence) {
  return static_cast<MemoryReader*>(source)->Seek(offset, whence) ? 0 : -1;
}

long TellCallback(void* source) { return static_cast<long>(static_cast<MemoryReader*>(source)->Tell()); }

struct VorbisFileCloser {
  void operator()(OggVorbis_File* file) const {
    ov_clear(file);
    delete file;
  }
};

}  // namespace

void VorbisDecoder::LoadFromBuffer(AudioData* data, const std::vector<std::uint8_t>& bytes) {
  MemoryReader reader(bytes);
  const ov_callbacks callbacks = {ReadCallback, SeekCallback, nullptr, TellCallback};
  auto* raw = new OggVorbis_File;
  if (ov_open_callbacks(&reader, raw, nullptr, 0, callbacks) != 0) {
    delete raw;
    throw std::runtime_error("not a vorbis stream");
  }
  std::unique_ptr<OggVorbis_File, VorbisFileCloser> file(raw);

  const vorbis_info* info = ov_info(file.get(), -1);
  if (!info) throw std::runtime_error("vorbis stream without info");
  const int channels = info->channels;
  const long rate = info->rate;
  ValidateFormat(channels, rate > kMaxSampleRate ? 0 : static_cast<int>(rate));
  data->channel_count = channels;
  data->sample_rate = static_cast<int>(rate);
  data->source_format = PCM_FLT;

  const ogg_int64_t total = ov_pcm_total(file.get(), -1);
  // A hostile header may claim any length; never reserve more than the bytes could hold.
  if (total > 0 && static_cast<std::uint64_t>(total) < bytes.size() * 64)
    data->samples.reserve(static_cast<std::size_t>(total) * channels);

  int section = 0;
  int errors = 0;
  for (;;) {
    float** pcm = nullptr;
    const long frames = ov_read_float(file.get(), &pcm, 4096, &section);
    if (frames == 0) break;
    if (frames < 0) {
      // A hole in the stream (OV_HOLE) is skipped; a run of them means the data is garbage.
      if (frames == OV_HOLE && ++errors < 64) continue;
      throw std::runtime_error("corrupt vorbis stream");
    }
    const vorbis_info* link = ov_info(file.get(), section);
    if (!link || link->channels != channels || link->rate != rate)
      throw std::runtime_error("vorbis links differ in format");
    const std::size_t offset = data->samples.size();
    data->samples.resize(offset + static_cast<std::size_t>(frames) * channels);
    float* out = data->samples.data() + offset;
    for (long f = 0; f < frames; ++f)
      for (int c = 0; c < channels; ++c) *out++ = pcm[c][f];
  }
}

}  // namespace nqr
