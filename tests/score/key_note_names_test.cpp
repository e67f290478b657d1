#include "score/key_note_names.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <algorithm>
#include <set>

#include "platform/preferences.h"
#include "score/midi_instrument_names.h"

namespace {

constexpr int kMiddleC = 39;

std::string Spelling(const KeyNoteNames& names, int key_idx, int fifths) {
  const NoteName& name = names.KeyName(key_idx, fifths);
  return name.name + (name.alter > 0 ? "#" : name.alter < 0 ? "b" : "");
}

TEST(KeyNoteNamesTest, NoSignatureSpelling) {
  KeyNoteNames names;
  const char* expected[] = {"A", "Bb", "B", "C", "C#", "D", "Eb", "E", "F", "F#", "G", "G#"};
  for (int pitch_class = 0; pitch_class < 12; ++pitch_class) {
    EXPECT_EQ(Spelling(names, pitch_class, 0), expected[pitch_class]);
  }
  EXPECT_EQ(names.QSimpleFullName(kMiddleC), "C4");
  EXPECT_EQ(names.QSimpleFullName(0), "A0");
  EXPECT_EQ(names.QSimpleFullName(87), "C8");
  EXPECT_EQ(names.QSimpleName(1), QString("B") + QString::fromUtf8("\u266D"));
}

TEST(KeyNoteNamesTest, SignaturesSpellBlackKeysTheirWay) {
  KeyNoteNames names;
  // G major: F sharp; all black keys sharp.
  EXPECT_EQ(Spelling(names, 9, 1), "F#");
  EXPECT_EQ(Spelling(names, 1, 1), "A#");
  EXPECT_EQ(Spelling(names, 6, 1), "D#");
  // F major: B flat; all black keys flat.
  EXPECT_EQ(Spelling(names, 1, -1), "Bb");
  EXPECT_EQ(Spelling(names, 4, -1), "Db");
  EXPECT_EQ(Spelling(names, 11, -1), "Ab");
  // F sharp major spells F as E sharp; G flat major spells B as C flat.
  EXPECT_EQ(Spelling(names, 8, 6), "E#");
  EXPECT_EQ(Spelling(names, 8, 5), "F");
  EXPECT_EQ(Spelling(names, 2, -6), "Cb");
  EXPECT_EQ(Spelling(names, 7, -7), "Fb");
  EXPECT_EQ(Spelling(names, 7, -6), "E");
}

TEST(KeyNoteNamesTest, BSharpAndCFlatCrossTheOctaveLine) {
  KeyNoteNames names;
  const int c5 = kMiddleC + 12;
  const NoteName& b_sharp = names.KeyName(c5, 7);
  EXPECT_EQ(Spelling(names, c5, 7), "B#");
  EXPECT_EQ(KeyNoteNames::Octave(c5) + b_sharp.octave_offset, 4);
  const int b4 = kMiddleC + 11;
  const NoteName& c_flat = names.KeyName(b4, -7);
  EXPECT_EQ(Spelling(names, b4, -7), "Cb");
  EXPECT_EQ(KeyNoteNames::Octave(b4) + c_flat.octave_offset, 5);
  EXPECT_EQ(names.KeyName(c5, 6).octave_offset, 0);
  EXPECT_EQ(KeyNoteNames::Octave(3), 1);
  EXPECT_EQ(KeyNoteNames::Octave(2), 0);
}

TEST(KeyNoteNamesTest, EverySignatureSpellsSevenDistinctLettersInItsScale) {
  KeyNoteNames names;
  for (int fifths = -7; fifths <= 7; ++fifths) {
    std::set<std::string> letters;
    int inside = 0;
    for (int pitch_class = 0; pitch_class < 12; ++pitch_class) {
      const NoteName& name = names.KeyName(pitch_class, fifths);
      if (name.outside_key) continue;
      ++inside;
      letters.insert(name.name);
      // Inside the scale, the alteration follows the sign of the signature.
      if (fifths > 0) {
        EXPECT_GE(name.alter, 0) << fifths;
      } else if (fifths < 0) {
        EXPECT_LE(name.alter, 0) << fifths;
      }
    }
    EXPECT_EQ(inside, 7) << fifths;
    EXPECT_EQ(letters.size(), 7u) << fifths;
  }
}

TEST(KeyNoteNamesTest, MissingPitchesAreTheBlackKeysOfCMajor) {
  KeyNoteNames names;
  std::vector<int> missing = names.MissingPitches(0);
  std::sort(missing.begin(), missing.end());
  EXPECT_EQ(missing, (std::vector<int>{1, 4, 6, 9, 11}));
  std::vector<int> a_major = names.MissingPitches(3);  // tonic A: class 0
  std::sort(a_major.begin(), a_major.end());
  EXPECT_EQ(a_major, (std::vector<int>{1, 3, 6, 8, 10}));
  EXPECT_EQ(names.MissingPitches(1000), names.MissingPitches(0));
}

TEST(KeyNoteNamesTest, ShiftedFifthsPrefersFlatSpellings) {
  KeyNoteNames names;
  EXPECT_EQ(names.ShiftedFifths(3, 0), 3);
  EXPECT_EQ(names.ShiftedFifths(0, 7), 1);    // C to G
  EXPECT_EQ(names.ShiftedFifths(0, 2), 2);    // C to D
  EXPECT_EQ(names.ShiftedFifths(0, -1), -7);  // C to B: C flat major
  EXPECT_EQ(names.ShiftedFifths(0, 6), -6);   // C to F sharp: G flat major
  EXPECT_EQ(names.ShiftedFifths(0, 1), -5);   // C to C sharp: D flat major
  EXPECT_EQ(names.ShiftedFifths(-3, 12), -3);
  EXPECT_EQ(names.ShiftedFifths(0, -14), -2);  // down a ninth to B flat
  EXPECT_EQ(names.MajorKeyFromFifths(1000), names.MajorKeyFromFifths(0));
}

TEST(KeyNoteNamesTest, UnknownSignatureFallsBackToNoAccidentals) {
  KeyNoteNames names;
  EXPECT_EQ(Spelling(names, 1, 1000), "Bb");
  EXPECT_EQ(Spelling(names, -11, 0), "Bb");  // negative keys do not index outside the table
}

TEST(KeyNoteNamesTest, DoReMiIsRebuiltFromThePreference) {
  QTemporaryDir dir;
  Preferences preferences(dir.filePath("Preferences.ini"));
  preferences.do_re_mi = true;
  KeyNoteNames names(&preferences);
  EXPECT_EQ(names.KeyName(0, 0).name, "LA");
  EXPECT_EQ(names.KeyName(10, 0).name, "SOL");
  EXPECT_EQ(names.QSimpleFullName(kMiddleC), "DO4");
  preferences.do_re_mi = false;
  names.Recompute();
  EXPECT_EQ(names.KeyName(0, 0).name, "A");
  KeyNoteNames without;  // no preferences: always letters
  EXPECT_FALSE(without.DoReMi());
}

TEST(MidiInstrumentNamesTest, HasTheWholeProgramList) {
  const auto& names = MidiInstrumentNames();
  ASSERT_EQ(names.size(), 128u);
  EXPECT_EQ(names[6], "Harpsichord");
  EXPECT_EQ(names[40], "Violin");
  EXPECT_EQ(names[43], "Contrabass");
  EXPECT_EQ(names[46], "Orchestral Harp");
  EXPECT_EQ(names[31], "Guitar harmonics");
  EXPECT_EQ(names[120], "Guitar Fret Noise");
}

}  // namespace
