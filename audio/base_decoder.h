#pragma once

#include <string>
#include <vector>

#include "audio/audio_data.h"

namespace nqr {

// One codec of the front end. Both loads fill `data` completely or throw std::runtime_error;
// `data` may hold partial samples after a throw and must then be discarded.
class BaseDecoder {
 public:
  virtual ~BaseDecoder() = default;
  virtual void LoadFromPath(AudioData* data, const std::string& path) {
    LoadFromBuffer(data, ReadFile(path));
  }
  virtual void LoadFromBuffer(AudioData* data, const std::vector<std::uint8_t>& bytes) = 0;
  // Lower-case extensions without the dot.
  virtual std::vector<std::string> GetSupportedFileExtensions() = 0;
};

}  // namespace nqr
