// The audio stage on a job: both decoding routes, the format it leaves, the processing
// region, the mono mix, and every way it can fail.
#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>
#include <string>
#include <utility>
#include <vector>

#include "audio/audio.h"
#include "audio_fixtures.h"
#include "platform/language_strings.h"

using namespace audio_fixtures;

namespace {

class AudioStageTest : public testing::Test {
 protected:
  AudioStageTest() : language(QDir("/nonexistent-language-folder"), "English") {
    // Each text is its own key, so that a test can tell which one was chosen.
    for (const QString& key : LanguageStrings::Keys())
      const_cast<std::string&>(*language.Text(key)) = key.toStdString();
    job = std::make_shared<TranscriptionJob>(language, nullptr);
  }

  std::string WriteWav(const char* name, const std::vector<std::uint8_t>& bytes) {
    const std::string path = dir.filePath(name).toStdString();
    WriteFile(path, bytes);
    return path;
  }

  // Runs the stage on this thread; returns what it printed.
  std::string Run(const std::string& path) {
    job->input_filename = QString::fromStdString(path);
    Audio audio(job);
    QObject::connect(&audio, &Audio::Message, [this](std::string text, bool fatal) {
      messages.push_back(text);
      fatal_messages += fatal;
    });
    testing::internal::CaptureStdout();
    audio.Run(&signal);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(signal.IsFinished()) << "the worker would hang";
    EXPECT_EQ(audio.thread_signal, nullptr);
    return out;
  }

