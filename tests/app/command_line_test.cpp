#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>

#include "app/tonemill_app.h"
#include "test_support.h"
#include "score/transcription_job.h"

namespace {

class CommandLineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(data.isValid());
    app.job_manager = MakeTestJobManager(data);
    app.headless = true;
  }

  // Parses `args` after the program name; returns what ProcessCommandLineArguments returned.
  bool Parse(const QStringList& args) { return app.ProcessCommandLineArguments(QStringList{"tonemill"} + args); }

  QTemporaryDir data;
  TonemillApp app{""};
};

TEST(IsHeadlessTest, MatchesExactFlagsAnywhere) {
  const char* plain[] = {"tonemill", "song.mp3"};
  const char* short_flag[] = {"tonemill", "song.mp3", "-a"};
  const char* long_flag[] = {"--headless"};
  const char* not_exact[] = {"tonemill", "-A", "--headless=1", "-ab"};
  // A value that happens to read "-a" turns headless on too: the test runs on raw arguments.
  const char* as_value[] = {"tonemill", "-x", "-a"};
  EXPECT_FALSE(IsHeadless(2, const_cast<char**>(plain)));
  EXPECT_TRUE(IsHeadless(3, const_cast<char**>(short_flag)));
  EXPECT_TRUE(IsHeadless(1, const_cast<char**>(long_flag)));
  EXPECT_FALSE(IsHeadless(4, const_cast<char**>(not_exact)));
  EXPECT_TRUE(IsHeadless(3, const_cast<char**>(as_value)));
}

TEST_F(CommandLineTest, HeadlessWithoutSourceEndsTheRun) {
  EXPECT_FALSE(Parse({"-a"}));
  EXPECT_EQ(app.job, nullptr);
}

TEST_F(CommandLineTest, WindowWithoutSourceGoesOnWithoutJob) {
  app.headless = false;
  EXPECT_TRUE(Parse({}));
  EXPECT_EQ(app.job, nullptr);
}

TEST_F(CommandLineTest, OutputsAndSourcePath) {
  ASSERT_TRUE(Parse({"-a", "rel/song,one.mp3", "-x", "out/a.musicxml", "-m", "b.mid", "-d", "c.tmpj", "-c",
                     "d.csv", "-p", "e.pdf", "extra.mp3"}));
  ASSERT_NE(app.job, nullptr);
  const auto& job = *app.job;
  EXPECT_EQ(job.musicxml_filename, "out/a.musicxml");  // outputs stay as typed
  EXPECT_EQ(job.midi_filename, "b.mid");
  EXPECT_EQ(job.tmpj_filename, "c.tmpj");
  EXPECT_EQ(job.spectrogram_filename, "d.csv");
  EXPECT_EQ(job.pdf_filename, "e.pdf");
  EXPECT_EQ(job.input_filename, QDir::current().absoluteFilePath("rel/song,one.mp3"));
  EXPECT_TRUE(job.find_notes);
  EXPECT_TRUE(job.quit_when_done);
  EXPECT_TRUE(job.process_whole_file);
  EXPECT_EQ(job.freqs_per_note, 4);
}

TEST_F(CommandLineTest, FindNotesRule) {
  struct Case {
    QStringList args;
    bool find_notes;
  };
  const Case cases[] = {
      {{"song.mp3"}, true},                       // no option at all
      {{"-a", "song.mp3"}, false},                // any option and no note output
      {{"-a", "song.mp3", "-c", "s.csv"}, false},  // a spectrogram alone skips notes
      {{"song.mp3", "-s", "100"}, false},          // so does a lone --start
      {{"-a", "song.mp3", "-m", "x.mid"}, true},
      {{"-a", "song.mp3", "-x", "x.xml", "-n"}, false},  // -n wins over an output
  };
  for (const Case& c : cases) {
    TonemillApp fresh("");
    fresh.job_manager = app.job_manager;
    fresh.headless = true;
    ASSERT_TRUE(fresh.ProcessCommandLineArguments(QStringList{"tonemill"} + c.args));
    EXPECT_EQ(fresh.job->find_notes, c.find_notes) << c.args.join(' ').toStdString();
  }
}

TEST_F(CommandLineTest, RegionInMilliseconds) {
  ASSERT_TRUE(Parse({"-a", "song.mp3", "-s", "1500", "-e", "2750"}));
  EXPECT_DOUBLE_EQ(app.job->start_time, 1.5);
  EXPECT_DOUBLE_EQ(app.job->end_time, 2.75);
  EXPECT_FALSE(app.job->process_whole_file);
}

