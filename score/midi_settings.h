#pragma once

#include "score/common_settings.h"

class Preferences;

// How a job's notes become a Standard MIDI File.
struct MidiSettings : CommonSettings {
  int midi_instrument = 1;
  int midi_tempo = 1;
  bool midi_use_rounded_timing = false;
  bool midi_use_constant_midi_volume = false;
  int midi_constant_volume = 64;

  static MidiSettings FromPreferences(const Preferences& preferences);

  bool operator==(const MidiSettings& other) const {
    return CommonSettings::operator==(other) && midi_instrument == other.midi_instrument &&
           midi_tempo == other.midi_tempo && midi_use_rounded_timing == other.midi_use_rounded_timing &&
           midi_use_constant_midi_volume == other.midi_use_constant_midi_volume &&
           midi_constant_volume == other.midi_constant_volume;
  }
  bool operator!=(const MidiSettings& other) const { return !(*this == other); }
};
