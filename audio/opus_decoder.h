#pragma once

#include "audio/base_decoder.h"

namespace nqr {

// Ogg Opus through opusfile; always 48000 Hz.
class OpusDecoder : public BaseDecoder {
 public:
  void LoadFromBuffer(AudioData* data, const std::vector<std::uint8_t>& bytes) override;
  std::vector<std::string> GetSupportedFileExtensions() override { return {"opus"}; }
};

}  // namespace nqr
