// Copies of the export settings out of the preferences, made for each new job.
#include "platform/preferences.h"
#include "score/midi_settings.h"
#include "score/sheet_music_settings.h"

SheetMusicSettings SheetMusicSettings::FromPreferences(const Preferences& p) {
  SheetMusicSettings s;
  s.octave_shift = p.octave_shift;
  s.semitone_shift = p.semitone_shift;
  s.lowest_note_idx = p.lowest_note_idx;
  s.highest_note_idx = p.highest_note_idx;
  s.remove_notes_outside_range = p.remove_notes_outside_range;
  s.midi_program = p.midi_program;
  s.instrument = p.instrument.toStdString();
  s.treble_clef_start_key_idx = p.treble_clef_start_key_idx;
  s.assign_clef_by_track = p.assign_clef_by_track;
  s.smallest_notes_per_quarter = p.smallest_notes_per_quarter;
  s.tablature = p.tablature;
  s.string_keys.assign(p.string_keys.begin(), p.string_keys.end());
  s.frets = p.frets;
  return s;
}

MidiSettings MidiSettings::FromPreferences(const Preferences& p) {
  MidiSettings s;
  s.octave_shift = p.midi_octave_shift;
  s.semitone_shift = p.midi_semitone_shift;
  s.lowest_note_idx = p.midi_lowest_note_idx;
  s.highest_note_idx = p.midi_highest_note_idx;
  s.remove_notes_outside_range = p.midi_remove_notes_outside_range;
  s.midi_instrument = p.midi_instrument;
  s.midi_tempo = p.midi_tempo;
  s.midi_use_rounded_timing = p.midi_use_rounded_timing;
  s.midi_use_constant_midi_volume = p.midi_use_constant_midi_volume;
  s.midi_constant_volume = p.midi_constant_volume;
  return s;
}
