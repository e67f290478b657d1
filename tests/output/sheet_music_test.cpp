#include "output/sheet_music.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <random>
#include <string>
#include <vector>

#include "output_fixture.h"
#include "tests/output/musicxml_validation.h"

namespace {

// One written note as text: pitch or R, duration, type with "." for a dot, then markers:
// "+" chord, ">" tie onward, "<" tie back, "3" triplet, the stem and the beams.
std::string Describe(const xml::XmlNote& note) {
  std::string text;
  if (note.IsRest()) {
    text = "R";
  } else {
    text = note.pitch.step.toStdString();
    if (note.pitch.alter.value > 0) text += "#";
    if (note.pitch.alter.value < 0) text += "b";
    text += std::to_string(note.pitch.octave);
  }
  text += ":" + std::to_string(note.duration) + ":" + note.type.toStdString() + (note.dot.visible ? "." : "");
  if (note.IsChord()) text += " +";
  if (note.HasTieStart()) text += " >";
  if (note.HasTieStop()) text += " <";
  if (note.time_modification.visible) text += " 3";
  return text;
}

std::string Beams(const xml::XmlNote& note) {
  std::string text;
  for (const xml::XmlBase* base : note.beams) {
    const auto* beam = static_cast<const xml::Beam*>(base);
    if (!text.empty()) text += " ";
    text += beam->attributes[0].second.toStdString() + "=" + beam->value.toStdString();
  }
  return text;
}

std::vector<const xml::XmlNote*> Notes(const xml::Measure& measure, int staff) {
  std::vector<const xml::XmlNote*> notes;
  for (const xml::XmlBase* child : measure.children) {
    const auto* note = dynamic_cast<const xml::XmlNote*>(child);
    if (note && note->staff == staff) notes.push_back(note);
  }
  return notes;
}

std::vector<std::string> Described(const xml::Measure& measure, int staff) {
  std::vector<std::string> out;
  for (const xml::XmlNote* note : Notes(measure, staff)) out.push_back(Describe(*note));
  return out;
}

// The part of the document between <measure number="n"> and its end tag.
QString MeasureText(const QString& document, int number) {
  const int start = document.indexOf(QString("<measure number=\"%1\">").arg(number));
  if (start < 0) return QString();
  return document.mid(start, document.indexOf("</measure>", start) - start);
}

class SheetMusicTest : public OutputFixture {
 protected:
  // 4/4 at 120 per quarter: a beat every 0.5 s, a 16th step every 0.125 s, 24 divisions.
  void SetUp() override { SetBeats(Regular(2, 4, 4, 0.5)); }

  QString Build() {
    sheet_ = std::make_unique<SheetMusic>(job_);
    return sheet_->DocumentText();
  }
  const xml::Measure& Measure(int number) const { return *sheet_->score->parts[0]->measures.at(number - 1); }

  // Every staff of every measure adds up to the measure's length, and each backup goes back
  // exactly that far.
  void ExpectFullMeasures() {
    const xml::Part& part = *sheet_->score->parts[0];
    int beats = 4, beat_type = 4;
    for (const xml::Measure* measure : part.measures) {
      if (measure->attributes_element && measure->attributes_element->HasTime()) {
        beats = measure->attributes_element->time.beats;
        beat_type = measure->attributes_element->time.beat_type;
      }
      const int length = beats * 4 * sheet_->divisions / beat_type;
      int written = 0;
      for (const xml::XmlBase* child : measure->children) {
        if (const auto* note = dynamic_cast<const xml::XmlNote*>(child)) {
          if (!note->IsChord()) written += note->duration;
        } else if (const auto* backup = dynamic_cast<const xml::Backup*>(child)) {
          EXPECT_EQ(written, length) << "measure " << measure->number;
          EXPECT_EQ(backup->duration, length) << "measure " << measure->number;
          written = 0;
        }
      }
      EXPECT_EQ(written, length) << "last staff of measure " << measure->number;
    }
  }

