// The internal route's scaling rule and the Ogg Vorbis encoder that project files use.
#include "audio/audio_decoder_internal.h"

#include <gtest/gtest.h>
#include <vorbis/vorbisfile.h>

#include <QTemporaryDir>
#include <cmath>
#include <cstdio>
#include <set>
#include <stdexcept>

#include "audio_fixtures.h"

using namespace audio_fixtures;

namespace {

std::shared_ptr<nqr::AudioData> Data(int channels, std::vector<float> samples) {
  auto data = std::make_shared<nqr::AudioData>();
  data->channel_count = channels;
  data->sample_rate = 44100;
  data->samples = std::move(samples);
  return data;
}

TEST(SetResult, AudioPastFullScaleShrinksSoItsPeakIsFullScale) {
  AudioDecoderInternal decoder;
  decoder.SetResult(Data(1, {1.5f, -0.75f, 0.3f, -1.5f}));
  EXPECT_TRUE(decoder.success);
  EXPECT_EQ(decoder.data, (std::vector<std::int16_t>{32767, -16383, 6553, -32767}));
}

TEST(SetResult, QuietAudioStaysQuiet) {
  AudioDecoderInternal decoder;
  decoder.SetResult(Data(2, {0.25f, -0.125f, 0.0f, 0.1f}));
  EXPECT_EQ(decoder.data, (std::vector<std::int16_t>{8191, -4095, 0, 3276}));
  EXPECT_EQ(decoder.frames, 2);
  EXPECT_EQ(decoder.channels, 2);
  EXPECT_EQ(decoder.sample_rate, 44100);
}

TEST(SetResult, APartialLastFrameIsDropped) {
  AudioDecoderInternal decoder;
  decoder.SetResult(Data(2, {0.5f, 0.5f, 0.5f}));
  EXPECT_EQ(decoder.frames, 1);
  EXPECT_EQ(decoder.data.size(), 2u);
}

TEST(SetResult, WavPeakRulesHoldThroughLoadFile) {
  QTemporaryDir dir;
  WavLayout layout;
  layout.format_tag = 3;
  layout.bits = 32;
  layout.channels = 1;
  const std::string loud = dir.filePath("loud.wav").toStdString();
  WriteFile(loud, MakeWav(layout, {0.0f, 1.5f, -0.75f, 0.75f}));
  AudioDecoderInternal decoder;
  ASSERT_TRUE(decoder.LoadFile(loud));
  EXPECT_EQ(decoder.data, (std::vector<std::int16_t>{0, 32767, -16383, 16383}));
  const std::string quiet = dir.filePath("quiet.wav").toStdString();
  WriteFile(quiet, MakeWav(layout, {0.0f, 0.25f, -0.25f}));
  ASSERT_TRUE(decoder.LoadFile(quiet));
  EXPECT_EQ(decoder.data, (std::vector<std::int16_t>{0, 8191, -8191}));
}

TEST(LoadData, NamesEachFormatAndRejectsUnknownValues) {
  AudioDecoderInternal decoder;
  const std::vector<std::uint8_t> wav = MakeWav16(1, 22050, {100, -100, 200, -200});
  ASSERT_TRUE(decoder.LoadData(AudioFormat::kWav, wav));
  EXPECT_EQ(decoder.sample_rate, 22050);
  EXPECT_EQ(decoder.frames, 4);
  EXPECT_FALSE(decoder.LoadData(AudioFormat::kFlac, wav)) << "WAV bytes are not FLAC";
  EXPECT_FALSE(decoder.success);
  EXPECT_THROW(decoder.LoadData(static_cast<AudioFormat>(7), wav), std::out_of_range);
  EXPECT_EQ(decoder.formats.at(AudioFormat::kMusepack), "mpc");
  EXPECT_EQ(decoder.formats.at(AudioFormat::kWavpack), "wv");
}

class EncodeOggTest : public testing::Test {
 protected:
  void SetUp() override {
    encoder.sample_rate = 44100;
    encoder.channels = 2;
    const std::vector<float> tone = Tone(44100, 2, 0.5, 0.5);
    encoder.frames = static_cast<int>(tone.size() / 2);
    for (float s : tone) encoder.data.push_back(static_cast<std::int16_t>(s * 32767));
  }
  // Each page with its serial number and CRC zeroed, and the serial numbers seen.
  static std::vector<std::uint8_t> WithoutSerials(std::vector<std::uint8_t> bytes,
                                                  std::set<std::uint32_t>* serials) {
    std::size_t pos = 0;
    while (pos + 27 <= bytes.size()) {
      EXPECT_EQ(std::string(bytes.begin() + pos, bytes.begin() + pos + 4), "OggS");
      std::uint32_t serial = 0;
      for (int i = 0; i < 4; ++i) serial |= static_cast<std::uint32_t>(bytes[pos + 14 + i]) << (8 * i);
      serials->insert(serial);
      for (int i = 0; i < 4; ++i) bytes[pos + 14 + i] = bytes[pos + 22 + i] = 0;
      const int segments = bytes[pos + 26];
      std::size_t body = 0;
      for (int i = 0; i < segments; ++i) body += bytes[pos + 27 + i];
      pos += 27 + segments + body;
    }
    EXPECT_EQ(pos, bytes.size()) << "pages end exactly at the end";
    return bytes;
  }
  AudioDecoderInternal encoder;
};

TEST_F(EncodeOggTest, RoundTripsThroughTheVorbisDecoder) {
  std::vector<std::uint8_t> ogg = {0xAB};  // appended to, not replaced
  ASSERT_TRUE(encoder.EncodeOgg(3.0f, &ogg));
  EXPECT_EQ(ogg[0], 0xAB);
  ogg.erase(ogg.begin());

  AudioDecoderInternal decoder;
  ASSERT_TRUE(decoder.LoadData(AudioFormat::kOgg, ogg));
  EXPECT_EQ(decoder.sample_rate, 44100);
  EXPECT_EQ(decoder.channels, 2);
  EXPECT_EQ(decoder.frames, encoder.frames) << "the granule position keeps the exact length";
  double error = 0.0;
  for (std::size_t i = 0; i < encoder.data.size(); ++i) error += std::abs(decoder.data[i] - encoder.data[i]);
  // Vorbis is lossy even at its highest quality: within 1% of full scale on average.
  EXPECT_LT(error / encoder.data.size(), 327.0);
}

TEST_F(EncodeOggTest, TwoEncodesDifferOnlyInTheSerialNumber) {
  std::vector<std::uint8_t> first, second;
  ASSERT_TRUE(encoder.EncodeOgg(0.5f, &first));
  ASSERT_TRUE(encoder.EncodeOgg(0.5f, &second));
  std::set<std::uint32_t> first_serials, second_serials;
  EXPECT_EQ(WithoutSerials(first, &first_serials), WithoutSerials(second, &second_serials));
  EXPECT_EQ(first_serials.size(), 1u) << "one logical stream";
  EXPECT_EQ(second_serials.size(), 1u);
}

TEST_F(EncodeOggTest, EmptyAudioStillMakesHeadersAndAnEndOfStreamPage) {
  encoder.data.clear();
  encoder.frames = 0;
  std::vector<std::uint8_t> ogg;
  ASSERT_TRUE(encoder.EncodeOgg(0.5f, &ogg));
  std::set<std::uint32_t> serials;
  WithoutSerials(ogg, &serials);
  // The last page carries the end-of-stream flag.
  std::size_t pos = 0, last_page = 0;
  while (pos + 27 <= ogg.size()) {
    last_page = pos;
    std::size_t body = 0;
    for (int i = 0; i < ogg[pos + 26]; ++i) body += ogg[pos + 27 + i];
    pos += 27 + ogg[pos + 26] + body;
  }
  EXPECT_TRUE(ogg[last_page + 5] & 0x04);
  // Headers are complete: libvorbisfile opens the stream and finds no samples.
  FILE* stream = fmemopen(ogg.data(), ogg.size(), "rb");
  ASSERT_NE(stream, nullptr);
  OggVorbis_File file;
  ASSERT_EQ(ov_open_callbacks(stream, &file, nullptr, 0, OV_CALLBACKS_NOCLOSE), 0);
  EXPECT_EQ(ov_info(&file, -1)->channels, 2);
  EXPECT_EQ(ov_pcm_total(&file, -1), 0);
  ov_clear(&file);
  std::fclose(stream);
}

TEST_F(EncodeOggTest, RefusesSettingsTheEncoderCannotTake) {
  std::vector<std::uint8_t> ogg;
  encoder.channels = 0;
  EXPECT_FALSE(encoder.EncodeOgg(0.5f, &ogg));
  encoder.channels = 2;
  encoder.frames = static_cast<int>(encoder.data.size());  // claims more than the data holds
  EXPECT_FALSE(encoder.EncodeOgg(0.5f, &ogg));
  EXPECT_TRUE(ogg.empty());
}

}  // namespace
