#include "output/midi_io.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <map>
#include <string>
#include <vector>

#include "output/midi_file.h"
#include "output_fixture.h"
#include "score/midi_instrument_names.h"

namespace {

TEST(InterpolateTicks, LinearBetweenNeighboursAndMinusOneOutside) {
  const std::map<double, int> ticks = {{1.0, 0}, {2.0, 24}, {2.5, 48}};
  EXPECT_EQ(InterpolateTicks({}, 1.0), -1);
  EXPECT_EQ(InterpolateTicks(ticks, 0.5), -1);
  EXPECT_EQ(InterpolateTicks(ticks, 1.0), -1) << "at the first entry there is no entry before it";
  EXPECT_EQ(InterpolateTicks(ticks, 1.5), 12);
  EXPECT_EQ(InterpolateTicks(ticks, 2.0), 24);
  EXPECT_EQ(InterpolateTicks(ticks, 2.25), 36);
  EXPECT_EQ(InterpolateTicks(ticks, 1.26), 6) << "6.24 rounds to 6";
  EXPECT_EQ(InterpolateTicks(ticks, 2.6), -1);
}

// A note as it comes back from the file: track, key, on and off ticks, velocity.
struct FileNote {
  int track, key, on, off, velocity;
  bool operator==(const FileNote& o) const {
    return track == o.track && key == o.key && on == o.on && off == o.off && velocity == o.velocity;
  }
};

void PrintTo(const FileNote& n, std::ostream* out) {
  *out << "{track " << n.track << ", key " << n.key << ", " << n.on << ".." << n.off << ", vel " << n.velocity
       << "}";
}

class MidiExportTest : public OutputFixture {
 protected:
  void SetUp() override {
    SetBeats(Regular(2, 4, 4, 0.5));
    job_->midi_filename = dir_.filePath("out/song.mid");
  }

  // Writes the job's file and reads it back with our own reader.
  void Export() {
    ASSERT_TRUE(MidiIo::SaveMidiFile(job_));
    file_ = std::make_unique<MidiFile>(job_->midi_filename.toStdString());
    ASSERT_TRUE(file_->status());
    file_->doTimeAnalysis();
    file_->linkNotePairs();
  }

  std::vector<FileNote> NotesInFile() const {
    std::vector<FileNote> notes;
    for (int t = 0; t < file_->getTrackCount(); ++t) {
      const MidiEventList& track = (*file_)[t];
      for (int i = 0; i < track.size(); ++i) {
        if (!track[i].isNoteOn()) continue;
        const MidiEvent* off = track[i].getLinkedEvent();
        notes.push_back(
            {t, track[i].getKeyNumber(), track[i].tick, off ? off->tick : -1, track[i].getVelocity()});
      }
    }
    return notes;
  }

  std::vector<std::pair<int, double>> Tempos() const {
    std::vector<std::pair<int, double>> tempos;
    const MidiEventList& track = (*file_)[0];
    for (int i = 0; i < track.size(); ++i)
      if (track[i].isTempo()) tempos.emplace_back(track[i].tick, track[i].getTempoBPM());
    return tempos;
  }