  std::unique_ptr<SheetMusic> sheet_;
};

TEST_F(SheetMusicTest, DocumentHasTheTwoHeaderLinesAndEscapesOnlyAmpersands) {
  job_->title = "Rock & <Roll>";
  const QString text = Build();
  EXPECT_TRUE(
      text.startsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                      "<!DOCTYPE score-partwise PUBLIC \"-//Recordare//DTD MusicXML 3.0 Partwise//EN\" "
                      "\"http://www.musicxml.org/dtds/partwise.dtd\">\n<score-partwise version=\"3.0\">\n"));
  EXPECT_TRUE(text.endsWith("</score-partwise>\n"));
  EXPECT_NE(text.indexOf("<work-title>Rock &amp; <Roll></work-title>"), -1);
}

TEST_F(SheetMusicTest, PartListNamesTheInstrument) {
  job_->sheet_music_settings.instrument = "Violin";
  job_->sheet_music_settings.midi_program = 41;
  QString text = Build();
  EXPECT_NE(text.indexOf(
                "<score-part id=\"P1\">\n      <part-name>Violin</part-name>\n"
                "      <score-instrument id=\"P1-I3\">\n        <instrument-name>Violin</instrument-name>"),
            -1)
      << text.toStdString();
  EXPECT_NE(text.indexOf("<midi-channel>1</midi-channel>\n        <midi-program>41</midi-program>\n"
                         "        <volume>80</volume>\n        <pan>0</pan>"),
            -1);
  job_->sheet_music_settings.instrument = "Custom";
  text = Build();
  EXPECT_NE(text.indexOf("<part-name> </part-name>"), -1);
  EXPECT_NE(text.indexOf("<instrument-name>Custom</instrument-name>"), -1);
}

TEST_F(SheetMusicTest, FirstMeasureCarriesAttributesAndLaterOnesOnlyChanges) {
  const QString text = Build();
  const QString first = MeasureText(text, 1);
  EXPECT_NE(
      first.indexOf(
          "<print>\n        <staff-layout number=\"2\">\n          <staff-distance>70</staff-distance>"),
      -1);
  EXPECT_NE(first.indexOf("<measure-numbering>none</measure-numbering>"), -1);
  EXPECT_NE(first.indexOf("<divisions>24</divisions>"), -1);
  EXPECT_NE(first.indexOf("<fifths>0</fifths>"), -1) << "a song without a key starts in C major";
  EXPECT_NE(first.indexOf("<beats>4</beats>\n          <beat-type>4</beat-type>"), -1);
  EXPECT_NE(first.indexOf("<staves>2</staves>"), -1);
  EXPECT_NE(first.indexOf("<clef number=\"1\">\n          <sign>G</sign>\n          <line>2</line>"), -1);
  EXPECT_NE(first.indexOf("<clef number=\"2\">\n          <sign>F</sign>\n          <line>4</line>"), -1);
  EXPECT_EQ(MeasureText(text, 2).indexOf("<attributes>"), -1);
  EXPECT_EQ(text.count("<backup>"), 2) << "one backup a measure; the last staff has none";
  EXPECT_EQ(text.indexOf("<direction"), -1) << "no tempo of the user's, no tempo mark";
}

TEST_F(SheetMusicTest, EmptySongIsWholeRestsOnBothStaves) {
  Build();
  for (int m = 1; m <= 2; ++m) {
    EXPECT_EQ(Described(Measure(m), 1), std::vector<std::string>{"R:96:whole"});
    EXPECT_EQ(Described(Measure(m), 2), std::vector<std::string>{"R:96:whole"});
  }
  ExpectFullMeasures();
}

TEST_F(SheetMusicTest, ThreeQuarterNoteIsADottedHalfAndRestsTakeNoDots) {
  SetNotes({MakeNote(51, 0.0, 1.5)});
  Build();
  EXPECT_EQ(Described(Measure(1), 1), (std::vector<std::string>{"C5:72:half.", "R:24:quarter"}));
  // The bass staff of a measure with three quarters free of notes.
  SetNotes({MakeNote(51, 0.5, 2.0)});
  Build();
  EXPECT_EQ(Described(Measure(1), 1), (std::vector<std::string>{"R:24:quarter", "C5:72:half."}));
  ExpectFullMeasures();
}

