#include "score/cli_modifiers.h"

#include "score/transcription_job.h"

void CliModifiers::Set(TranscriptionJob* job) const {
  SheetMusicSettings& settings = job->sheet_music_settings;
  for (int key : lowest_keys) settings.lowest_note_idx = key;
  for (int key : highest_keys) settings.highest_note_idx = key;
  for (bool remove : remove_outside) settings.remove_notes_outside_range = remove;
  for (int key : treble_clef_start_keys) settings.treble_clef_start_key_idx = key;
}
