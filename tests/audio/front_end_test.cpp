// The decoding front end: every codec decodes to the right format and sample values, from a
// path and from memory, and damaged input of every kind is refused without a crash.
#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <cmath>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>

#include "audio/audio_decoder_ffmpeg.h"
#include "audio/audio_decoder_internal.h"
#include "audio/nyquist_io.h"
#include "audio_fixtures.h"

using namespace audio_fixtures;

namespace {

struct CodecCase {
  const char* name;
  const char* extension;
  const char* container;
  const char* codec;
  const char* sample_format;
  int sample_rate;
  int channels;
  int bit_rate;
  bool lossless;
  bool internal;  // decoded by the front end; otherwise only by the OS route
};

constexpr double kSeconds = 0.3;
constexpr double kAmplitude = 0.5;

const CodecCase kCodecs[] = {
    {"vorbis", "ogg", "ogg", "libvorbis", "", 44100, 2, 0, false, true},
    {"opus", "opus", "ogg", "libopus", "", 48000, 2, 128000, false, true},
    {"flac", "flac", "flac", "flac", "s16", 22050, 1, 0, true, true},
    {"wavpack", "wv", "wv", "wavpack", "s16p", 48000, 6, 0, true, true},
    {"mp3", "mp3", "mp3", "libmp3lame", "", 44100, 2, 192000, false, true},
    {"aac", "m4a", "ipod", "aac", "", 44100, 2, 128000, false, false},
    {"alac", "m4a", "ipod", "alac", "s16p", 48000, 2, 0, true, false},
    {"aiff", "aiff", "aiff", "pcm_s16be", "", 22050, 1, 0, true, false},
    {"wma", "wma", "asf", "wmav2", "", 44100, 2, 128000, false, false},
};

std::vector<float> SourceFor(const CodecCase& c) {
  return QuantizeTo16Bits(Tone(c.sample_rate, c.channels, kSeconds, kAmplitude));
}

class CodecTest : public testing::TestWithParam<CodecCase> {
 protected:
  static void SetUpTestSuite() { dir = new QTemporaryDir; }
  static void TearDownTestSuite() {
    delete dir;
    dir = nullptr;
  }
  void SetUp() override {
    const CodecCase& c = GetParam();
    path = dir->filePath(QString("%1.%2").arg(c.name, c.extension)).toStdString();
    source = SourceFor(c);
    ASSERT_TRUE(EncodeWithFfmpeg(path, c.container, c.codec, c.sample_rate, c.channels, source, c.bit_rate,
                                 c.sample_format))
        << "encoder " << c.codec << " unavailable";
  }
  // Checks rate, channels, length and the tone of each channel.
  void ExpectTone(const std::vector<float>& decoded, int rate, int channels) {
    const CodecCase& c = GetParam();
    EXPECT_EQ(rate, c.sample_rate);
    ASSERT_EQ(channels, c.channels);
    const double expected_frames = kSeconds * c.sample_rate;
    // Lossy codecs may keep a frame of padding; the length must still be close.
    EXPECT_NEAR(static_cast<double>(decoded.size() / channels), expected_frames, c.lossless ? 0.0 : 2200.0);
    if (c.lossless) {
      ASSERT_EQ(decoded.size(), source.size());
      for (std::size_t i = 0; i < source.size(); ++i) ASSERT_EQ(decoded[i], source[i]) << "sample " << i;
      return;
    }
    for (int ch = 0; ch < channels; ++ch)
      EXPECT_NEAR(ZeroCrossingFrequency(decoded, channels, ch, rate), 220.0 * (ch + 2),
                  220.0 * (ch + 2) * 0.01)
          << "channel " << ch;
    double sum = 0.0;
    for (float s : decoded) sum += s * static_cast<double>(s);
    EXPECT_NEAR(std::sqrt(sum / decoded.size()), kAmplitude / std::sqrt(2.0), 0.06);
  }

