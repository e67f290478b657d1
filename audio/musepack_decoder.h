#pragma once

#include "audio/base_decoder.h"

namespace nqr {

// Musepack SV7 and SV8 through libmpcdec.
class MusepackDecoder : public BaseDecoder {
 public:
  void LoadFromBuffer(AudioData* data, const std::vector<std::uint8_t>& bytes) override;
  std::vector<std::string> GetSupportedFileExtensions() override { return {"mpc"}; }
};

}  // namespace nqr