TEST_F(SheetMusicTest, NoteAcrossABarLineIsTiedFromADottedQuarter) {
  SetNotes({MakeNote(51, 1.25, 2.5)});
  const QString text = Build();
  EXPECT_EQ(Described(Measure(1), 1),
            (std::vector<std::string>{"R:48:half", "R:12:eighth", "C5:36:quarter. >"}));
  EXPECT_EQ(Described(Measure(2), 1),
            (std::vector<std::string>{"C5:24:quarter <", "R:48:half", "R:24:quarter"}));
  EXPECT_NE(MeasureText(text, 1).indexOf("<tie type=\"start\"/>"), -1);
  EXPECT_NE(MeasureText(text, 1).indexOf("<tied type=\"start\"/>"), -1);
  EXPECT_NE(MeasureText(text, 2).indexOf("<tied type=\"stop\"/>"), -1);
  ExpectFullMeasures();
}

TEST_F(SheetMusicTest, LongNoteInsideAMeasureIsCutIntoTiedValues) {
  SetNotes({MakeNote(51, 0.0, 0.625)});  // five 16ths: a quarter tied to a 16th
  Build();
  EXPECT_EQ(Described(Measure(1), 1), (std::vector<std::string>{"C5:24:quarter >", "C5:6:16th <", "R:48:half",
                                                                "R:12:eighth", "R:6:16th"}));
  ExpectFullMeasures();
}

TEST_F(SheetMusicTest, ChordKeysThatEndApartAreSlicedAndTied) {
  SetNotes({MakeNote(39, 0.0, 0.5), MakeNote(43, 0.0, 1.0)});
  const QString text = Build();
  EXPECT_EQ(Described(Measure(1), 1),
            (std::vector<std::string>{"C4:24:quarter", "E4:24:quarter + >", "E4:24:quarter <", "R:48:half"}));
  EXPECT_NE(text.indexOf("<note>\n        <chord/>\n        <pitch>\n          <step>E</step>"), -1);
  ExpectFullMeasures();
}

TEST_F(SheetMusicTest, EighthNoteTripletHasTimeModificationAndBrackets) {
  SetNotes(TripletNotes(51, 0.0, 0.5));
  const QString text = Build();
  EXPECT_EQ(Described(Measure(1), 1),
            (std::vector<std::string>{"C5:8:eighth 3", "C5:8:eighth 3", "C5:8:eighth 3", "R:48:half",
                                      "R:24:quarter"}));
  const auto notes = Notes(Measure(1), 1);
  EXPECT_TRUE(notes[0]->notations.tuplet.visible);
  EXPECT_EQ(notes[0]->notations.tuplet.attributes[0].second, "start");
  EXPECT_FALSE(notes[1]->notations.tuplet.visible);
  EXPECT_EQ(notes[2]->notations.tuplet.attributes[0].second, "stop");
  // Three triplet eighths are beamed as eighths.
  EXPECT_EQ(Beams(*notes[0]), "1=begin");
  EXPECT_EQ(Beams(*notes[1]), "1=continue");
  EXPECT_EQ(Beams(*notes[2]), "1=end");
  EXPECT_NE(text.indexOf("<time-modification>\n          <actual-notes>3</actual-notes>\n"
                         "          <normal-notes>2</normal-notes>\n        </time-modification>"),
            -1);
  ExpectFullMeasures();
}

TEST_F(SheetMusicTest, QuarterTripletMayEndOnTheNextBarLine) {
  SetNotes(TripletNotes(51, 1.0, 2.0));
  Build();
  EXPECT_EQ(Described(Measure(1), 1),
            (std::vector<std::string>{"R:48:half", "C5:16:quarter 3", "C5:16:quarter 3", "C5:16:quarter 3"}));
  EXPECT_EQ(Described(Measure(2), 1), std::vector<std::string>{"R:96:whole"});
  for (const xml::XmlNote* note : Notes(Measure(1), 1)) EXPECT_TRUE(note->beams.empty());
  ExpectFullMeasures();
}

