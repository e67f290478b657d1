#include <gtest/gtest.h>

#include <QTemporaryDir>

#include "score/transcription_job.h"
#include "test_support.h"

namespace {

class TranscriptionJobTest : public ::testing::Test {
 protected:
  QTemporaryDir data;
  std::shared_ptr<JobManager> manager = MakeTestJobManager(data);
  std::shared_ptr<TranscriptionJob> job = manager->NewJob();
};

TEST_F(TranscriptionJobTest, InputTypeGoesByTheLastExtensionAlone) {
  EXPECT_EQ(TranscriptionJob::GetInputType("/a/b/song.TMPJ"), kInputTmpj);
  EXPECT_EQ(TranscriptionJob::GetInputType("song.tmpj.mp3"), kInputAudio);
  EXPECT_EQ(TranscriptionJob::GetInputType("score.MusicXML"), kInputMusicXml);
  EXPECT_EQ(TranscriptionJob::GetInputType("score.xml"), kInputMusicXml);
  EXPECT_EQ(TranscriptionJob::GetInputType("tune.Midi"), kInputMidi);
  EXPECT_EQ(TranscriptionJob::GetInputType("tune.MID"), kInputMidi);
  EXPECT_EQ(TranscriptionJob::GetInputType("midi"), kInputAudio);

  job->input_filename = "/x/Tune.MID";
  EXPECT_TRUE(job->IsMidiInput());
  EXPECT_FALSE(job->IsTmpjInput());
  job->input_filename = "/x/score.xml";  // MusicXML takes the audio route
  EXPECT_FALSE(job->IsMidiInput());
  EXPECT_FALSE(job->IsTmpjInput());
}

TEST_F(TranscriptionJobTest, SaveFilenamesInSaveOrder) {
  EXPECT_TRUE(job->SaveFilenames().empty());
  job->extra_spectrogram_filename = "h";
  job->pdf_filename = "e";
  job->musicxml_filename = "a";
  job->SetDestinationFilename(kFormatCsv, "d");
  job->SetDestinationFilename(kFormatMidi, "c");
  job->SetDestinationFilename(kFormatTmpj, "b");
  job->SetDestinationFilename(99, "ignored");
  job->notes_csv_filename = "f";
  EXPECT_EQ(job->SaveFilenames(), (std::vector<QString>{"a", "b", "c", "d", "e", "f", "h"}));
}

TEST_F(TranscriptionJobTest, SettingsCompareEveryField) {
  SheetMusicSettings a = job->sheet_music_settings, b = a;
  EXPECT_EQ(a, b);
  b.track_clefs[3] = 1;
  EXPECT_NE(a, b);
  b = a;
  b.string_keys = {28, 33};
  EXPECT_NE(a, b);
  b = a;
  b.semitone_shift = 1;
  EXPECT_NE(a, b);
  EXPECT_EQ(b.PitchShift(), 1);
  b.octave_shift = -1;
  EXPECT_EQ(b.PitchShift(), -11);

  MidiSettings m = job->midi_settings, n = m;
  EXPECT_EQ(m, n);
  n.midi_constant_volume = 10;
  EXPECT_NE(m, n);
  n = m;
  n.highest_note_idx = 80;
  EXPECT_NE(m, n);
}

TEST_F(TranscriptionJobTest, UnsavedChangesAreAnnounced) {
  int announced = 0;
  QObject::connect(job.get(), &TranscriptionJob::NewHasUnsavedChanges, [&] { ++announced; });
  job->SetHasUnsavedChanges(true, true);
  EXPECT_TRUE(job->has_unsaved_changes);
  job->SetHasUnsavedChanges(false, true);
  EXPECT_FALSE(job->has_unsaved_changes);
  EXPECT_EQ(announced, 2);
}

}  // namespace
