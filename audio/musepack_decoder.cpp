#include "audio/musepack_decoder.h"

#include <mpc/mpcdec.h>

#include <cstdio>
#include <limits>
#include <memory>
#include <stdexcept>

#include "audio/memory_reader.h"

namespace nqr {

namespace {

MemoryReader* Source(mpc_reader* reader) { return static_cast<MemoryReader*>(reader->data); }

mpc_int32_t Read(mpc_reader* reader, void* ptr, mpc_int32_t size) {
  return size <= 0 ? 0 : static_cast<mpc_int32_t>(Source(reader)->Read(ptr, static_cast<std::size_t>(size)));
}
mpc_bool_t Seek(mpc_reader* reader, mpc_int32_t offset) { return Source(reader)->Seek(offset, SEEK_SET); }
mpc_int32_t Tell(mpc_reader* reader) { return static_cast<mpc_int32_t>(Source(reader)->Tell()); }
mpc_int32_t GetSize(mpc_reader* reader) { return static_cast<mpc_int32_t>(Source(reader)->Size()); }
mpc_bool_t CanSeek(mpc_reader*) { return MPC_TRUE; }

struct DemuxCloser {
  void operator()(mpc_demux* demux) const { mpc_demux_exit(demux); }
};

}  // namespace

void MusepackDecoder::LoadFromBuffer(AudioData* data, const std::vector<std::uint8_t>& bytes) {
  // The library's reader counts in 32-bit signed offsets.
  if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<mpc_int32_t>::max()))
    throw std::runtime_error("musepack file too large");
  MemoryReader source(bytes);
  mpc_reader reader = {Read, Seek, Tell, GetSize, CanSeek, &source};
  std::unique_ptr<mpc_demux, DemuxCloser> demux(mpc_demux_init(&reader));
  if (!demux) throw std::runtime_error("not a musepack stream");

  mpc_streaminfo info;
  mpc_demux_get_info(demux.get(), &info);
  const int channels = static_cast<int>(info.channels);
  ValidateFormat(channels, info.sample_freq > static_cast<mpc_uint32_t>(kMaxSampleRate)
                               ? 0
                               : static_cast<int>(info.sample_freq));
  data->channel_count = channels;
  data->sample_rate = static_cast<int>(info.sample_freq);
  data->source_format = PCM_FLT;

  std::vector<MPC_SAMPLE_FORMAT> buffer(MPC_DECODER_BUFFER_LENGTH);
  // Each frame consumes input; the bound only guards against a decoder that stops advancing.
  const std::size_t max_frames = bytes.size() + 16;
  for (std::size_t n = 0; n < max_frames; ++n) {
    mpc_frame_info frame;
    frame.buffer = buffer.data();
    if (mpc_demux_decode(demux.get(), &frame) != MPC_STATUS_OK)
      throw std::runtime_error("corrupt musepack stream");
    if (frame.bits == -1) break;
    const std::size_t count = static_cast<std::size_t>(frame.samples) * channels;
    if (count > buffer.size()) throw std::runtime_error("corrupt musepack frame");
    data->samples.insert(data->samples.end(), buffer.begin(),
                         buffer.begin() + static_cast<std::ptrdiff_t>(count));
  }
}

}  // namespace nqr