TEST_F(SheetMusicTest, TripletThatANoteCutsThroughIsWrittenPlain) {
  std::vector<Note> notes = TripletNotes(51, 0.0, 0.5);
  notes.push_back(MakeNote(55, 0.25, 0.75));  // starts inside the second part of the triplet
  SetNotes(notes);
  Build();
  for (const xml::XmlNote* note : Notes(Measure(1), 1)) EXPECT_FALSE(note->time_modification.visible);
  EXPECT_TRUE(job_->notes.GetNotes()[0].InValidTriplet()) << "the editor's triplet is untouched";
  ExpectFullMeasures();
}

TEST_F(SheetMusicTest, BeamsGroupByTheQuarter) {
  job_->sheet_music_settings.treble_clef_start_key_idx = -1;  // treble staff only
  SetNotes({                                                  // Beat 1: four 16ths.
            MakeNote(51, 0.0, 0.125), MakeNote(52, 0.125, 0.25), MakeNote(53, 0.25, 0.375),
            MakeNote(54, 0.375, 0.5),
            // Beat 2: an eighth and two 16ths.
            MakeNote(51, 0.5, 0.75), MakeNote(52, 0.75, 0.875), MakeNote(53, 0.875, 1.0),
            // Beat 3: a dotted eighth and a 16th.
            MakeNote(51, 1.0, 1.375), MakeNote(52, 1.375, 1.5),
            // Beat 4: two eighths; then eight eighths in measure 2.
            MakeNote(51, 1.5, 1.75), MakeNote(52, 1.75, 2.0), MakeNote(51, 2.0, 2.25),
            MakeNote(52, 2.25, 2.5), MakeNote(51, 2.5, 2.75), MakeNote(52, 2.75, 3.0),
            MakeNote(51, 3.0, 3.25), MakeNote(52, 3.25, 3.5), MakeNote(51, 3.5, 3.75),
            MakeNote(52, 3.75, 4.0)});
  Build();
  std::vector<std::string> beams;
  for (const xml::XmlNote* note : Notes(Measure(1), 1)) beams.push_back(Beams(*note));
  EXPECT_EQ(beams,
            (std::vector<std::string>{"1=begin 2=begin", "1=continue 2=continue", "1=continue 2=continue",
                                      "1=end 2=end", "1=begin", "1=continue 2=begin", "1=end 2=end",
                                      "1=begin", "1=end 2=backward hook", "1=begin", "1=end"}));
  beams.clear();
  for (const xml::XmlNote* note : Notes(Measure(2), 1)) beams.push_back(Beams(*note));
  EXPECT_EQ(beams, (std::vector<std::string>{"1=begin", "1=end", "1=begin", "1=end", "1=begin", "1=end",
                                             "1=begin", "1=end"}));
  for (const xml::XmlNote* note : Notes(Measure(1), 1)) EXPECT_EQ(note->stem, "down");
  ExpectFullMeasures();
}

TEST_F(SheetMusicTest, ChordInARunHasBeamsOnItsFirstNoteOnly) {
  job_->sheet_music_settings.treble_clef_start_key_idx = -1;
  SetNotes({MakeNote(51, 0.0, 0.25), MakeNote(55, 0.0, 0.25), MakeNote(53, 0.25, 0.5)});
  Build();
  const auto notes = Notes(Measure(1), 1);
  ASSERT_GE(notes.size(), 3u);
  EXPECT_EQ(Beams(*notes[0]), "1=begin");
  EXPECT_EQ(Beams(*notes[1]), "");
  EXPECT_EQ(Beams(*notes[2]), "1=end");
}

