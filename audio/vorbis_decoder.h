#pragma once

#include "audio/base_decoder.h"

namespace nqr {

// Ogg Vorbis through libvorbisfile. Chained streams must keep one channel count and rate.
class VorbisDecoder : public BaseDecoder {
 public:
  void LoadFromBuffer(AudioData* data, const std::vector<std::uint8_t>& bytes) override;
  std::vector<std::string> GetSupportedFileExtensions() override { return {"ogg"}; }
};

}  // namespace nqr
