#pragma once

#include <ogg/ogg.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "audio/audio_data.h"

// The encodings that audio held in memory can be given in; the values are stored in project files.
enum class AudioFormat { kOgg = 0, kWav = 1, kWavpack = 2, kFlac = 3, kOpus = 4, kMusepack = 5, kMp3 = 6 };

// The internal route: decodes through the front end and keeps the result as 16-bit samples,
// scaled down only when the file exceeds full scale. Also encodes 16-bit audio as Ogg Vorbis.
// One object per use; not shared between threads.
class AudioDecoderInternal {
 public:
  // False for anything the front end refuses or cannot decode; never throws for bad input.
  bool LoadFile(const std::string& path);
  // As LoadFile, for bytes of the given encoding. A value outside AudioFormat throws
  // std::out_of_range.
  bool LoadData(AudioFormat format, const std::vector<std::uint8_t>& bytes);
  void SetResult(std::shared_ptr<nqr::AudioData> audio);
  // Encodes `data` (with `sample_rate`, `channels` and `frames` set by the caller) as Ogg
  // Vorbis at libvorbis VBR `quality`, appending to `out`. False if the encoder refuses the
  // settings.
  bool EncodeOgg(float quality, std::vector<std::uint8_t>* out);

  bool success = false;
  int sample_rate = -1;
  int channels = -1;
  int frames = -1;  // per channel
  std::vector<std::int16_t> data;
  std::map<AudioFormat, std::string> formats = {
      {AudioFormat::kOgg, "ogg"},   {AudioFormat::kWav, "wav"},   {AudioFormat::kWavpack, "wv"},
      {AudioFormat::kFlac, "flac"}, {AudioFormat::kOpus, "opus"}, {AudioFormat::kMusepack, "mpc"},
      {AudioFormat::kMp3, "mp3"}};

 private:
  static void WriteEncodedData(const ogg_page& page, std::vector<std::uint8_t>* out);
};
