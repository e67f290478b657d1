#include <gtest/gtest.h>

#include <QFileInfo>
#include <QTemporaryDir>
#include <string>
#include <vector>

#include "app/job_processor.h"
#include "output/midi_file.h"
#include "test_support.h"
#include "tests/support/beat_lists.h"

namespace {

// SaveJobOutput on a job whose beats and notes are already there, as after note finding.
class SaveOutputsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    manager = MakeTestJobManager(data);
    manager->preferences.open_sheet_music_after_processing = false;
    processor = std::make_unique<JobProcessor>(manager->language, manager->preferences, manager->paths);
    QObject::connect(
        processor.get(), &JobProcessor::SheetMusicReady,
        [this](bool open_after, bool, QString file, auto) { ready.emplace_back(open_after, file); });
    QObject::connect(processor.get(), &JobProcessor::Message,
                     [this](std::string text, bool) { messages.push_back(text); });
    job = manager->NewJob();
    job->input_filename = out.filePath("song.wav");
    job->title = "Song";
    job->beats_analyzer.SetBeats(FourFourBeats(8));
  }

  void SetNotes() {
    Note note;
    note.key_idx = 39;
    note.start_time = 0.5;
    note.stop_time = 1.0;
    job->notes.SetNotesCandidatesPermanent({}, {note});
  }

  static QString Read(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
  }

  QTemporaryDir data, out;
  std::shared_ptr<JobManager> manager;
  std::unique_ptr<JobProcessor> processor;
  std::shared_ptr<TranscriptionJob> job;
  std::vector<std::pair<bool, QString>> ready;
  std::vector<std::string> messages;
};

TEST_F(SaveOutputsTest, WritesSheetMusicAndMidiAndAnnouncesTheScore) {
  SetNotes();
  job->musicxml_filename = out.filePath("scores/song.musicxml");
  job->midi_filename = out.filePath("midi/song.mid");
  job->midi_settings.midi_tempo = 2;
  processor->SaveJobOutput(job);
  EXPECT_TRUE(messages.empty()) << messages.front();
  ASSERT_EQ(ready.size(), 1u);
  EXPECT_EQ(ready[0].second, job->musicxml_filename);
  const QString score = Read(job->musicxml_filename);
  EXPECT_NE(score.indexOf("<step>C</step>"), -1);
  EXPECT_NE(score.indexOf("<work-title>Song</work-title>"), -1);
  MidiFile midi(job->midi_filename.toStdString());
  ASSERT_TRUE(midi.status());
  ASSERT_EQ(midi.getTrackCount(), 2);
  bool found = false;
  for (int i = 0; i < midi[1].size(); ++i) {
    if (midi[1][i].isNoteOn()) {
      EXPECT_EQ(midi[1][i].getKeyNumber(), 60);
      EXPECT_EQ(midi[1][i].tick, 120) << "0.5 s at 240 ticks a second";
      found = true;
    }
  }
  EXPECT_TRUE(found);
}

TEST_F(SaveOutputsTest, NoNotesGivesAScoreOfRestsInTheDetectedMeasures) {
  job->find_notes = false;
  job->musicxml_filename = out.filePath("rests.musicxml");
  processor->SaveJobOutput(job);
  const QString score = Read(job->musicxml_filename);
  EXPECT_EQ(score.count("<measure number="), 2);
  EXPECT_EQ(score.count("<rest/>"), 4) << "a whole rest on each staff of each measure";
}

TEST_F(SaveOutputsTest, SheetMusicOnlyToBeShownGoesToAScratchFile) {
  manager->preferences.open_sheet_music_after_processing = true;
  SetNotes();
  processor->SaveJobOutput(job);
  ASSERT_EQ(ready.size(), 1u);
  EXPECT_TRUE(ready[0].first);
  EXPECT_TRUE(ready[0].second.endsWith("/Song.xml")) << ready[0].second.toStdString();
  EXPECT_TRUE(QFileInfo::exists(ready[0].second));
  processor->SaveJobOutput(job);
  ASSERT_EQ(ready.size(), 2u);
  EXPECT_TRUE(ready[1].second.endsWith("/Song (1).xml")) << "an earlier view's file is kept";
}

TEST_F(SaveOutputsTest, UnwritableTargetsAreReportedAndTheJobGoesOn) {
  SetNotes();
  QFile(out.filePath("blocker")).open(QIODevice::WriteOnly);
  job->musicxml_filename = out.filePath("blocker/song.musicxml");
  job->midi_filename = out.filePath("blocker/song.mid");
  processor->SaveJobOutput(job);
  EXPECT_TRUE(ready.empty());
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[0], manager->language.FILE_WRITE_FAILED + job->musicxml_filename.toStdString());
  EXPECT_EQ(messages[1], manager->language.FILE_WRITE_FAILED + job->midi_filename.toStdString());
  EXPECT_FALSE(job->cancelled);
}

}  // namespace
