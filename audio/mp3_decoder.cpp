#include "audio/mp3_decoder.h"

#include <mpg123.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <stdexcept>

#include "audio/memory_reader.h"

namespace nqr {

namespace {

void InitLibrary() {
  // mpg123_init is a no-op from 1.27 on, but older builds need it once before any handle.
  static std::once_flag once;
  std::call_once(once, [] { mpg123_init(); });
}

// The reader callbacks let libmpg123 seek, so it can scan the whole stream for its length
// and honour the gapless information in the first frame.
mpg123_ssize_t ReadCallback(void* handle, void* buffer, size_t count) {
  return static_cast<mpg123_ssize_t>(static_cast<MemoryReader*>(handle)->Read(buffer, count));
}

off_t SeekCallback(void* handle, off_t offset, int whence) {
  auto* reader = static_cast<MemoryReader*>(handle);
  if (!reader->Seek(offset, whence)) return -1;
  return static_cast<off_t>(reader->Tell());
}

// libmpg123 hunts for frame sync anywhere in its input and can find false frames in other
// formats; a file that announces another container is left to the route that probes content.
bool HasForeignMagic(const std::vector<std::uint8_t>& bytes) {
  static const char* const kMagics[] = {"RIFF", "OggS", "fLaC", "wvpk",
                                        "MPCK", "MP+",  "FORM", "\x30\x26\xb2\x75"};
  for (const char* magic : kMagics) {
    const std::size_t n = std::strlen(magic);
    if (bytes.size() >= n && std::memcmp(bytes.data(), magic, n) == 0) return true;
  }
  // MP4 and QuickTime: a box size followed by "ftyp".
  return bytes.size() >= 8 && std::memcmp(bytes.data() + 4, "ftyp", 4) == 0;
}

struct HandleCloser {
  void operator()(mpg123_handle* handle) const {
    mpg123_close(handle);
    mpg123_delete(handle);
  }
};

}  // namespace

void Mp3Decoder::LoadFromBuffer(AudioData* data, const std::vector<std::uint8_t>& bytes) {
  if (HasForeignMagic(bytes)) throw std::runtime_error("not an mpeg audio stream");
  InitLibrary();
  int error = MPG123_OK;
  std::unique_ptr<mpg123_handle, HandleCloser> handle(mpg123_new(nullptr, &error));
  if (!handle) throw std::runtime_error("mpg123 handle failed");
  mpg123_param(handle.get(), MPG123_ADD_FLAGS, MPG123_FORCE_FLOAT | MPG123_QUIET | MPG123_GAPLESS, 0.0);
  // Only the encoding is forced; rate and channels stay those of the stream.
  mpg123_format_none(handle.get());
  const long* rates = nullptr;
  size_t rate_count = 0;
  mpg123_rates(&rates, &rate_count);
  for (size_t i = 0; i < rate_count; ++i)
    mpg123_format(handle.get(), rates[i], MPG123_MONO | MPG123_STEREO, MPG123_ENC_FLOAT_32);

  MemoryReader reader(bytes);
  if (mpg123_replace_reader_handle(handle.get(), ReadCallback, SeekCallback, nullptr) != MPG123_OK ||
      mpg123_open_handle(handle.get(), &reader) != MPG123_OK)
    throw std::runtime_error("mpg123 open failed");

  long rate = 0;
  int channels = 0;
  int encoding = 0;
  if (mpg123_getformat(handle.get(), &rate, &channels, &encoding) != MPG123_OK)
    throw std::runtime_error("not an mpeg audio stream");
  ValidateFormat(channels, static_cast<int>(rate));
  data->channel_count = channels;
  data->sample_rate = static_cast<int>(rate);
  data->source_format = PCM_FLT;

  std::vector<unsigned char> buffer(mpg123_outblock(handle.get()) * 4);
  for (;;) {
    size_t done = 0;
    const int status = mpg123_read(handle.get(), buffer.data(), buffer.size(), &done);
    const std::size_t count = done / sizeof(float);
    const std::size_t offset = data->samples.size();
    data->samples.resize(offset + count);
    std::memcpy(data->samples.data() + offset, buffer.data(), count * sizeof(float));
    if (status == MPG123_DONE) break;
    if (status == MPG123_NEW_FORMAT) {
      long new_rate = 0;
      int new_channels = 0;
      mpg123_getformat(handle.get(), &new_rate, &new_channels, &encoding);
      if (new_rate != rate || new_channels != channels)
        throw std::runtime_error("mpeg stream changes format");
      continue;
    }
    if (status != MPG123_OK) {
      // A damaged tail ends the stream; damage before any audio means it was never mp3.
      if (data->samples.empty()) throw std::runtime_error("corrupt mpeg audio stream");
      break;
    }
    if (done == 0) break;
  }
}

}  // namespace nqr
