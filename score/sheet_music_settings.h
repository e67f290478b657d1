#pragma once

#include <map>
#include <string>
#include <vector>

#include "score/common_settings.h"

class Preferences;

// How a job's notes become sheet music.
struct SheetMusicSettings : CommonSettings {
  int midi_program = 1;
  std::string instrument = "Piano";
  int treble_clef_start_key_idx = 39;  // lowest key written on the treble staff
  bool assign_clef_by_track = false;
  std::map<int, int> track_clefs;  // note group -> clef
  int smallest_notes_per_quarter = 4;
  bool tablature = false;
  std::vector<int> string_keys;  // open-string keys of a tablature staff
  int frets = -1;                // -1: unset

  static SheetMusicSettings FromPreferences(const Preferences& preferences);

  bool operator==(const SheetMusicSettings& other) const {
    return CommonSettings::operator==(other) && midi_program == other.midi_program &&
           instrument == other.instrument && treble_clef_start_key_idx == other.treble_clef_start_key_idx &&
           assign_clef_by_track == other.assign_clef_by_track && track_clefs == other.track_clefs &&
           smallest_notes_per_quarter == other.smallest_notes_per_quarter && tablature == other.tablature &&
           string_keys == other.string_keys && frets == other.frets;
  }
  bool operator!=(const SheetMusicSettings& other) const { return !(*this == other); }
};
