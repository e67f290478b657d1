#pragma once

#include <string>
#include <vector>

class LanguageStrings;

// One choice of instrument for sheet music: range (keys 0 to 87, after transposition), staves,
// transposition, General MIDI program (from 1) and, for fretted instruments, the tuning.
struct InstrumentPreset {
  enum Staffs { kTreble = 0, kBass = 1, kBoth = 2 };

  // `semitones` of written pitch above sounding pitch, split into octaves and semitones.
  InstrumentPreset(const std::string& name, int lowest_note_idx, int highest_note_idx, Staffs staffs,
                   int semitones, int midi_program);

  std::string name;  // translated
  int midi_program = 1;
  int lowest_note_idx = 0;
  int highest_note_idx = 87;
  bool treble = true;
  bool bass = true;
  int octave_shift = 0;
  int semitone_shift = 0;
  bool tablature = false;
  std::vector<int> string_keys;  // open strings, highest first
  int frets = -1;
};

// The presets in display order, with translated names; the last one, "Custom", holds the
// user's own values.
std::vector<InstrumentPreset> InstrumentPresets(const LanguageStrings& language);