TEST_F(SheetMusicTest, StemsFollowTheMeanDistanceFromTheMiddleLine) {
  job_->sheet_music_settings.treble_clef_start_key_idx = -1;
  SetNotes({MakeNote(49, 0.0, 0.5),                            // a quarter just below B4: up
            MakeNote(50, 0.5, 1.0),                            // on the middle line: down
            MakeNote(46, 1.0, 1.25), MakeNote(50, 1.25, 1.5),  // mean -2: up
            MakeNote(48, 1.5, 1.75), MakeNote(50, 1.75, 2.0),  // mean -1 rounds to 0: down
            MakeNote(39, 2.0, 2.25), MakeNote(62, 2.25, 2.5),  // mean 0.5: down
            MakeNote(39, 2.5, 2.75), MakeNote(41, 2.75, 3.0),  // far below: up
            MakeNote(60, 3.0, 5.0)});                          // cut at the end of the song: a half
  Build();
  std::vector<std::string> stems;
  for (const xml::XmlNote* note : Notes(Measure(1), 1)) stems.push_back(note->stem.toStdString());
  EXPECT_EQ(stems, (std::vector<std::string>{"up", "down", "up", "up", "down", "down"}));
  stems.clear();
  for (const xml::XmlNote* note : Notes(Measure(2), 1)) stems.push_back(note->stem.toStdString());
  EXPECT_EQ(stems, (std::vector<std::string>{"down", "down", "up", "up", "down"}));
  EXPECT_EQ(Notes(Measure(2), 1).back()->duration, 48);
}

TEST_F(SheetMusicTest, OctaveTranspositionFoldsIntoTheKeyboardAndTheRange) {
  job_->sheet_music_settings.octave_shift = 1;
  job_->sheet_music_settings.treble_clef_start_key_idx = -1;
  SetNotes({MakeNote(39, 0.0, 0.5), MakeNote(80, 0.5, 1.0)});
  Build();
  // C4 up an octave is C5; F7 up an octave leaves the keyboard and folds back to F7.
  EXPECT_EQ(Described(Measure(1), 1),
            (std::vector<std::string>{"C5:24:quarter", "F7:24:quarter", "R:48:half"}));
  job_->sheet_music_settings.lowest_note_idx = 39;
  job_->sheet_music_settings.highest_note_idx = 60;
  Build();
  EXPECT_EQ(Described(Measure(1), 1),
            (std::vector<std::string>{"C5:24:quarter", "F5:24:quarter", "R:48:half"}));
  job_->sheet_music_settings.remove_notes_outside_range = true;
  Build();
  EXPECT_EQ(Described(Measure(1), 1),
            (std::vector<std::string>{"C5:24:quarter", "R:48:half", "R:24:quarter"}));
  EXPECT_EQ(job_->notes.GetNotes()[1].key_idx, 80) << "the editor's notes are untouched";
}

TEST_F(SheetMusicTest, KeyChangeRespellsNotesFromItsMeasureOn) {
  std::vector<Beat> beats = Regular(3, 4, 4, 0.5);
  beats[0].key_signature = 2;
  beats[4].key_signature = -3;
  SetBeats(beats);
  SetNotes({MakeNote(40, 0.0, 0.5), MakeNote(40, 2.0, 2.5), MakeNote(40, 4.0, 4.5)});
  const QString text = Build();
  EXPECT_NE(MeasureText(text, 1).indexOf("<fifths>2</fifths>"), -1);
  EXPECT_NE(MeasureText(text, 2).indexOf("<attributes>\n        <key>\n          <fifths>-3</fifths>\n"
                                         "          <mode>major</mode>\n        </key>\n      </attributes>"),
            -1)
      << MeasureText(text, 2).toStdString();
  EXPECT_EQ(MeasureText(text, 3).indexOf("<attributes>"), -1);
  EXPECT_EQ(Described(Measure(1), 1).front(), "C#4:24:quarter");
  EXPECT_EQ(Described(Measure(2), 1).front(), "Db4:24:quarter");
  EXPECT_EQ(Described(Measure(3), 1).front(), "Db4:24:quarter") << "the key stays in force";
}

