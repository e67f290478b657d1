#include "score/instrument_preset.h"

#include "platform/language_strings.h"

InstrumentPreset::InstrumentPreset(const std::string& name_, int lowest_note_idx_, int highest_note_idx_,
                                   Staffs staffs, int semitones, int midi_program_)
    : name(name_),
      midi_program(midi_program_),
      lowest_note_idx(lowest_note_idx_),
      highest_note_idx(highest_note_idx_),
      treble(staffs == kTreble || staffs == kBoth),
      bass(staffs == kBass || staffs == kBoth),
      octave_shift(semitones / 12),
      semitone_shift(semitones % 12) {}

namespace {

InstrumentPreset Fretted(InstrumentPreset preset, int frets, std::vector<int> string_keys) {
  preset.tablature = true;
  preset.frets = frets;
  preset.string_keys = std::move(string_keys);
  return preset;
}

}  // namespace

std::vector<InstrumentPreset> InstrumentPresets(const LanguageStrings& l) {
  using P = InstrumentPreset;
  return {
      P(l.INSTRUMENT_PIANO, 0, 87, P::kBoth, 0, 1),
      // The guitar sounds an octave below its written pitch: the low open string, key 19, is written at 31.
      Fretted(P(l.INSTRUMENT_GUITAR, 31, 74, P::kTreble, 12, 25), 19, {43, 38, 34, 29, 24, 19}),
      Fretted(P(l.INSTRUMENT_BASS_GUITAR, 19, 58, P::kBass, 12, 33), 24, {22, 17, 12, 7}),
      P(l.INSTRUMENT_RECORDER_SOPRANO, 51, 77, P::kTreble, -12, 75),
      P(l.INSTRUMENT_VIOLIN, 34, 84, P::kTreble, 0, 41),
      P(l.INSTRUMENT_CELLO, 15, 63, P::kBass, 0, 43),
      P(l.INSTRUMENT_DOUBLE_BASS, 15, 51, P::kBass, 12, 44),
      P(l.INSTRUMENT_HARP, 3, 82, P::kBoth, 0, 47),
      P(l.INSTRUMENT_SOPRANO_SAX, 37, 68, P::kTreble, 2, 65),
      P(l.INSTRUMENT_ALTO_SAX, 37, 68, P::kTreble, 9, 66),
      P(l.INSTRUMENT_TENOR_SAX, 37, 68, P::kTreble, 14, 67),
      P(l.INSTRUMENT_BARI_SAX, 37, 68, P::kTreble, 21, 68),
      P(l.INSTRUMENT_FLUTE, 39, 75, P::kTreble, 0, 74),
      P(l.INSTRUMENT_ALTO_FLUTE, 39, 75, P::kTreble, 5, 74),
      P(l.INSTRUMENT_PICCOLO, 41, 75, P::kTreble, -12, 73),
      P(l.INSTRUMENT_B_FLAT_CLARINET, 31, 74, P::kTreble, 2, 72),
      P(l.INSTRUMENT_A_CLARINET, 31, 74, P::kTreble, 3, 72),
      P(l.INSTRUMENT_ALTO_CLARINET, 30, 70, P::kTreble, 9, 72),
      P(l.INSTRUMENT_BASS_CLARINET, 30, 70, P::kTreble, 14, 72),
      P(l.INSTRUMENT_OBOE, 30, 70, P::kTreble, 0, 69),
      P(l.INSTRUMENT_OBOE_DAMORE, 30, 67, P::kTreble, 3, 69),
      P(l.INSTRUMENT_ENGLISH_HORN, 38, 68, P::kTreble, 7, 70),
      P(l.INSTRUMENT_BASSOON, 13, 54, P::kBass, 0, 71),
      P(l.INSTRUMENT_TRUMPET, 33, 70, P::kTreble, 2, 57),
      P(l.INSTRUMENT_FRENCH_HORN, 27, 70, P::kTreble, 7, 61),
      P(l.INSTRUMENT_TENOR_TROMBONE, 19, 52, P::kBass, 0, 58),
      // Both ukuleles are tuned re-entrant: the fourth string lies above the third.
      Fretted(P(l.INSTRUMENT_SOPRANO_UKULELE, 39, 60, P::kTreble, 0, 25), 15, {48, 43, 39, 46}),
      Fretted(P(l.INSTRUMENT_CONCERT_UKULELE, 39, 63, P::kTreble, 0, 25), 18, {48, 43, 39, 46}),
      P(l.CUSTOM, 37, 72, P::kBoth, 0, 1),
  };
}
