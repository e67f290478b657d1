#include "audio/nyquist_io.h"

#include <limits>
#include <stdexcept>

#include "audio/flac_decoder.h"
#include "audio/mp3_decoder.h"
#include "audio/musepack_decoder.h"
#include "audio/opus_decoder.h"
#include "audio/vorbis_decoder.h"
#include "audio/wav_decoder.h"
#include "audio/wavpack_decoder.h"

namespace nqr {

NyquistIO::NyquistIO() { BuildDecoderTable(); }

void NyquistIO::BuildDecoderTable() {
  AddDecoderToTable(std::make_shared<WavDecoder>());
  AddDecoderToTable(std::make_shared<WavPackDecoder>());
  AddDecoderToTable(std::make_shared<VorbisDecoder>());
  AddDecoderToTable(std::make_shared<OpusDecoder>());
  AddDecoderToTable(std::make_shared<MusepackDecoder>());
  AddDecoderToTable(std::make_shared<Mp3Decoder>());
  AddDecoderToTable(std::make_shared<FlacDecoder>());
}

void NyquistIO::AddDecoderToTable(std::shared_ptr<BaseDecoder> decoder) {
  for (const std::string& extension : decoder->GetSupportedFileExtensions()) {
    if (decoder_table.count(extension)) throw std::runtime_error("decoder already exists for extension");
    decoder_table[extension] = decoder;
  }
}

std::shared_ptr<BaseDecoder> NyquistIO::GetDecoderForExtension(const std::string& extension) const {
  if (decoder_table.empty()) throw std::runtime_error("No available decoders.");
  const auto found = decoder_table.find(extension);
  if (found == decoder_table.end()) throw std::runtime_error("Unsupported file extension");
  return found->second;
}

bool NyquistIO::IsFileSupported(const std::string& path) const {
  return decoder_table.count(ParsePathForExtension(path)) > 0;
}

void NyquistIO::FinishResult(AudioData* data) {
  ValidateFormat(data->channel_count, data->sample_rate);
  if (data->samples.empty()) throw std::runtime_error("no audio in file");
  // Frame counts are int further on.
  if (data->samples.size() / data->channel_count > static_cast<std::size_t>(std::numeric_limits<int>::max()))
    throw std::runtime_error("audio too long");
  data->length_seconds = static_cast<double>(data->samples.size() / data->channel_count) / data->sample_rate;
}

void NyquistIO::Load(AudioData* data, const std::string& path) {
  std::shared_ptr<BaseDecoder> decoder = GetDecoderForExtension(ParsePathForExtension(path));
  decoder->LoadFromPath(data, path);
  FinishResult(data);
}

void NyquistIO::Load(AudioData* data, const std::string& extension, const std::vector<std::uint8_t>& bytes) {
  std::shared_ptr<BaseDecoder> decoder = GetDecoderForExtension(extension);
  decoder->LoadFromBuffer(data, bytes);
  FinishResult(data);
}

}  // namespace nqr