TEST_F(SheetMusicTest, TranspositionMovesTheKeySignature) {
  std::vector<Beat> beats = Regular(1, 4, 4, 0.5);
  beats[0].key_signature = 0;
  SetBeats(beats);
  job_->sheet_music_settings.semitone_shift = 2;  // C major written for a B flat instrument
  SetNotes({MakeNote(39, 0.0, 2.0)});
  Build();
  EXPECT_EQ(Measure(1).attributes_element->key.fifths, 2);
  EXPECT_EQ(Described(Measure(1), 1).front(), "D4:96:whole");
  EXPECT_EQ(Notes(Measure(1), 1).front()->stem, "none");
}

TEST_F(SheetMusicTest, TimeSignatureChangeFromThreeFourToFourFour) {
  std::vector<Beat> beats = {Beat(1, 0.0, 3, 4), Beat(2, 0.5), Beat(3, 1.0), Beat(1, 1.5, 4),
                             Beat(2, 2.0),       Beat(3, 2.5), Beat(4, 3.0), Beat(1, 3.5)};
  SetBeats(beats);
  const QString text = Build();
  EXPECT_NE(MeasureText(text, 1).indexOf("<beats>3</beats>"), -1);
  EXPECT_NE(
      MeasureText(text, 2).indexOf("<time>\n          <beats>4</beats>\n          <beat-type>4</beat-type>"),
      -1);
  EXPECT_EQ(Described(Measure(1), 1), (std::vector<std::string>{"R:48:half", "R:24:quarter"}));
  EXPECT_EQ(Described(Measure(2), 2), std::vector<std::string>{"R:96:whole"});
  ExpectFullMeasures();
}

TEST_F(SheetMusicTest, UserTempoBecomesAMetronomeMark) {
  std::vector<Beat> beats = Regular(2, 4, 4, 0.5);
  beats[0].tempo = 120;
  beats[4].tempo = 90;
  SetBeats(beats);
  const QString text = Build();
  EXPECT_NE(MeasureText(text, 1).indexOf("<direction placement=\"above\">\n        <direction-type>\n"
                                         "          <metronome parentheses=\"yes\">\n"
                                         "            <beat-unit>quarter</beat-unit>\n"
                                         "            <per-minute>120</per-minute>"),
            -1);
  EXPECT_NE(MeasureText(text, 2).indexOf("<per-minute>90</per-minute>"), -1);
  EXPECT_EQ(MeasureText(text, 2).indexOf("<attributes>"), -1);
}

TEST_F(SheetMusicTest, NoteValuesBreakDownGreedilyInTableOrder) {
  Build();
  auto names = [this](int frames, bool no_dots) {
    std::vector<NoteType> out;
    sheet_->FrameBreakdown(frames, no_dots, &out);
    std::vector<std::string> text;
    for (const NoteType& type : out) text.push_back(type.name.toStdString() + (type.dotted ? "." : ""));
    return text;
  };
  EXPECT_EQ(names(72, false), std::vector<std::string>{"half."});
  EXPECT_EQ(names(72, true), (std::vector<std::string>{"half", "quarter"}));
  EXPECT_EQ(names(9, false), (std::vector<std::string>{"16th", "32nd"}))
      << "3/8 of a quarter is not a dotted 16th";
  EXPECT_EQ(names(192, false), (std::vector<std::string>{"whole", "whole"}));
  EXPECT_TRUE(names(0, false).empty());
  EXPECT_EQ(sheet_->divisions, 24);
}

TEST_F(SheetMusicTest, FinerGridRaisesTheDivisions) {
  job_->sheet_music_settings.smallest_notes_per_quarter = 8;
  SetNotes({MakeNote(51, 0.0, 0.0625)});  // a 32nd
  const QString text = Build();
  EXPECT_NE(text.indexOf("<divisions>48</divisions>"), -1);
  EXPECT_EQ(Described(Measure(1), 1).front(), "C5:6:32nd");
  ExpectFullMeasures();
}

