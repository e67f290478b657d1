#include "platform/preferences.h"

#include <QAction>
#include <QDir>
#include <QFileInfo>
#include <QKeySequence>
#include <QThread>


namespace {

bool Exists(const QString& path) { return !path.isEmpty() && QFileInfo::exists(path); }

// Reads and writes every stored key in file order. `Visit` is called with the key, the
// field and its default; a reader loads, a writer stores.
template <typename Visitor>
void VisitKeys(Preferences& p, Visitor&& visit) {
  const QString home = QDir::homePath();
  visit("default_song_folder", p.default_song_folder, home);
  visit("default_save_folder", p.default_save_folder, home);
  visit("default_export_folder", p.default_export_folder, home);
  visit("external_viewer_path", p.external_viewer_path, p.muse_score_path);
  visit("use_internal_viewer", p.use_internal_viewer, !Exists(p.external_viewer_path));
  visit("use_local_browser", p.use_local_browser, false);
  visit("check_for_updates_on_open", p.check_for_updates_on_open, true);
  visit("open_sheet_music_after_processing", p.open_sheet_music_after_processing, true);
  visit("send_usage_information", p.send_usage_information, true);
  visit("thread_count", p.thread_count, QThread::idealThreadCount());
  visit("octave_shift", p.octave_shift, 0);
  visit("semitone_shift", p.semitone_shift, 0);
  visit("lowest_note_idx", p.lowest_note_idx, 0);
  visit("highest_note_idx", p.highest_note_idx, 87);
  visit("remove_notes_outside_range", p.remove_notes_outside_range, false);
  visit("instrument", p.instrument, QString("Piano"));
  visit("midi_program", p.midi_program, 1);
  visit("treble_clef_start_key_idx", p.treble_clef_start_key_idx, 39);
  visit("assign_clef_by_track", p.assign_clef_by_track, false);
  visit("tablature", p.tablature, false);
  visit("frets", p.frets, -1);
  visit("string_keys", p.string_keys, QList<int>());
  visit("smallest_notes_per_quarter", p.smallest_notes_per_quarter, 4);
  visit("export_format_enum", p.export_format_enum, 0);
  visit("midi_octave_shift", p.midi_octave_shift, 0);
  visit("midi_semitone_shift", p.midi_semitone_shift, 0);
  visit("midi_lowest_note_idx", p.midi_lowest_note_idx, 0);
  visit("midi_highest_note_idx", p.midi_highest_note_idx, 87);
  visit("midi_remove_notes_outside_range", p.midi_remove_notes_outside_range, false);
  visit("midi_instrument", p.midi_instrument, 0);
  visit("midi_tempo", p.midi_tempo, 1);
  visit("midi_use_rounded_timing", p.midi_use_rounded_timing, false);
  visit("midi_use_constant_midi_volume", p.midi_use_constant_midi_volume, false);
  visit("midi_constant_volume", p.midi_constant_volume, 64);
  visit("language_string", p.language_string, p.language_string);
  visit("show_note_lines", p.show_note_lines, true);
  visit("show_measure_lines", p.show_measure_lines, true);
  visit("color_map_idx", p.color_map_idx, 0);
  visit("mouse_harmonic_lines", p.mouse_harmonic_lines, false);
  visit("time_vertical", p.time_vertical, false);
  visit("volume", p.volume, 75);
  visit("show_keyboard", p.show_keyboard, true);
  visit("show_timeline", p.show_timeline, true);
  visit("show_notes", p.show_notes, true);
  visit("mainWindowGeometry", p.mainWindowGeometry, QByteArray());
  visit("mainWindowState", p.mainWindowState, QByteArray());
  visit("viewer_geometry", p.viewer_geometry, QByteArray());
  visit("shortcuts_window_geometry", p.shortcuts_window_geometry, QByteArray());
  visit("show_candidates", p.show_candidates, false);
  visit("show_spectrogram", p.show_spectrogram, true);
  visit("spectrogram_opacity", p.spectrogram_opacity, 35);
  visit("note_volume", p.note_volume, 75);
  visit("playback_type", p.playback_type, 0);
  visit("vertical_zoom", p.vertical_zoom, 35);
  visit("horizontal_zoom", p.horizontal_zoom, 0);
  visit("startup_tips_shown", p.startup_tips_shown, 0);
  visit("recent_files", p.recent_files, QStringList());
  visit("ui_scale_factor", p.ui_scale_factor, 1.0);
  visit("initialized_scale_factor", p.initialized_scale_factor, false);
  visit("playback_line_offset", p.playback_line_offset, 0.0);
  visit("show_playback_line", p.show_playback_line, true);
  visit("do_re_mi", p.do_re_mi, false);
  visit("dynamic_note_threshold", p.dynamic_note_threshold, false);
  visit("show_advanced_save_options", p.show_advanced_save_options, false);
}

struct Reader {
  QSettings& settings;
  void operator()(const char* key, QString& field, const QString& def) {
    field = settings.value(key, def).toString();
  }
  void operator()(const char* key, bool& field, bool def) { field = settings.value(key, def).toBool(); }
  void operator()(const char* key, int& field, int def) {
    // The fret count has only ever been stored as a flag.
    if (qstrcmp(key, "frets") == 0) {
      field = settings.value(key, def).toBool() ? 1 : 0;
      return;
    }
    bool ok = false;
    const int value = settings.value(key, def).toInt(&ok);
    field = ok ? value : def;
  }
  void operator()(const char* key, double& field, double def) {
    bool ok = false;
    const double value = settings.value(key, def).toDouble(&ok);
    field = ok ? value : def;
  }
  void operator()(const char* key, QByteArray& field, const QByteArray& def) {
    field = settings.value(key, def).toByteArray();
  }
  void operator()(const char* key, QStringList& field, const QStringList& def) {
    field = settings.value(key, def).toStringList();
  }
  void operator()(const char* key, QList<int>& field, const QList<int>& def) {
    // Stored as a list of numbers; anything else reads as empty.
    field.clear();
    const QVariant value = settings.value(key);
    if (!value.isValid()) {
      field = def;
      return;
    }
    for (const QVariant& item : value.toList()) {
      bool ok = false;
      const int key_idx = item.toInt(&ok);
      if (ok) field.append(key_idx);
    }
  }
};

struct Writer {
  QSettings& settings;
  template <typename T, typename D>
  void operator()(const char* key, const T& field, const D&) {
    settings.setValue(key, field);
  }
  void operator()(const char* key, const QList<int>& field, const QList<int>&) {
    QVariantList list;
    for (int value : field) list.append(value);
    settings.setValue(key, list);
  }
};

}  // namespace