  LanguageStrings language;
  std::shared_ptr<TranscriptionJob> job;
  QTemporaryDir dir;
  ThreadSignal signal;
  std::vector<std::string> messages;
  int fatal_messages = 0;
};

TEST(FormatTitle, CapitalisesEachWordAndKeepsTheRest) {
  EXPECT_EQ(FormatTitle("my_song_name"), "My Song Name");
  EXPECT_EQ(FormatTitle("  two__gaps here "), "Two Gaps Here");
  EXPECT_EQ(FormatTitle("mIxed CASE"), "MIxed CASE");
  EXPECT_EQ(FormatTitle(QString::fromUtf8("éclair_2")), QString::fromUtf8("Éclair 2"));
  EXPECT_EQ(FormatTitle(""), "");
}

TEST_F(AudioStageTest, InternalRouteLeavesStereoAt44100WithTheMonoMean) {
  // 0.25 s of 5.1 at 48 kHz, each channel a constant so that folding is visible.
  const int frames = 12000;
  std::vector<std::int16_t> samples;
  for (int f = 0; f < frames; ++f)
    for (int c = 0; c < 6; ++c) samples.push_back(static_cast<std::int16_t>(3000 * (c + 1)));
  const std::string out = Run(WriteWav("five_one_song.wav", MakeWav16(6, 48000, samples)));

  EXPECT_EQ(out, "Using internal audio decoder\n");
  EXPECT_TRUE(messages.empty());
  EXPECT_FALSE(job->cancelled);
  EXPECT_TRUE(job->audio_ready);
  EXPECT_EQ(job->sample_rate, 44100);
  EXPECT_EQ(job->channels, 2);
  EXPECT_EQ(job->audio_frames, frames * 44100 / 48000);
  ASSERT_EQ(job->audio_data.size(), static_cast<std::size_t>(job->audio_frames) * 2);
  // Left takes channels 0, 2, 4 and right 1, 3, 5, each divided by three; the 16-bit
  // round trip through floats may lose one step per channel.
  EXPECT_NEAR(job->audio_data[0], (3000 + 9000 + 15000) / 3, 3);
  EXPECT_NEAR(job->audio_data[1], (6000 + 12000 + 18000) / 3, 3);
  ASSERT_EQ(job->mono_data.size(), static_cast<std::size_t>(job->audio_frames));
  EXPECT_FLOAT_EQ(job->mono_data.back(),
                  (job->audio_data[job->audio_data.size() - 2] + job->audio_data.back()) / 2.0f);
  EXPECT_DOUBLE_EQ(job->audio_length, job->audio_frames / 44100.0);
  EXPECT_EQ(job->start_time, 0.0);
  EXPECT_EQ(job->end_time, job->audio_length);
  EXPECT_EQ(job->title, "Five One Song");
  EXPECT_EQ(job->display_title, job->title);
  EXPECT_EQ(job->audio_filename, job->input_filename);
}

TEST_F(AudioStageTest, OsRouteNormalisesToThePositivePeak) {
  const std::string path = dir.filePath("quiet.aiff").toStdString();
  // A quarter of full scale at most, upward; the downward swing is smaller.
  std::vector<float> samples;
  for (int i = 0; i < 2000; ++i) samples.push_back(i % 4 == 0 ? 0.25f : (i % 4 == 2 ? -0.125f : 0.0625f));
  ASSERT_TRUE(EncodeWithFfmpeg(path, "aiff", "pcm_s16be", 22050, 1, samples));
  const std::string out = Run(path);

  EXPECT_EQ(out, "Using OS audio libs\n");
  EXPECT_TRUE(messages.empty());
  EXPECT_EQ(job->sample_rate, 44100);
  EXPECT_EQ(job->channels, 1);
  EXPECT_EQ(job->audio_frames, 4000);
  // Scale 32767 / 0.25, half up: 0.25 -> 32767, -0.125 -> -16383, 0.0625 -> 8192. Frames
  // at even indices are the originals after doubling the rate.
  EXPECT_EQ(job->audio_data[0], 32767);
  EXPECT_EQ(job->audio_data[4], -16383);
  EXPECT_EQ(job->audio_data[2], 8192);
  EXPECT_TRUE(job->audio_ready);
}

TEST_F(AudioStageTest, OsRouteKeepsSilenceSilent) {
  const std::string path = dir.filePath("silence.aiff").toStdString();
  ASSERT_TRUE(EncodeWithFfmpeg(path, "aiff", "pcm_s16be", 44100, 2, std::vector<float>(200, 0.0f)));
  Run(path);
  EXPECT_EQ(job->audio_data, std::vector<std::int16_t>(200, 0)) << "a zero peak must not turn into garbage";
}

TEST_F(AudioStageTest, FailuresGiveTheirTextCancelAndRelease) {
  struct Case {
    std::string path;
    std::string text;
  };
  const std::string empty = WriteWav("empty.wav", {});
  const std::string garbage = WriteWav("garbage.mp3", std::vector<std::uint8_t>(5000, 0x5A));
  std::vector<std::uint8_t> many_channels = MakeWav16(2, 44100, std::vector<std::int16_t>(100, 1));
  many_channels[22] = many_channels[23] = 0xFF;
  std::vector<std::uint8_t> huge_rate = MakeWav16(2, 44100, std::vector<std::int16_t>(100, 1));
  huge_rate[24] = huge_rate[25] = huge_rate[26] = huge_rate[27] = 0xFF;
  const Case cases[] = {
      {dir.filePath("missing.wav").toStdString(), "AUDIO_FILE_DOES_NOT_EXIST"},
      {empty, "AUDIO_FORMAT_UNSUPPORTED"},
      {garbage, "AUDIO_FORMAT_UNSUPPORTED"},
      {WriteWav("channels.wav", many_channels), "AUDIO_FORMAT_UNSUPPORTED"},
      {WriteWav("rate.wav", huge_rate), "AUDIO_FORMAT_UNSUPPORTED"},
      {WriteWav("three_frames.wav", MakeWav16(1, 44100, {1, 2, 3})), "AUDIO_TOO_SHORT"},
  };
  for (const Case& c : cases) {
    job = std::make_shared<TranscriptionJob>(language, nullptr);
    messages.clear();
    signal.Reset();
    Run(c.path);
    EXPECT_EQ(messages, std::vector<std::string>{c.text}) << c.path;
    EXPECT_TRUE(job->cancelled) << c.path;
    EXPECT_FALSE(job->audio_ready) << c.path;
  }
  EXPECT_EQ(fatal_messages, 0);
}

TEST_F(AudioStageTest, AudioLengthIsPrintedInMillisecondsAndEndsTheJob) {
  job->get_audio_length = true;
  const std::string out =
      Run(WriteWav("short.wav", MakeWav16(2, 22050, std::vector<std::int16_t>(2 * 5513, 0))));
  // 5513 frames at 22050 Hz become 11026 at 44100 Hz: 250.02 ms.
  EXPECT_EQ(out, "Using internal audio decoder\nAUDIO_LENGTH=250 ms\n");
  EXPECT_TRUE(job->cancelled);

  job = std::make_shared<TranscriptionJob>(language, nullptr);
  job->get_audio_length = true;
  signal.Reset();
  EXPECT_EQ(Run(dir.filePath("missing.flac").toStdString()), "Using OS audio libs\nAUDIO_LENGTH=-1 ms\n");
}

TEST_F(AudioStageTest, DecoderErrorsMapToTheirTexts) {
  const std::pair<AudioDecoderError, std::string> cases[] = {
      {AudioDecoderError::kNoError, "AUDIO_ERROR0"},
      {AudioDecoderError::kResourceError, "AUDIO_FILE_DOES_NOT_EXIST"},
      {AudioDecoderError::kFormatError, "AUDIO_FORMAT_UNSUPPORTED"},
      {AudioDecoderError::kAccessDeniedError, "FILE_ACCESS_DENIED"},
      {AudioDecoderError::kServiceMissingError, "AUDIO_SERVICE_MISSING"},
  };
  for (const auto& [error, text] : cases) {
    job = std::make_shared<TranscriptionJob>(language, nullptr);
    Audio audio(job);
    std::string said;
    QObject::connect(&audio, &Audio::Message, [&said](std::string t, bool) { said = t; });
    ThreadSignal released;
    audio.thread_signal = &released;
    audio.DecoderError(error);
    EXPECT_EQ(said, text);
    EXPECT_TRUE(job->cancelled);
    EXPECT_TRUE(released.IsFinished());
    audio.Finish();  // a second finish must not touch the released signal
  }
}

class RegionTest : public AudioStageTest {
 protected:
  // Two seconds of stereo in which each sample holds its frame number modulo 30000.
  void SetUp() override {
    job->sample_rate = 44100;
    job->channels = 2;
    job->audio_frames = 88200;
    job->audio_data.clear();
    for (int f = 0; f < 88200; ++f) {
      job->audio_data.push_back(static_cast<std::int16_t>(f % 30000));
      job->audio_data.push_back(static_cast<std::int16_t>(-(f % 30000)));
    }
  }
  void Cut(double start, double end) {
    job->process_whole_file = false;
    job->start_time = start;
    job->end_time = end;
    Audio(job).ApplyProcessingRegion();
  }
};

TEST_F(RegionTest, WholeFileIgnoresTheRegion) {
  job->start_time = 0.5;
  job->end_time = 1.0;
  Audio(job).ApplyProcessingRegion();
  EXPECT_EQ(job->start_time, 0.0);
  EXPECT_EQ(job->end_time, 2.0);
  EXPECT_EQ(job->audio_frames, 88200);
  EXPECT_EQ(job->audio_length, 2.0);
}

TEST_F(RegionTest, CutKeepsTheFramesFromFirstToLastInclusive) {
  Cut(0.5, 1.0);
  EXPECT_EQ(job->audio_frames, 44100 - 22050 + 1);
  EXPECT_EQ(job->audio_data.size(), static_cast<std::size_t>(job->audio_frames) * 2);
  EXPECT_EQ(job->audio_data[0], 22050);
  EXPECT_EQ(job->audio_data[1], -22050);
  EXPECT_EQ(job->audio_data.back(), -(44100 % 30000));
  EXPECT_DOUBLE_EQ(job->audio_length, 0.5);
}

TEST_F(RegionTest, ClampsTheRegionIntoTheFile) {
  Cut(-1.0, 0.25);
  EXPECT_EQ(job->start_time, 0.0);
  EXPECT_EQ(job->audio_frames, 11026);
  SetUp();
  Cut(1.5, 9.0);  // an end past the file becomes its length
  EXPECT_EQ(job->end_time, 2.0);
  EXPECT_EQ(job->audio_frames, 88199 - 66150 + 1);
  EXPECT_EQ(job->audio_data[0], 66150 % 30000);
}

TEST_F(RegionTest, StartAloneRunsToTheEnd) {
  Cut(1.5, 0.0);
  EXPECT_EQ(job->end_time, 2.0);
  EXPECT_EQ(job->audio_frames, 88199 - 66150 + 1);
  EXPECT_DOUBLE_EQ(job->audio_length, 0.5);
}

TEST_F(RegionTest, AnEmptyRegionProcessesTheWholeFile) {
  Cut(5.0, 0.0);  // the start clamps to the length; nothing is left after it
  EXPECT_EQ(job->start_time, 0.0);
  EXPECT_EQ(job->end_time, 2.0);
  EXPECT_EQ(job->audio_frames, 88200);
  EXPECT_EQ(job->audio_data[2], 1);
}

TEST_F(RegionTest, FormatAudioNeverCuts) {
  job->process_whole_file = false;
  job->start_time = 0.5;
  job->end_time = 1.0;
  job->audio_length = 0.5;  // a project stores its region's audio and length
  Audio(job).FormatAudio();
  EXPECT_EQ(job->audio_frames, 88200);
  EXPECT_EQ(job->audio_length, 0.5);
  EXPECT_TRUE(job->audio_ready);
}

TEST_F(AudioStageTest, MonoIsTheChannelMeanOnTheSixteenBitScale) {
  job->channels = 2;
  job->audio_frames = 4;
  job->audio_data = {100, 200, -3, 4, 32767, 32767, -32768, -32768};
  Audio(job).SetMonoData();
  EXPECT_EQ(job->mono_data, (std::vector<float>{150.0f, 0.5f, 32767.0f, -32768.0f}));
  EXPECT_TRUE(job->audio_ready);
  EXPECT_FALSE(job->cancelled);
}

}  // namespace
