#include "audio/flac_decoder.h"

#include <FLAC/stream_decoder.h>

#include <memory>
#include <new>
#include <stdexcept>

#include "audio/memory_reader.h"

namespace nqr {

namespace {

struct FlacState {
  explicit FlacState(const std::vector<std::uint8_t>& bytes) : reader(bytes) {}
  MemoryReader reader;
  AudioData* data = nullptr;
  bool aborted = false;
  bool out_of_memory = false;  // a bad_alloc must not unwind through libFLAC
  int channels = 0;
  int bits = 0;
};

FLAC__StreamDecoderReadStatus Read(const FLAC__StreamDecoder*, FLAC__byte buffer[], size_t* bytes,
                                   void* client) {
  auto* state = static_cast<FlacState*>(client);
  if (*bytes == 0) return FLAC__STREAM_DECODER_READ_STATUS_ABORT;
  *bytes = state->reader.Read(buffer, *bytes);
  return *bytes == 0 ? FLAC__STREAM_DECODER_READ_STATUS_END_OF_STREAM
                     : FLAC__STREAM_DECODER_READ_STATUS_CONTINUE;
}

FLAC__StreamDecoderSeekStatus Seek(const FLAC__StreamDecoder*, FLAC__uint64 offset, void* client) {
  auto* state = static_cast<FlacState*>(client);
  return state->reader.Seek(static_cast<std::int64_t>(offset), SEEK_SET)
             ? FLAC__STREAM_DECODER_SEEK_STATUS_OK
             : FLAC__STREAM_DECODER_SEEK_STATUS_ERROR;
}

FLAC__StreamDecoderTellStatus Tell(const FLAC__StreamDecoder*, FLAC__uint64* offset, void* client) {
  *offset = static_cast<FlacState*>(client)->reader.Tell();
  return FLAC__STREAM_DECODER_TELL_STATUS_OK;
}

FLAC__StreamDecoderLengthStatus Length(const FLAC__StreamDecoder*, FLAC__uint64* length, void* client) {
  *length = static_cast<FlacState*>(client)->reader.Size();
  return FLAC__STREAM_DECODER_LENGTH_STATUS_OK;
}

FLAC__bool Eof(const FLAC__StreamDecoder*, void* client) {
  return static_cast<FlacState*>(client)->reader.AtEnd();
}

FLAC__StreamDecoderWriteStatus Write(const FLAC__StreamDecoder*, const FLAC__Frame* frame,
                                     const FLAC__int32* const buffer[], void* client) {
  auto* state = static_cast<FlacState*>(client);
  const int channels = static_cast<int>(frame->header.channels);
  const int bits = static_cast<int>(frame->header.bits_per_sample);
  if (state->channels == 0) {
    state->channels = channels;
    state->bits = bits;
  }
  // Every frame must match the first one; a stream that changes format midway is damaged.
  if (channels != state->channels || bits != state->bits || bits < 4 || bits > 32) {
    state->aborted = true;
    return FLAC__STREAM_DECODER_WRITE_STATUS_ABORT;
  }
  const double scale = 1.0 / static_cast<double>(std::uint64_t{1} << (bits - 1));
  const unsigned blocksize = frame->header.blocksize;
  std::vector<float>& samples = state->data->samples;
  const std::size_t offset = samples.size();
  try {
    samples.resize(offset + static_cast<std::size_t>(blocksize) * channels);
  } catch (const std::bad_alloc&) {
    state->out_of_memory = true;
    return FLAC__STREAM_DECODER_WRITE_STATUS_ABORT;
  }
  float* out = samples.data() + offset;
  for (unsigned i = 0; i < blocksize; ++i)
    for (int c = 0; c < channels; ++c) *out++ = static_cast<float>(buffer[c][i] * scale);
  if (state->data->sample_rate == 0) state->data->sample_rate = static_cast<int>(frame->header.sample_rate);
  return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
}

void Metadata(const FLAC__StreamDecoder*, const FLAC__StreamMetadata* metadata, void* client) {
  auto* state = static_cast<FlacState*>(client);
  if (metadata->type != FLAC__METADATA_TYPE_STREAMINFO) return;
  const FLAC__StreamMetadata_StreamInfo& info = metadata->data.stream_info;
  state->data->sample_rate = static_cast<int>(info.sample_rate);
  const std::uint64_t total = info.total_samples * info.channels;
  try {
    if (total > 0 && total < state->reader.Size() * 64) state->data->samples.reserve(total);
  } catch (const std::bad_alloc&) {
    state->out_of_memory = true;
  }
}

void Error(const FLAC__StreamDecoder*, FLAC__StreamDecoderErrorStatus, void*) {
  // Lost sync and bad frames are skipped by the decoder; a file with no good frame ends empty.
}

struct FlacDecoderDeleter {
  void operator()(FLAC__StreamDecoder* decoder) const { FLAC__stream_decoder_delete(decoder); }
};

}  // namespace

void FlacDecoder::LoadFromBuffer(AudioData* data, const std::vector<std::uint8_t>& bytes) {
  std::unique_ptr<FLAC__StreamDecoder, FlacDecoderDeleter> decoder(FLAC__stream_decoder_new());
  if (!decoder) throw std::bad_alloc();
  FlacState state(bytes);
  state.data = data;
  data->sample_rate = 0;
  data->source_format = PCM_32;
  if (FLAC__stream_decoder_init_stream(decoder.get(), Read, Seek, Tell, Length, Eof, Write, Metadata, Error,
                                       &state) != FLAC__STREAM_DECODER_INIT_STATUS_OK)
    throw std::runtime_error("flac decoder init failed");
  const bool ok = FLAC__stream_decoder_process_until_end_of_stream(decoder.get());
  FLAC__stream_decoder_finish(decoder.get());
  if (state.out_of_memory) throw std::bad_alloc();
  if (state.aborted) throw std::runtime_error("flac frames differ in format");
  if (!ok && data->samples.empty()) throw std::runtime_error("not a flac stream");
  data->channel_count = state.channels;
  if (state.bits <= 8)
    data->source_format = PCM_S8;
  else if (state.bits <= 16)
    data->source_format = PCM_16;
  else if (state.bits <= 24)
    data->source_format = PCM_24;
}

}  // namespace nqr
