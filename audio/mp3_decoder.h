#pragma once

#include "audio/base_decoder.h"

namespace nqr {

// MPEG audio layers 1 to 3 through libmpg123, fed from memory, with gapless trimming of the
// encoder delay and padding where the file says so.
class Mp3Decoder : public BaseDecoder {
 public:
  void LoadFromBuffer(AudioData* data, const std::vector<std::uint8_t>& bytes) override;
  std::vector<std::string> GetSupportedFileExtensions() override { return {"mp3"}; }
};

}  // namespace nqr
