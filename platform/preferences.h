#pragma once

#include <QByteArray>
#include <QList>
#include <QSettings>
#include <QString>
#include <QStringList>
#include <memory>
#include <vector>

class QAction;

// All persistent user settings, read from Preferences.ini (INI format) when constructed
// and written by Save. Written on the main thread only; the worker reads fields that do
// not change while a job runs.
class Preferences {
 public:
  Preferences(const QString& preferences_file, const QString& default_language = QString());

  // A new settings object on the preferences file, owned by the caller.
  std::unique_ptr<QSettings> Settings() const;
  void LoadShortcuts(std::vector<QAction*>* actions);
  void Save(std::vector<QAction*>* actions = nullptr);
  // The key under which an action's shortcut is stored: its icon text.
  static QString ActionKey(const QAction* action);

  QString preferences_file;

  QString muse_score_path;
  QString default_song_folder;
  QString default_save_folder;
  QString default_export_folder;
  QString external_viewer_path;
  bool use_internal_viewer = true;
  bool use_local_browser = false;
  bool check_for_updates_on_open = true;
  bool open_sheet_music_after_processing = true;
  bool send_usage_information = true;
  int thread_count = 1;
  int octave_shift = 0;
  int semitone_shift = 0;
  int lowest_note_idx = 0;
  int highest_note_idx = 87;
  bool remove_notes_outside_range = false;
  QString instrument = "Piano";
  int midi_program = 1;
  int treble_clef_start_key_idx = 39;
  bool assign_clef_by_track = false;
  bool tablature = false;
  int frets = 1;  // read as a flag: 1 on a first run, 0 or 1 after
  QList<int> string_keys;
  int smallest_notes_per_quarter = 4;
  int export_format_enum = 0;
  int midi_octave_shift = 0;
  int midi_semitone_shift = 0;
  int midi_lowest_note_idx = 0;
  int midi_highest_note_idx = 87;
  bool midi_remove_notes_outside_range = false;
  int midi_instrument = 0;
  int midi_tempo = 1;
  bool midi_use_rounded_timing = false;
  bool midi_use_constant_midi_volume = false;
  int midi_constant_volume = 64;
  QString language_string;
  bool show_note_lines = true;
  bool show_measure_lines = true;
  int color_map_idx = 0;
  bool mouse_harmonic_lines = false;
  bool time_vertical = false;
  int volume = 75;
  bool show_keyboard = true;
  bool show_timeline = true;
  bool show_notes = true;
  QByteArray mainWindowGeometry;
  QByteArray mainWindowState;
  QByteArray viewer_geometry;
  QByteArray shortcuts_window_geometry;
  bool show_candidates = false;
  bool show_spectrogram = true;
  int spectrogram_opacity = 35;
  int note_volume = 75;
  int playback_type = 0;
  int vertical_zoom = 35;
  int horizontal_zoom = 0;
  int startup_tips_shown = 0;
  QStringList recent_files;
  double ui_scale_factor = 1.0;
  bool initialized_scale_factor = false;
  double playback_line_offset = 0.0;
  bool show_playback_line = true;
  bool do_re_mi = false;
  bool dynamic_note_threshold = false;
  bool show_advanced_save_options = false;
};
