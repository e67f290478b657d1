#pragma once

// The export settings that sheet music and MIDI share.
struct CommonSettings {
  int octave_shift = 0;
  int semitone_shift = 0;
  int lowest_note_idx = 0;
  int highest_note_idx = 87;
  bool remove_notes_outside_range = false;

  // Semitones that every written note moves.
  int PitchShift() const { return 12 * octave_shift + semitone_shift; }

  bool operator==(const CommonSettings& other) const {
    return octave_shift == other.octave_shift && semitone_shift == other.semitone_shift &&
           lowest_note_idx == other.lowest_note_idx && highest_note_idx == other.highest_note_idx &&
           remove_notes_outside_range == other.remove_notes_outside_range;
  }
  bool operator!=(const CommonSettings& other) const { return !(*this == other); }
};
