#pragma once

#include <QObject>
#include <QString>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/constants.h"
#include "platform/thread_signal.h"
#include "score/beat.h"
#include "score/beats_analyzer.h"
#include "score/cli_modifiers.h"
#include "score/midi_settings.h"
#include "score/note_data.h"
#include "score/sheet_music_settings.h"
#include "score/spectrogram.h"

class LanguageStrings;
class Preferences;

// What the input file is, judged by its name alone.
enum InputType { kInputAudio = 0, kInputTmpj = 1, kInputMidi = 2, kInputMusicXml = 3 };

// The output that SetDestinationFilename sets.
enum FileFormat { kFormatMusicXml = 0, kFormatPdf = 1, kFormatMidi = 2, kFormatTmpj = 3, kFormatCsv = 4 };

// Everything known about one song, from the file name to the notes and the edit history.
// Made only by JobManager::NewJob and always held by shared pointer. There is no lock:
// until FinishedJob only the worker writes the stage fields, after it only the main thread.
class TranscriptionJob : public QObject {
  Q_OBJECT

 public:
  TranscriptionJob(const LanguageStrings& language, Preferences* preferences);

  // Sets `cancelled` and `locked` and emits Cancelled, once; later calls do nothing.
  static void Cancel(std::shared_ptr<TranscriptionJob> self);
  void LockJob() { locked = true; }
  bool NoteEditingAllowed() const { return !locked && display_ready; }
  void SetHasUnsavedChanges(bool unsaved, bool update_save_point);
  void SetDestinationFilename(int format, const QString& filename);
  // The non-empty output names, in save order.
  std::vector<QString> SaveFilenames() const;

  bool IsMidiInput() const;
  bool IsTmpjInput() const;
  static int GetInputType(const QString& filename);

  // Changes the grid of the notes (raised to what the time signatures need) and keeps the
  // sheet music settings in step; returns the value in force.
  int SetSmallestNotesPerQuarter(int value);
  // All notes (false), then all candidates (true): the order of the project file.
  std::vector<std::pair<Note, bool>> GetNotesCandidates();

  // Context.
  const LanguageStrings& language;

  // Run options.
  bool find_notes = true;
  bool process_whole_file = true;  // ignore start_time and end_time
  bool get_audio_length = false;
  bool quit_when_done = false;
  double freqs_per_note = Constants::kNeuralNetFrequenciesPerNote;
  int time_step = Constants::kNeuralNetTimeStepMs;  // ms between spectrogram columns
  double start_time = 0.0;                          // seconds
  double end_time = 0.0;                            // seconds
  int thread_count = 1;
  int job_id = 0;
  bool tmpj_compact = false;
  bool tmpj_mono_audio = false;
  std::string created_version = Constants::sw_version.ToStdString();

  CliModifiers cli_modifiers;

  // Lifecycle flags, in the order a normal run sets them.
  bool audio_ready = false;
  bool spectrogram_ready = false;
  bool beats_ready = false;
  bool notes_ready = false;
  bool display_ready = false;
  bool job_complete = false;

  // Input and outputs.
  QString input_filename;
  int input_type = kInputAudio;
  QString musicxml_filename;
  QString tmpj_filename;
  QString midi_filename;
  QString spectrogram_filename;
  QString pdf_filename;
  QString notes_csv_filename;
  QString training_spectrogram_filename;
  QString extra_spectrogram_filename;
  QString log_tag;
  double start_msecs = 0.0;
  double end_msecs = 0.0;
  QString title;
  QString audio_filename;
  QString display_title;

  // Audio.
  std::vector<int16_t> audio_data;  // interleaved, after the region cut
  std::vector<float> mono_data;     // channel mean on the 16-bit scale
  std::vector<uint8_t> encoded_audio;
  double sample_rate = 0.0;
  double audio_length = 0.0;  // seconds
  int audio_frames = 0;
  int selected_note_index = -1;
  int channels = 0;

  // Music data.
  std::vector<Beat> beats;  // ordered by time; the last beat is the end-of-song sentinel
  BeatsAnalyzer beats_analyzer{this};  // measures of `beats`; call Set() after replacing them
  Spectrogram preview_spectrogram;                // low-Q grid that the Q-map is drawn from
  Spectrogram q_map;                              // Q per band and 0.1 s, shown as "Q-map"
  std::vector<Spectrogram> channel_spectrograms;  // one grid per channel, laid out only
  Spectrogram display_spectrogram;                // the main grid: shown, saved, read by the note network
  std::vector<Spectrogram*> spectrogram_list;     // the grids on offer for display
  double amplitude_scale = 1.0;
  int export_format = kFormatMusicXml;
  SheetMusicSettings sheet_music_settings;
  MidiSettings midi_settings;
  std::vector<int> note_windows;
  NoteData notes{this};
  Preferences* preferences = nullptr;

  // Coordination.
  ThreadSignal thread_signal;
  bool locked = false;
  bool has_unsaved_changes = false;
  bool cancelled = false;

 signals:
  void Cancelled(std::shared_ptr<TranscriptionJob> job);
  void NewHasUnsavedChanges();
};

Q_DECLARE_METATYPE(std::shared_ptr<TranscriptionJob>)