TEST_F(SheetMusicTest, CancelledJobHasNoMeasures) {
  SetNotes({MakeNote(51, 0.0, 0.5)});
  TranscriptionJob::Cancel(job_);
  const QString text = Build();
  EXPECT_EQ(text.indexOf("<measure"), -1);
  EXPECT_NE(text.indexOf("<part id=\"P1\">"), -1);
}

TEST_F(SheetMusicTest, SaveWritesTheDocumentAndReportsAFailedWrite) {
  SetNotes({MakeNote(51, 0.0, 0.5)});
  QTemporaryDir dir;
  job_->musicxml_filename = dir.filePath("new folder/song.musicxml");
  SheetMusic sheet(job_);
  std::vector<std::string> messages;
  QObject::connect(&sheet, &SheetMusic::Message, [&](std::string text, bool) { messages.push_back(text); });
  ASSERT_TRUE(sheet.SaveSheetMusic());
  QFile file(job_->musicxml_filename);
  ASSERT_TRUE(file.open(QIODevice::ReadOnly));
  EXPECT_EQ(QString::fromUtf8(file.readAll()), SheetMusic(job_).DocumentText());
  EXPECT_EQ(sheet.score, nullptr) << "the tree is released after the save";
  EXPECT_TRUE(messages.empty());

  const QString blocked = dir.filePath("file");
  QFile(blocked).open(QIODevice::WriteOnly);
  EXPECT_FALSE(sheet.SaveSheetMusic(blocked + "/song.musicxml"));
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0], language_.FILE_WRITE_FAILED + (blocked + "/song.musicxml").toStdString());
  job_->musicxml_filename.clear();
  EXPECT_FALSE(sheet.SaveSheetMusic()) << "no name: nothing to write";
}

// A song with everything at once: chords, ties across bar lines, both clefs, a triplet, a key
// change, a 3/4 to 4/4 change and a tempo mark, plus notes on no grid at all.
class SheetMusicSchemaTest : public SheetMusicTest {
 protected:
  void SetUp() override {
    std::vector<Beat> beats = {Beat(1, 0.0, 3, 4, 100, 1),
                               Beat(2, 0.6),
                               Beat(3, 1.2),
                               Beat(1, 1.8, 4, 4, 0, -2),
                               Beat(2, 2.3),
                               Beat(3, 2.8),
                               Beat(4, 3.3),
                               Beat(1, 3.8),
                               Beat(2, 4.3),
                               Beat(3, 4.8),
                               Beat(4, 5.3),
                               Beat(1, 5.8)};
    SetBeats(beats);
  }
};

TEST_F(SheetMusicSchemaTest, SongValidatesAndFillsEveryMeasure) {
  std::vector<Note> notes = {MakeNote(39, 0.0, 0.6), MakeNote(43, 0.0, 1.2), MakeNote(46, 0.3, 2.55),
                             MakeNote(20, 0.0, 2.3), MakeNote(27, 1.2, 0.0), MakeNote(60, 1.35, 1.5)};
  std::vector<Note> triplet = TripletNotes(55, 3.8, 4.3);
  notes.insert(notes.end(), triplet.begin(), triplet.end());
  std::mt19937 random(7);
  // Kept clear of the measure of the triplet, so that no note cuts into it.
  std::uniform_real_distribution<double> when(0.0, 3.0), length(0.05, 0.7);
  std::uniform_int_distribution<int> key(15, 75);
  for (int i = 0; i < 40; ++i) {
    const double start = when(random);
    notes.push_back(MakeNote(key(random), start, i % 3 ? start + length(random) : 0.0));
  }
  SetNotes(notes);
  const QString text = Build();
  ExpectFullMeasures();
  EXPECT_NE(MeasureText(text, 1).indexOf("<fifths>1</fifths>"), -1);
  EXPECT_NE(MeasureText(text, 2).indexOf("<fifths>-2</fifths>"), -1);
  EXPECT_NE(text.indexOf("<tuplet type=\"start\"/>"), -1);
  const MusicXmlValidation result = ValidateMusicXml(text);
  if (result.skipped) GTEST_SKIP() << result.output.toStdString();
  EXPECT_TRUE(result.valid) << result.output.toStdString() << text.toStdString();
}