TEST_F(CommandLineTest, StartAloneLeavesEndAtZeroAndNonNumbersReadAsZero) {
  ASSERT_TRUE(Parse({"-a", "song.mp3", "-s", "1000"}));
  EXPECT_DOUBLE_EQ(app.job->end_time, 0.0);
  EXPECT_FALSE(app.job->process_whole_file);

  TonemillApp other("");
  other.job_manager = app.job_manager;
  other.headless = true;
  ASSERT_TRUE(other.ProcessCommandLineArguments({"tonemill", "-a", "song.mp3", "-s", "abc", "-e", "0"}));
  EXPECT_DOUBLE_EQ(other.job->start_time, 0.0);
  EXPECT_TRUE(other.job->process_whole_file);
}

TEST_F(CommandLineTest, KeyRangeAndOctaveRules) {
  struct Case {
    QStringList keys;
    bool accepted;
  };
  const Case cases[] = {
      {{"-j", "1", "-k", "88"}, true},   {{"-j", "0"}, false},          {{"-k", "89"}, false},
      {{"-j", "40", "-k", "50"}, false},  // ten semitones apart
      {{"-j", "40", "-k", "51"}, true},   // eleven apart pass
      {{"-j", "89", "-k", "10"}, false},  {{"-k", "60"}, true},           // no octave test alone
  };
  for (const Case& c : cases) {
    TonemillApp fresh("");
    fresh.job_manager = app.job_manager;
    fresh.headless = true;
    const bool accepted = fresh.ProcessCommandLineArguments(QStringList{"tonemill", "-a", "s.mp3"} + c.keys);
    EXPECT_EQ(accepted, c.accepted) << c.keys.join(' ').toStdString();
    EXPECT_EQ(fresh.job != nullptr, c.accepted);
  }
}

TEST_F(CommandLineTest, ModifiersApplyInOrderAndLastWins) {
  ASSERT_TRUE(Parse({"-a", "song.mp3", "-j", "10", "-k", "70", "-r", "-o", "-b", "-t"}));
  TranscriptionJob& job = *app.job;
  EXPECT_EQ(job.cli_modifiers.lowest_keys, std::vector<int>{9});
  EXPECT_EQ(job.cli_modifiers.highest_keys, std::vector<int>{69});
  // -r then -o: moving into range wins.
  EXPECT_EQ(job.cli_modifiers.remove_outside, (std::vector<bool>{true, false}));
  // -b wins over -t: only the bass-only split is recorded.
  ASSERT_EQ(job.cli_modifiers.treble_clef_start_keys.size(), 1u);

  job.sheet_music_settings.remove_notes_outside_range = true;
  job.cli_modifiers.Set(&job);
  EXPECT_EQ(job.sheet_music_settings.lowest_note_idx, 9);
  EXPECT_EQ(job.sheet_music_settings.highest_note_idx, 69);
  EXPECT_FALSE(job.sheet_music_settings.remove_notes_outside_range);
  EXPECT_EQ(job.sheet_music_settings.treble_clef_start_key_idx, job.cli_modifiers.treble_clef_start_keys[0]);
}

TEST_F(CommandLineTest, TrebleOnlyAndBassOnlyUseDifferentSplits) {
  ASSERT_TRUE(Parse({"-a", "song.mp3", "-t"}));
  TonemillApp bass("");
  bass.job_manager = app.job_manager;
  bass.headless = true;
  ASSERT_TRUE(bass.ProcessCommandLineArguments({"tonemill", "-a", "song.mp3", "-b"}));
  // Treble only: every key is at or above the split; bass only: none is.
  EXPECT_LE(app.job->cli_modifiers.treble_clef_start_keys.at(0), 0);
  EXPECT_GE(bass.job->cli_modifiers.treble_clef_start_keys.at(0), 88);
}

TEST_F(CommandLineTest, ThreadCountIsAtLeastOne) {
  for (const auto& [value, expected] : {std::pair<QString, int>{"0", 1}, {"-3", 1}, {"6", 6}, {"x", 1}}) {
    TonemillApp fresh("");
    fresh.job_manager = app.job_manager;
    fresh.headless = true;
    ASSERT_TRUE(fresh.ProcessCommandLineArguments({"tonemill", "-a", "s.mp3", "--threads", value}));
    EXPECT_EQ(fresh.job->thread_count, expected) << value.toStdString();
  }
}

TEST_F(CommandLineTest, AudioLengthQuitsWhenDone) {
  app.headless = false;
  ASSERT_TRUE(Parse({"-l", "song.mp3"}));
  EXPECT_TRUE(app.job->get_audio_length);
  EXPECT_TRUE(app.job->quit_when_done);
}

TEST_F(CommandLineTest, WindowRunWithoutOutputsStaysOpen) {
  app.headless = false;
  ASSERT_TRUE(Parse({"song.mp3"}));
  EXPECT_FALSE(app.job->quit_when_done);
  EXPECT_TRUE(app.job->find_notes);
}

}  // namespace
