#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "audio/audio_data.h"
#include "audio/base_decoder.h"

namespace nqr {

// Picks a decoder by file extension (or by the format name given with a memory block) and
// runs it. Every failure is a std::runtime_error; callers that only want a yes or no catch it.
class NyquistIO {
 public:
  NyquistIO();

  // Decodes the file at `path`. Throws "Unsupported file extension", "No available decoders.",
  // or whatever the decoder throws.
  void Load(AudioData* data, const std::string& path);
  // Decodes `bytes` with the decoder for `extension` ("wav", "ogg", ...).
  void Load(AudioData* data, const std::string& extension, const std::vector<std::uint8_t>& bytes);

  bool IsFileSupported(const std::string& path) const;

 private:
  void BuildDecoderTable();
  void AddDecoderToTable(std::shared_ptr<BaseDecoder> decoder);
  std::shared_ptr<BaseDecoder> GetDecoderForExtension(const std::string& extension) const;
  static void FinishResult(AudioData* data);

  std::map<std::string, std::shared_ptr<BaseDecoder>> decoder_table;
};

}  // namespace nqr