Preferences::Preferences(const QString& preferences_file_, const QString& default_language)
    : preferences_file(preferences_file_), language_string(default_language) {
  std::unique_ptr<QSettings> settings = Settings();
  muse_score_path = settings->value("muse_score_path", QString()).toString();
  if (!Exists(muse_score_path) && QFileInfo::exists("/Applications/MuseScore 2.app"))
    muse_score_path = "/Applications/MuseScore 2.app";
  VisitKeys(*this, Reader{*settings});

  // The two ways of showing sheet music exclude each other; the browser wins.
  if (use_internal_viewer && use_local_browser) use_internal_viewer = false;
  if (!Exists(external_viewer_path) && !muse_score_path.isEmpty()) external_viewer_path = muse_score_path;
}

std::unique_ptr<QSettings> Preferences::Settings() const {
  return std::make_unique<QSettings>(preferences_file, QSettings::IniFormat);
}

QString Preferences::ActionKey(const QAction* action) { return action->iconText(); }

void Preferences::LoadShortcuts(std::vector<QAction*>* actions) {
  if (!actions) return;
  std::unique_ptr<QSettings> settings = Settings();
  for (QAction* action : *actions) {
    const QString current = action->shortcut().toString(QKeySequence::PortableText);
    const QString value = settings->value(ActionKey(action), current).toString();
    action->setShortcut(QKeySequence(value, QKeySequence::NativeText));
  }
}

void Preferences::Save(std::vector<QAction*>* actions) {
  std::unique_ptr<QSettings> settings = Settings();
  VisitKeys(*this, Writer{*settings});
  if (actions) {
    for (QAction* action : *actions)
      settings->setValue(ActionKey(action), action->shortcut().toString(QKeySequence::PortableText));
  }
  settings->sync();
}
