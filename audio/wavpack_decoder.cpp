#include "audio/wavpack_decoder.h"

#include <wavpack/wavpack.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "audio/memory_reader.h"

namespace nqr {

namespace {

MemoryReader* Source(void* id) { return static_cast<MemoryReader*>(id); }

int32_t ReadBytes(void* id, void* data, int32_t count) {
  return count <= 0 ? 0 : static_cast<int32_t>(Source(id)->Read(data, static_cast<std::size_t>(count)));
}
int32_t WriteBytes(void*, void*, int32_t) { return 0; }
int64_t GetPos(void* id) { return static_cast<int64_t>(Source(id)->Tell()); }
int SetPosAbs(void* id, int64_t pos) { return Source(id)->Seek(pos, SEEK_SET) ? 0 : -1; }
int SetPosRel(void* id, int64_t delta, int mode) { return Source(id)->Seek(delta, mode) ? 0 : -1; }
int PushBackByte(void* id, int c) { return Source(id)->Seek(-1, SEEK_CUR) ? c : EOF; }
int64_t GetLength(void* id) { return static_cast<int64_t>(Source(id)->Size()); }
int CanSeek(void*) { return 1; }
int TruncateHere(void*) { return -1; }
int Close(void*) { return 0; }

struct WavpackCloser {
  void operator()(WavpackContext* context) const { WavpackCloseFile(context); }
};

}  // namespace

void WavPackDecoder::LoadFromBuffer(AudioData* data, const std::vector<std::uint8_t>& bytes) {
  MemoryReader reader(bytes);
  WavpackStreamReader64 callbacks = {ReadBytes,    WriteBytes, GetPos,  SetPosAbs,    SetPosRel,
                                     PushBackByte, GetLength,  CanSeek, TruncateHere, Close};
  char error[128] = {};
  std::unique_ptr<WavpackContext, WavpackCloser> context(
      WavpackOpenFileInputEx64(&callbacks, &reader, nullptr, error, OPEN_NORMALIZE, 0));
  if (!context) throw std::runtime_error(std::string("not a wavpack stream: ") + error);

  const int channels = WavpackGetNumChannels(context.get());
  const uint32_t rate = WavpackGetSampleRate(context.get());
  ValidateFormat(channels, rate > static_cast<uint32_t>(kMaxSampleRate) ? 0 : static_cast<int>(rate));
  const int bytes_per_sample = WavpackGetBytesPerSample(context.get());
  const bool is_float = (WavpackGetMode(context.get()) & MODE_FLOAT) != 0;
  if (bytes_per_sample < 1 || bytes_per_sample > 4) throw std::runtime_error("invalid wavpack sample size");
  data->channel_count = channels;
  data->sample_rate = static_cast<int>(rate);
  data->source_format = is_float ? PCM_FLT : static_cast<PCMFormat>(PCM_S8 + bytes_per_sample - 1);

  const int64_t total = WavpackGetNumSamples64(context.get());
  if (total > 0 && static_cast<std::uint64_t>(total) < bytes.size() * 64)
    data->samples.reserve(static_cast<std::size_t>(total) * channels);

  // Integer samples arrive right-justified in 32 bits; floats as their bit patterns.
  const double scale = 1.0 / static_cast<double>(std::uint64_t{1} << (bytes_per_sample * 8 - 1));
  constexpr uint32_t kChunkFrames = 4096;
  std::vector<int32_t> buffer(static_cast<std::size_t>(kChunkFrames) * channels);
  for (;;) {
    const uint32_t frames = WavpackUnpackSamples(context.get(), buffer.data(), kChunkFrames);
    if (frames == 0) break;
    const std::size_t count = static_cast<std::size_t>(frames) * channels;
    const std::size_t offset = data->samples.size();
    data->samples.resize(offset + count);
    float* out = data->samples.data() + offset;
    if (is_float) {
      std::memcpy(out, buffer.data(), count * sizeof(float));
    } else {
      for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<float>(buffer[i] * scale);
    }
  }
  if (data->samples.empty()) throw std::runtime_error("wavpack stream without samples");
}

}  // namespace nqr
