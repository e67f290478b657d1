#pragma once

#include "audio/base_decoder.h"

namespace nqr {

// Native FLAC through libFLAC's stream decoder, 4 to 32 bits a sample.
class FlacDecoder : public BaseDecoder {
 public:
  void LoadFromBuffer(AudioData* data, const std::vector<std::uint8_t>& bytes) override;
  std::vector<std::string> GetSupportedFileExtensions() override { return {"flac"}; }
};

}  // namespace nqr
