#include <gtest/gtest.h>

#include <QString>
#include <memory>

#include "output/xml_attributes.h"
#include "output/xml_base.h"
#include "output/xml_measure.h"
#include "output/xml_note.h"
#include "output/xml_score_partwise.h"
#include "tests/output/musicxml_validation.h"

namespace {

TEST(XmlElementPrinting, LeafPrintsOnOneLineAndFollowsItsParentsField) {
  xml::Backup backup(24);
  EXPECT_EQ(backup.to_xml(0), "<backup>\n  <duration>24</duration>\n</backup>\n");
  backup.duration = 96;  // the leaf reads the field at print time
  EXPECT_EQ(backup.to_xml(1), "  <backup>\n    <duration>96</duration>\n  </backup>\n");
}

TEST(XmlElementPrinting, EmptyElementPrintsAPairOfTagsOnOneLine) {
  xml::XmlBase empty("empty");
  EXPECT_EQ(empty.to_xml(2), "    <empty></empty>\n");
  xml::XmlBase initialized("work");
  initialized.Initialize();
  EXPECT_EQ(initialized.to_xml(0), "<work></work>\n");
}

TEST(XmlElementPrinting, InvisibleElementLeavesNoLine) {
  xml::Pitch pitch;
  pitch.step = "E";
  pitch.octave = 5;
  EXPECT_EQ(pitch.to_xml(0), "<pitch>\n  <step>E</step>\n  <octave>5</octave>\n</pitch>\n");
  pitch.alter.value = -1;
  pitch.alter.visible = true;
  EXPECT_EQ(pitch.to_xml(0),
            "<pitch>\n  <step>E</step>\n  <alter>-1</alter>\n  <octave>5</octave>\n</pitch>\n");
  pitch.visible = false;
  EXPECT_EQ(pitch.to_xml(3), "");
}

TEST(XmlElementPrinting, NumbersPrintInShortestForm) {
  xml::Metronome metronome("yes");
  metronome.per_minute = 120.0;
  EXPECT_NE(metronome.to_xml(0).indexOf("<per-minute>120</per-minute>"), -1);
  metronome.per_minute = 0.5;
  EXPECT_NE(metronome.to_xml(0).indexOf("<per-minute>0.5</per-minute>"), -1);
  metronome.per_minute = 1.0 / 3.0;
  EXPECT_NE(metronome.to_xml(0).indexOf("<per-minute>0.333333</per-minute>"), -1);
  xml::Key key;
  key.fifths = 3;
  EXPECT_NE(key.to_xml(0).indexOf("<fifths>3</fifths>"), -1);
  key.fifths = -4;
  EXPECT_NE(key.to_xml(0).indexOf("<fifths>-4</fifths>"), -1);
}

TEST(XmlElementOrder, NoteChildrenFollowTheSchema) {
  xml::XmlNote note;
  note.SetPitch("F", 1, 4);
  note.SetChord();
  note.duration = 36;
  note.SetTieStart();
  note.SetTieStop();
  note.voice = 2;
  note.type = "quarter";
  note.SetDot();
  note.SetStem("up");
  note.staff = 2;
  note.AddBeam(1, "begin");
  note.AddBeam(2, "backward hook");
  note.SetTuplet("start");
  note.SetTimeModification();
  const QString expected =
      "<note>\n"
      "  <chord/>\n"
      "  <pitch>\n"
      "    <step>F</step>\n"
      "    <alter>1</alter>\n"
      "    <octave>4</octave>\n"
      "  </pitch>\n"
      "  <duration>36</duration>\n"
      "  <tie type=\"start\"/>\n"
      "  <tie type=\"stop\"/>\n"
      "  <voice>2</voice>\n"
      "  <type>quarter</type>\n"
      "  <dot/>\n"
      "  <time-modification>\n"
      "    <actual-notes>3</actual-notes>\n"
      "    <normal-notes>2</normal-notes>\n"
      "  </time-modification>\n"
      "  <stem>up</stem>\n"
      "  <staff>2</staff>\n"
      "  <beam number=\"1\">begin</beam>\n"
      "  <beam number=\"2\">backward hook</beam>\n"
      "  <notations>\n"
      "    <tied type=\"start\"/>\n"
      "    <tied type=\"stop\"/>\n"
      "    <tuplet type=\"start\"/>\n"
      "  </notations>\n"
      "</note>\n";
  EXPECT_EQ(note.to_xml(0), expected);
}

TEST(XmlElementOrder, AttributesShowOnlyWhatWasSet) {
  xml::Attributes attributes;
  attributes.SetTime(3, 4);
  EXPECT_EQ(attributes.to_xml(0),
            "<attributes>\n  <time>\n    <beats>3</beats>\n    <beat-type>4</beat-type>\n  </time>\n"
            "</attributes>\n");
  EXPECT_FALSE(attributes.HasKey());
  attributes.AddClef(1, "G", 2);  // clefs come after every fixed child even when added first
  attributes.SetKey(-2, "major");
  attributes.SetDivisions(24);
  attributes.SetStaves(1);
  const QString text = attributes.to_xml(0);
  const int divisions = text.indexOf("<divisions>24</divisions>");
  const int key = text.indexOf("<key>");
  const int time = text.indexOf("<time>");
  const int staves = text.indexOf("<staves>1</staves>");
  const int clef = text.indexOf("<clef number=\"1\">");
  EXPECT_TRUE(divisions >= 0 && divisions < key && key < time && time < staves && staves < clef)
      << text.toStdString();
}

TEST(XmlElementOrder, PrintPutsTheStaffLayoutBeforeTheNumbering) {
  xml::Print print;
  print.staff_layout.staff_distance = 70;
  EXPECT_EQ(
      print.to_xml(0),
      "<print>\n  <staff-layout number=\"2\">\n    <staff-distance>70</staff-distance>\n  </staff-layout>\n"
      "  <measure-numbering>none</measure-numbering>\n</print>\n");
}

// A document built by hand: two staves, a tempo mark, a chord, a backup.
std::unique_ptr<xml::ScorePartwise> SmallScore() {
  auto score = std::make_unique<xml::ScorePartwise>();
  score->work.work_title = "Small";
  xml::ScorePart* score_part = score->part_list.AddScorePart("P1", "P1-I3");
  score_part->part_name = "Piano";
  score_part->score_instrument.instrument_name = "Piano";
  xml::Part* part = score->AddPart("P1");
  xml::Measure* measure = part->AddMeasure(1);
  measure->AddPrint()->staff_layout.staff_distance = 70;
  xml::Attributes* attributes = measure->AddAttributes();
  attributes->SetDivisions(24);
  attributes->SetKey(0, "major");
  attributes->SetTime(4, 4);
  attributes->SetStaves(2);
  attributes->AddClef(1, "G", 2);
  attributes->AddClef(2, "F", 4);
  measure->AddDirection("above")->direction_type.metronome.per_minute = 96;
  for (int staff = 1; staff <= 2; ++staff) {
    for (int k = 0; k < 2; ++k) {
      auto note = std::make_unique<xml::XmlNote>();
      note->SetPitch(k == 0 ? "C" : "E", 0, staff == 1 ? 5 : 3);
      if (k > 0) note->SetChord();
      note->duration = 96;
      note->type = "whole";
      note->voice = staff;
      note->staff = staff;
      note->SetStem("none");
      measure->AddNote(std::move(note));
    }
    if (staff == 1) measure->AddBackup(96);
  }
  return score;
}

TEST(XmlDocument, MeasureChildrenPrintInInsertionOrder) {
  auto score = SmallScore();
  const QString text = score->to_xml(0);
  EXPECT_TRUE(
      text.startsWith("<score-partwise version=\"3.0\">\n  <work>\n    <work-title>Small</work-title>\n"));
  EXPECT_TRUE(text.endsWith("</score-partwise>\n"));
  const int print = text.indexOf("<print>");
  const int attributes = text.indexOf("<attributes>");
  const int direction = text.indexOf("<direction placement=\"above\">");
  const int first_note = text.indexOf("<note>");
  const int backup = text.indexOf("<backup>");
  const int bass_note = text.indexOf("<octave>3</octave>");
  EXPECT_TRUE(print > 0 && print < attributes && attributes < direction && direction < first_note &&
              first_note < backup && backup < bass_note);
  EXPECT_NE(text.indexOf("    <measure number=\"1\">\n      <print>"), -1) << "two blanks a level";
  EXPECT_NE(text.indexOf("<midi-instrument id=\"P1-I3\">"), -1);
}

TEST(XmlDocument, HandBuiltScoreValidatesAgainstTheSchema) {
  auto score = SmallScore();
  const MusicXmlValidation result = ValidateMusicXml(MusicXmlHeader() + score->to_xml(0));
  if (result.skipped) GTEST_SKIP() << result.output.toStdString();
  EXPECT_TRUE(result.valid) << result.output.toStdString();
}

TEST(XmlDocument, ValidationCatchesChildrenOutOfSchemaOrder) {
  auto score = SmallScore();
  // The numbering before the staff layout, as a careless print would put it.
  QString text = MusicXmlHeader() + score->to_xml(0);
  text.replace("<measure-numbering>none</measure-numbering>\n", "");
  text.replace("<print>\n", "<print>\n        <measure-numbering>none</measure-numbering>\n");
  const MusicXmlValidation result = ValidateMusicXml(text);
  if (result.skipped) GTEST_SKIP() << result.output.toStdString();
  EXPECT_FALSE(result.valid);
}

}  // namespace