  QTemporaryDir dir_;
  std::unique_ptr<MidiFile> file_;
};

TEST_F(MidiExportTest, ConstantTempoPutsEachOnsetAtItsStartTimeToTheTick) {
  job_->midi_settings.midi_tempo = 2;
  Note late = MakeNote(40, 1.2345, 1.61);
  late.volume = 90;
  SetNotes({MakeNote(39, 0.503, 0.9), late});  // stops snap to the grid: 0.875 s and 1.625 s
  Export();
  EXPECT_EQ(file_->getTicksPerQuarterNote(), 120);
  EXPECT_EQ(NotesInFile(), (std::vector<FileNote>{{1, 60, 121, 210, 64}, {1, 61, 296, 390, 90}}));
  // Read back through the tempo map, an onset lies within half a tick of its start time.
  const MidiEventList& track = (*file_)[1];
  for (int i = 0; i < track.size(); ++i) {
    if (track[i].getKeyNumber() == 61 && track[i].isNoteOn()) {
      EXPECT_NEAR(track[i].seconds, 1.2345, 1.0 / 480);
    }
  }
  EXPECT_EQ(Tempos(), (std::vector<std::pair<int, double>>{{0, 120.0}}));
  EXPECT_EQ((*file_)[0][0].getMetaType(), 0x58) << "the time signature comes first";
}

TEST_F(MidiExportTest, ConstantTempoCountsFromTheJobsStart) {
  job_->midi_settings.midi_tempo = 2;
  job_->start_time = 1.0;
  SetBeats(Regular(2, 4, 4, 0.5, 1.0));
  SetNotes({MakeNote(39, 1.503, 1.9)});
  Export();
  EXPECT_EQ(NotesInFile(), (std::vector<FileNote>{{1, 60, 121, 210, 64}}));
}

TEST_F(MidiExportTest, EachNoteGroupHasATrackNamedAfterTheProgram) {
  job_->midi_settings.midi_instrument = 40;
  SetNotes({MakeNote(39, 0.0, 0.5, 0), MakeNote(41, 0.5, 1.0, 1), MakeNote(43, 1.0, 1.5, 3)});
  Export();
  ASSERT_EQ(file_->getTrackCount(), 4);
  for (int t = 1; t <= 3; ++t) {
    const MidiEventList& track = (*file_)[t];
    ASSERT_GE(track.size(), 2);
    const std::vector<uint8_t> name = track[0].getMetaContent();
    EXPECT_EQ(track[0].getMetaType(), 0x04);
    EXPECT_EQ(std::string(name.begin(), name.end()), MidiInstrumentNames()[40]);
    EXPECT_EQ(track[1].getCommandNibble(), 0xC0);
    EXPECT_EQ(track[1][1], 40);
  }
  const std::vector<FileNote> notes = NotesInFile();
  ASSERT_EQ(notes.size(), 3u);
  EXPECT_EQ(notes[0].track, 0) << "group 0 shares the tempo track";
  EXPECT_EQ(notes[1].track, 1);
  EXPECT_EQ(notes[2].track, 3);
  EXPECT_TRUE((*file_)[2].size() == 3) << "an unused group keeps its named, empty track";
}

TEST_F(MidiExportTest, UserTemposFollowTheBeatGrid) {
  std::vector<Beat> beats = Regular(2, 4, 4, 0.5);
  beats[0].tempo = 120;
  beats[4].tempo = 90;
  SetBeats(beats);
  job_->midi_settings.midi_tempo = 1;
  SetNotes({MakeNote(39, 0.0, 0.5), MakeNote(41, 0.75, 1.25), MakeNote(43, 2.0, 4.0)});
  Export();
  EXPECT_EQ(file_->getTicksPerQuarterNote(), 24);
  const auto tempos = Tempos();
  ASSERT_EQ(tempos.size(), 2u);
  EXPECT_EQ(tempos[0], (std::pair<int, double>{0, 120.0}));
  EXPECT_EQ(tempos[1].first, 96);
  EXPECT_NEAR(tempos[1].second, 90.0, 1e-4) << "microseconds per quarter are whole numbers";
  // A beat is 24 ticks; times between beats are interpolated.
  EXPECT_EQ(NotesInFile(),
            (std::vector<FileNote>{{1, 60, 0, 24, 64}, {1, 62, 36, 60, 64}, {1, 64, 96, 192, 64}}));
}

TEST_F(MidiExportTest, AutoTempoMapHasATempoAtEveryBeat) {
  SetBeats(Regular(2, 3, 4, 0.6));
  job_->midi_settings.midi_tempo = 0;
  SetNotes({MakeNote(39, 0.6, 1.2)});
  Export();
  const auto tempos = Tempos();
  ASSERT_EQ(tempos.size(), 7u) << "six beats and the end of the song";
  for (size_t i = 0; i < tempos.size(); ++i) {
    EXPECT_EQ(tempos[i].first, static_cast<int>(24 * i));
    EXPECT_NEAR(tempos[i].second, 100.0, 1e-3);
  }
  EXPECT_EQ(NotesInFile(), (std::vector<FileNote>{{1, 60, 24, 48, 64}}));
  const MidiEventList& track = (*file_)[1];
  for (int i = 0; i < track.size(); ++i) {
    if (track[i].isNoteOn()) {
      EXPECT_NEAR(track[i].seconds, 0.6, 1e-3);
    }
  }
}

TEST_F(MidiExportTest, RoundedTimingUsesTheGrid) {
  job_->midi_settings.midi_tempo = 1;
  job_->midi_settings.midi_use_rounded_timing = true;
  SetNotes({MakeNote(39, 0.76, 1.01)});  // snaps to step 6 and step 8
  Export();
  EXPECT_EQ(NotesInFile(), (std::vector<FileNote>{{1, 60, 36, 48, 64}}));
  job_->midi_settings.midi_tempo = 2;
  Export();
  EXPECT_EQ(NotesInFile(), (std::vector<FileNote>{{1, 60, 180, 240, 64}}));
}

TEST_F(MidiExportTest, SongThatStartsAfterItsFirstBeatHasNoNegativeTicks) {
  job_->start_time = 0.9;
  job_->midi_settings.midi_tempo = 1;
  SetNotes({MakeNote(39, 0.9, 1.1), MakeNote(41, 1.0, 1.5), MakeNote(43, 2.0, 3.0), MakeNote(44, 3.2, 0.0)});
  Export();
  const std::vector<FileNote> notes = NotesInFile();
  ASSERT_EQ(notes.size(), 4u);
  int previous = 0;
  for (const FileNote& note : notes) {
    EXPECT_GE(note.on, previous);
    EXPECT_GE(note.off, note.on);
    previous = note.on;
  }
  EXPECT_EQ(notes[1].on, 5) << "the beat at 1.0 s lies a fifth of a beat after the start";
}

TEST_F(MidiExportTest, VolumesAndTransposition) {
  job_->midi_settings.midi_tempo = 2;
  job_->midi_settings.octave_shift = -1;
  Note quiet = MakeNote(51, 0.0, 0.5);
  quiet.volume = 0;
  Note loud = MakeNote(53, 0.5, 1.0);
  loud.volume = 127;
  SetNotes({quiet, loud});
  Export();
  // A silent note still sounds: a velocity of 0 would be a note-off.
  EXPECT_EQ(NotesInFile(), (std::vector<FileNote>{{1, 60, 0, 120, 1}, {1, 62, 120, 240, 127}}));
  job_->midi_settings.midi_use_constant_midi_volume = true;
  job_->midi_settings.midi_constant_volume = 100;
  Export();
  for (const FileNote& note : NotesInFile()) EXPECT_EQ(note.velocity, 100);
}

TEST_F(MidiExportTest, FileThatCannotBeWrittenFails) {
  SetNotes({MakeNote(39, 0.0, 0.5)});
  QFile(dir_.filePath("blocker")).open(QIODevice::WriteOnly);
  job_->midi_filename = dir_.filePath("blocker/song.mid");
  EXPECT_FALSE(MidiIo::SaveMidiFile(job_));
  job_->midi_filename.clear();
  EXPECT_FALSE(MidiIo::SaveMidiFile(job_));
}

TEST_F(MidiExportTest, JobWithoutBeatsWritesConstantTime) {
  job_->beats_analyzer.SetBeats({});
  job_->midi_settings.midi_tempo = 0;
  SetNotes({MakeNote(39, 0.5, 1.0)});
  Export();
  EXPECT_EQ(file_->getTicksPerQuarterNote(), 120);
}

}  // namespace