  static QTemporaryDir* dir;
  std::string path;
  std::vector<float> source;
};

QTemporaryDir* CodecTest::dir = nullptr;

TEST_P(CodecTest, FrontEndDecodesFromPathAndMemoryAlike) {
  const CodecCase& c = GetParam();
  nqr::NyquistIO io;
  nqr::AudioData from_path;
  if (!c.internal) {
    EXPECT_THROW(io.Load(&from_path, path), std::runtime_error);
    return;
  }
  io.Load(&from_path, path);
  ExpectTone(from_path.samples, from_path.sample_rate, from_path.channel_count);
  EXPECT_NEAR(from_path.length_seconds, kSeconds, c.lossless ? 1e-9 : 0.05);

  nqr::AudioData from_memory;
  io.Load(&from_memory, c.extension, ReadFileBytes(path));
  EXPECT_EQ(from_memory.samples, from_path.samples);
  EXPECT_EQ(from_memory.sample_rate, from_path.sample_rate);
}

TEST_P(CodecTest, OsRouteDecodesEveryFormat) {
  AudioDecoderFfmpeg decoder(QString::fromStdString(path));
  ASSERT_EQ(decoder.open(), 0);
  EXPECT_EQ(decoder.total_samples % decoder.channels, 0);
  std::vector<float> samples(static_cast<std::size_t>(decoder.total_samples));
  EXPECT_EQ(decoder.read(decoder.total_samples + 10, samples.data()), decoder.total_samples);
  EXPECT_EQ(decoder.read(1, samples.data()), 0) << "reads stop at the end";
  ExpectTone(samples, decoder.sample_rate, decoder.channels);
  ASSERT_EQ(decoder.seek(decoder.channels), 0);
  float second_frame = 0.0f;
  EXPECT_EQ(decoder.read(1, &second_frame), 1);
  EXPECT_EQ(second_frame, samples[decoder.channels]);
  EXPECT_EQ(decoder.seek(decoder.total_samples + 1), -1);
}

// Truncations at many lengths and single flipped bits anywhere: each load either works or
// refuses, and never crashes or hangs.
TEST_P(CodecTest, DamagedFilesNeverCrashTheLoader) {
  const CodecCase& c = GetParam();
  const std::vector<std::uint8_t> bytes = ReadFileBytes(path);
  ASSERT_FALSE(bytes.empty());
  const std::string damaged = dir->filePath(QString("damaged_%1.%2").arg(c.name, c.extension)).toStdString();
  std::mt19937 random(1234);
  for (int i = 0; i < 24; ++i) {
    std::vector<std::uint8_t> variant = bytes;
    if (i < 12) {
      variant.resize(i == 0 ? 0 : bytes.size() * i / 12 + random() % 7);
      if (variant.size() > bytes.size()) variant.resize(bytes.size());
    } else {
      for (int flips = 0; flips < 1 + i % 4; ++flips)
        variant[random() % variant.size()] ^= 1u << (random() % 8);
    }
    WriteFile(damaged, variant);
    AudioDecoderInternal internal;
    if (internal.LoadFile(damaged)) {
      EXPECT_GT(internal.channels, 0);
      EXPECT_EQ(internal.data.size(), static_cast<std::size_t>(internal.frames) * internal.channels);
    }
    AudioDecoderFfmpeg os(QString::fromStdString(damaged));
    if (os.open() == 0) {
      EXPECT_EQ(os.total_samples % os.channels, 0);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, CodecTest, testing::ValuesIn(kCodecs),
                         [](const testing::TestParamInfo<CodecCase>& info) { return info.param.name; });

TEST(MusepackFixture, DecodesTheCommittedTone) {
  const std::string path = TONEMILL_SOURCE_DIR "/tests/audio/fixtures/tone_stereo.mpc";
  nqr::NyquistIO io;
  nqr::AudioData data;
  io.Load(&data, path);
  EXPECT_EQ(data.sample_rate, 44100);
  ASSERT_EQ(data.channel_count, 2);
  EXPECT_NEAR(data.length_seconds, 0.4, 0.03);
  // 440 Hz left and 660 Hz right, each at about 16000 / 32768.
  EXPECT_NEAR(ZeroCrossingFrequency(data.samples, 2, 0, 44100), 440.0, 5.0);
  EXPECT_NEAR(ZeroCrossingFrequency(data.samples, 2, 1, 44100), 660.0, 6.0);
  float peak = 0.0f;
  for (float s : data.samples) peak = std::max(peak, std::fabs(s));
  EXPECT_NEAR(peak, 16000.0 / 32768.0, 0.05);

  nqr::AudioData from_memory;
  io.Load(&from_memory, "mpc", ReadFileBytes(path));
  EXPECT_EQ(from_memory.samples, data.samples);

  QTemporaryDir dir;
  const std::vector<std::uint8_t> bytes = ReadFileBytes(path);
  const std::string damaged = dir.filePath("damaged.mpc").toStdString();
  std::mt19937 random(99);
  for (int i = 0; i < 24; ++i) {
    std::vector<std::uint8_t> variant = bytes;
    if (i < 12) {
      variant.resize(bytes.size() * i / 12);
    } else {
      variant[random() % variant.size()] ^= 1u << (random() % 8);
    }
    WriteFile(damaged, variant);
    AudioDecoderInternal internal;
    internal.LoadFile(damaged);
  }
}

// WAV layouts: every sample encoding, with the tolerance of its resolution.
struct WavCase {
  const char* name;
  int format_tag;
  int bits;
  bool extensible;
  double tolerance;
};

class WavLayoutTest : public testing::TestWithParam<WavCase> {};

TEST_P(WavLayoutTest, DecodesSampleValues) {
  const WavCase& c = GetParam();
  WavLayout layout;
  layout.format_tag = c.format_tag;
  layout.bits = c.bits;
  layout.extensible = c.extensible;
  layout.channels = 2;
  layout.sample_rate = 48000;
  const std::vector<float> source = Tone(48000, 2, 0.05, 0.9);
  nqr::NyquistIO io;
  nqr::AudioData data;
  io.Load(&data, "wav", MakeWav(layout, source));
  EXPECT_EQ(data.sample_rate, 48000);
  EXPECT_EQ(data.channel_count, 2);
  ASSERT_EQ(data.samples.size(), source.size());
  for (std::size_t i = 0; i < source.size(); ++i) ASSERT_NEAR(data.samples[i], source[i], c.tolerance) << i;
}

INSTANTIATE_TEST_SUITE_P(
    Encodings, WavLayoutTest,
    testing::Values(WavCase{"pcm8", 1, 8, false, 1.0 / 50}, WavCase{"pcm16", 1, 16, false, 1.0 / 16000},
                    WavCase{"pcm24", 1, 24, false, 1e-6}, WavCase{"pcm32", 1, 32, false, 1e-7},
                    WavCase{"float32", 3, 32, false, 0.0}, WavCase{"float64", 3, 64, false, 1e-7},
                    WavCase{"extensible24", 1, 24, true, 1e-6},
                    WavCase{"extensible_float", 3, 32, true, 0.0}),
    [](const testing::TestParamInfo<WavCase>& info) { return info.param.name; });

class WavStructureTest : public testing::Test {
 protected:
  // Frames decoded from the file, or -1 if the front end refused it.
  long Frames(const std::vector<std::uint8_t>& bytes) {
    nqr::NyquistIO io;
    nqr::AudioData data;
    try {
      io.Load(&data, "wav", bytes);
    } catch (const std::runtime_error&) {
      return -1;
    }
    return static_cast<long>(data.samples.size() / data.channel_count);
  }
  std::vector<float> tone = Tone(44100, 2, 0.01, 0.5);  // 441 frames
};

TEST_F(WavStructureTest, ChunksAreWalkedWithPadBytesInAnyOrder) {
  WavLayout layout;
  layout.odd_chunk_before_data = true;
  layout.chunk_after_data = true;
  EXPECT_EQ(Frames(MakeWav(layout, tone)), 441);
  layout.format_after_data = true;
  EXPECT_EQ(Frames(MakeWav(layout, tone)), 441);
  // An odd-sized data chunk (8-bit mono, odd frame count) is followed by its pad byte.
  WavLayout odd;
  odd.channels = 1;
  odd.bits = 8;
  odd.chunk_after_data = true;
  EXPECT_EQ(Frames(MakeWav(odd, Tone(44100, 1, 441 / 44100.0, 0.5))), 441);
}

TEST_F(WavStructureTest, DataSizeBeyondTheFileKeepsTheWholeFramesPresent) {
  WavLayout layout;
  layout.declared_data_bytes = 1 << 30;
  EXPECT_EQ(Frames(MakeWav(layout, tone)), 441);
  layout.declared_data_bytes = 0xFFFFFFFF;  // the size a streaming recorder leaves
  EXPECT_EQ(Frames(MakeWav(layout, tone)), 441);
  std::vector<std::uint8_t> cut = MakeWav(WavLayout{}, tone);
  cut.resize(cut.size() - 3);  // the last frame loses 3 of its 4 bytes
  EXPECT_EQ(Frames(cut), 440);
}

TEST_F(WavStructureTest, ImpossibleHeadersAreRefused) {
  const std::vector<std::uint8_t> good = MakeWav(WavLayout{}, tone);
  auto patched = [&](std::size_t offset, std::vector<std::uint8_t> value) {
    std::vector<std::uint8_t> bytes = good;
    std::copy(value.begin(), value.end(), bytes.begin() + static_cast<long>(offset));
    return bytes;
  };
  // Offsets into the fmt chunk, which starts at byte 20.
  EXPECT_EQ(Frames(patched(22, {0, 0})), -1) << "no channels";
  EXPECT_EQ(Frames(patched(22, {0xFF, 0xFF})), -1) << "65535 channels";
  EXPECT_EQ(Frames(patched(24, {0, 0, 0, 0})), -1) << "0 Hz";
  EXPECT_EQ(Frames(patched(24, {0xFF, 0xFF, 0xFF, 0xFF})), -1) << "4 GHz";
  EXPECT_EQ(Frames(patched(32, {3, 0})), -1) << "block align not a multiple of the channels";
  EXPECT_EQ(Frames(patched(34, {40, 0})), -1) << "more bits than the container";
  EXPECT_EQ(Frames(patched(20, {2, 0})), -1) << "ADPCM is left to the OS route";
  EXPECT_EQ(Frames(patched(12, {'j', 'u', 'n', 'k'})), -1) << "no fmt chunk";
  EXPECT_EQ(Frames(patched(36, {'j', 'u', 'n', 'k'})), -1) << "no data chunk";
  EXPECT_EQ(Frames(patched(8, {'A', 'V', 'I', ' '})), -1) << "not WAVE";
  EXPECT_EQ(Frames(std::vector<std::uint8_t>(good.begin(), good.begin() + 30)), -1) << "cut inside fmt";
  EXPECT_EQ(Frames({}), -1);
}

TEST(NyquistIO, ReportsWhyItCannotLoad) {
  QTemporaryDir dir;
  nqr::NyquistIO io;
  nqr::AudioData data;
  auto message = [&](const std::string& path) {
    try {
      io.Load(&data, path);
    } catch (const std::runtime_error& e) {
      return std::string(e.what());
    }
    return std::string();
  };
  EXPECT_EQ(message(dir.filePath("song.xyz").toStdString()), "Unsupported file extension");
  EXPECT_EQ(message(dir.filePath("missing.wav").toStdString()), "file not found");
  const std::string empty = dir.filePath("empty.flac").toStdString();
  WriteFile(empty, {});
  EXPECT_EQ(message(empty), "error reading file or file too small");
  EXPECT_TRUE(io.IsFileSupported("/music/Song.WAV"));
  EXPECT_FALSE(io.IsFileSupported("/music.wav/song"));
  EXPECT_EQ(nqr::ParsePathForExtension("/a.b/c.Opus"), "opus");
}

TEST(NyquistIO, AWavFileNamedMp3IsNotDecodedAsNoise) {
  QTemporaryDir dir;
  const std::string path = dir.filePath("lying.mp3").toStdString();
  WriteFile(path, MakeWav(WavLayout{}, Tone(44100, 2, 0.2, 0.5)));
  AudioDecoderInternal internal;
  EXPECT_FALSE(internal.LoadFile(path));
  // The OS route probes the content and finds the WAV.
  AudioDecoderFfmpeg os(QString::fromStdString(path));
  ASSERT_EQ(os.open(), 0);
  EXPECT_EQ(os.channels, 2);
  EXPECT_EQ(os.total_samples, 2 * 8820);
}

TEST(ConvertToFloat32, MapsIntegerExtremesToUnitRange) {
  const std::uint8_t u8[] = {0, 128, 255};
  const std::uint8_t s16[] = {0x00, 0x80, 0xFF, 0x7F};
  const std::uint8_t s24[] = {0x00, 0x00, 0x80, 0xFF, 0xFF, 0xFF};
  const std::uint8_t s32[] = {0x00, 0x00, 0x00, 0x80};
  float out[3];
  nqr::ConvertToFloat32(out, u8, 3, nqr::PCM_U8);
  EXPECT_FLOAT_EQ(out[0], -1.0f);
  EXPECT_FLOAT_EQ(out[1], 0.0f);
  EXPECT_FLOAT_EQ(out[2], 127.0f / 128.0f);
  nqr::ConvertToFloat32(out, s16, 2, nqr::PCM_16);
  EXPECT_FLOAT_EQ(out[0], -1.0f);
  EXPECT_FLOAT_EQ(out[1], 32767.0f / 32768.0f);
  nqr::ConvertToFloat32(out, s24, 2, nqr::PCM_24);
  EXPECT_FLOAT_EQ(out[0], -1.0f);
  EXPECT_FLOAT_EQ(out[1], -1.0f / 8388608.0f);
  nqr::ConvertToFloat32(out, s32, 1, nqr::PCM_32);
  EXPECT_FLOAT_EQ(out[0], -1.0f);
}

}  // namespace
