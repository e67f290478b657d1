#pragma once

#include "audio/base_decoder.h"

namespace nqr {

// RIFF/WAVE reader: PCM of 8, 16, 24 and 32 bits, IEEE float of 32 and 64 bits, plain or
// WAVE_FORMAT_EXTENSIBLE. Chunks are walked with their pad bytes, in any order; a data
// chunk that claims more bytes than the file holds is cut to the whole frames present.
class WavDecoder : public BaseDecoder {
 public:
  void LoadFromBuffer(AudioData* data, const std::vector<std::uint8_t>& bytes) override;
  std::vector<std::string> GetSupportedFileExtensions() override { return {"wav", "wave"}; }
};

}  // namespace nqr
