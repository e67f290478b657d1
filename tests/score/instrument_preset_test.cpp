#include "score/instrument_preset.h"

#include <gtest/gtest.h>

#include <QDir>
#include <algorithm>

#include "platform/language_strings.h"

namespace {

class InstrumentPresetTest : public ::testing::Test {
 protected:
  InstrumentPresetTest()
      : language_(QDir(TONEMILL_SOURCE_DIR "/resources/TM_resources/languages"), "English"),
        presets_(InstrumentPresets(language_)) {}

  const InstrumentPreset& Named(const std::string& name) {
    auto it = std::find_if(presets_.begin(), presets_.end(),
                           [&](const InstrumentPreset& preset) { return preset.name == name; });
    EXPECT_NE(it, presets_.end()) << name;
    return *it;
  }

  LanguageStrings language_;
  std::vector<InstrumentPreset> presets_;
};

TEST_F(InstrumentPresetTest, ListRunsFromPianoToCustomWithTranslatedNames) {
  ASSERT_EQ(presets_.size(), 29u);
  EXPECT_EQ(presets_.front().name, language_.INSTRUMENT_PIANO);
  EXPECT_FALSE(presets_.front().name.empty());
  EXPECT_EQ(presets_.back().name, language_.CUSTOM);
  EXPECT_EQ(presets_.back().lowest_note_idx, 37);
  EXPECT_EQ(presets_.back().highest_note_idx, 72);
  for (const InstrumentPreset& preset : presets_) {
    EXPECT_LE(0, preset.lowest_note_idx) << preset.name;
    EXPECT_LT(preset.lowest_note_idx, preset.highest_note_idx) << preset.name;
    EXPECT_LE(preset.highest_note_idx, 87) << preset.name;
    EXPECT_TRUE(preset.treble || preset.bass) << preset.name;
    EXPECT_GE(preset.midi_program, 1);
    EXPECT_LE(preset.midi_program, 128);
    EXPECT_EQ(preset.tablature, !preset.string_keys.empty()) << preset.name;
  }
}

TEST_F(InstrumentPresetTest, ConstructorSplitsStavesAndTransposition) {
  InstrumentPreset both("x", 0, 87, InstrumentPreset::kBoth, 21, 1);
  EXPECT_TRUE(both.treble && both.bass);
  EXPECT_EQ(both.octave_shift, 1);
  EXPECT_EQ(both.semitone_shift, 9);
  InstrumentPreset bass("x", 0, 87, InstrumentPreset::kBass, -12, 1);
  EXPECT_TRUE(!bass.treble && bass.bass);
  EXPECT_EQ(bass.octave_shift, -1);
  EXPECT_EQ(bass.semitone_shift, 0);
  EXPECT_FALSE(bass.tablature);
  EXPECT_EQ(bass.frets, -1);

  const InstrumentPreset& alto = Named(language_.INSTRUMENT_ALTO_SAX);
  EXPECT_EQ(alto.midi_program, 66);
  EXPECT_EQ(alto.semitone_shift, 9);
  EXPECT_TRUE(alto.treble && !alto.bass);
  const InstrumentPreset& piccolo = Named(language_.INSTRUMENT_PICCOLO);
  EXPECT_EQ(piccolo.octave_shift, -1);
  EXPECT_EQ(Named(language_.INSTRUMENT_CELLO).bass, true);
}

TEST_F(InstrumentPresetTest, FrettedRangesStartAtTheLowestOpenStringAsWritten) {
  const InstrumentPreset& guitar = Named(language_.INSTRUMENT_GUITAR);
  EXPECT_EQ(guitar.frets, 19);
  EXPECT_EQ(guitar.string_keys, (std::vector<int>{43, 38, 34, 29, 24, 19}));
  EXPECT_EQ(guitar.octave_shift, 1);
  for (const InstrumentPreset& preset : presets_) {
    if (!preset.tablature) continue;
    const int lowest_string = *std::min_element(preset.string_keys.begin(), preset.string_keys.end());
    EXPECT_EQ(lowest_string + 12 * preset.octave_shift + preset.semitone_shift, preset.lowest_note_idx)
        << preset.name;
  }
  // The ukuleles' fourth string lies above their third.
  for (const std::string& name :
       {language_.INSTRUMENT_SOPRANO_UKULELE, language_.INSTRUMENT_CONCERT_UKULELE}) {
    const InstrumentPreset& ukulele = Named(name);
    ASSERT_EQ(ukulele.string_keys.size(), 4u);
    EXPECT_GT(ukulele.string_keys[3], ukulele.string_keys[2]);
  }
  EXPECT_EQ(Named(language_.INSTRUMENT_BASS_GUITAR).string_keys, (std::vector<int>{22, 17, 12, 7}));
}

}  // namespace
