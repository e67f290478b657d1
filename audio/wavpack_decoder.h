#pragma once

#include "audio/base_decoder.h"

namespace nqr {

// WavPack through libwavpack: integer and float, any channel count up to the front end's limit.
class WavPackDecoder : public BaseDecoder {
 public:
  void LoadFromBuffer(AudioData* data, const std::vector<std::uint8_t>& bytes) override;
  std::vector<std::string> GetSupportedFileExtensions() override { return {"wv"}; }
};

}  // namespace nqr