class TablatureTest : public SheetMusicTest {
 protected:
  void SetUp() override {
    SheetMusicTest::SetUp();
    SheetMusicSettings& settings = job_->sheet_music_settings;
    settings.instrument = "Guitar";
    settings.tablature = true;
    settings.string_keys = {43, 38, 34, 29, 24, 19};
    settings.frets = 19;
  }
};

TEST_F(TablatureTest, StringsAndFretsForEachPlayableKey) {
  // Key 10 lies below the low E string and is left out; the rest of the chord stays.
  SetNotes({MakeNote(19, 0.0, 0.5), MakeNote(26, 0.0, 0.5), MakeNote(10, 0.0, 0.5), MakeNote(19, 0.5, 0.625),
            MakeNote(21, 0.625, 0.75)});
  const QString text = Build();
  EXPECT_EQ(Described(Measure(1), 1),
            (std::vector<std::string>{"E2:24:quarter", "B2:24:quarter +", "E2:6:16th", "F#2:6:16th",
                                      "R:48:half", "R:12:eighth"}));
  const auto notes = Notes(Measure(1), 1);
  EXPECT_EQ(notes[0]->notations.technical.string, 6);
  EXPECT_EQ(notes[0]->notations.technical.fret, 0);
  EXPECT_EQ(notes[1]->notations.technical.string, 5);
  EXPECT_EQ(notes[1]->notations.technical.fret, 2);
  EXPECT_EQ(notes[3]->notations.technical.fret, 2);
  for (const xml::XmlNote* note : notes) {
    if (note->IsRest()) continue;
    EXPECT_EQ(note->stem, "none");
    EXPECT_TRUE(note->beams.empty());
  }
  const QString first = MeasureText(text, 1);
  EXPECT_NE(first.indexOf("<staves>1</staves>"), -1);
  EXPECT_NE(first.indexOf("<sign>TAB</sign>\n          <line>5</line>"), -1);
  EXPECT_NE(first.indexOf("<staff-lines>6</staff-lines>"), -1);
  const int high = first.indexOf(
      "<staff-tuning line=\"6\">\n            <tuning-step>E</tuning-step>\n"
      "            <tuning-octave>4</tuning-octave>");
  const int low = first.indexOf(
      "<staff-tuning line=\"1\">\n            <tuning-step>E</tuning-step>\n"
      "            <tuning-octave>2</tuning-octave>");
  EXPECT_TRUE(high > 0 && low > high) << first.toStdString();
  ExpectFullMeasures();
  const MusicXmlValidation result = ValidateMusicXml(text);
  if (result.skipped) GTEST_SKIP() << result.output.toStdString();
  EXPECT_TRUE(result.valid) << result.output.toStdString();
}

TEST_F(TablatureTest, WrittenOctaveAboveSoundingKeepsTheFrets) {
  job_->sheet_music_settings.octave_shift = 1;  // guitar music is written an octave up
  SetNotes({MakeNote(19, 0.0, 2.0)});
  Build();
  const auto notes = Notes(Measure(1), 1);
  ASSERT_EQ(notes.size(), 1u);
  EXPECT_EQ(Describe(*notes[0]), "E3:96:whole");
  EXPECT_EQ(notes[0]->notations.technical.string, 6);
  EXPECT_EQ(notes[0]->notations.technical.fret, 0);
}

TEST_F(TablatureTest, ChordThatNoStringReachesBecomesARest) {
  SetNotes({MakeNote(5, 0.0, 2.0), MakeNote(87, 0.0, 2.0)});
  Build();
  EXPECT_EQ(Described(Measure(1), 1), std::vector<std::string>{"R:96:whole"});
  ExpectFullMeasures();
}

}  // namespace
