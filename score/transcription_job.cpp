#include "score/transcription_job.h"

#include "platform/language_strings.h"

TranscriptionJob::TranscriptionJob(const LanguageStrings& language_, Preferences* preferences_)
    : language(language_), preferences(preferences_) {
  sheet_music_settings.smallest_notes_per_quarter = notes.SmallestNotesPerQuarter();
}

int TranscriptionJob::SetSmallestNotesPerQuarter(int value) {
  sheet_music_settings.smallest_notes_per_quarter = notes.SetSmallestNotesPerQuarter(value);
  return sheet_music_settings.smallest_notes_per_quarter;
}

std::vector<std::pair<Note, bool>> TranscriptionJob::GetNotesCandidates() {
  std::lock_guard<std::recursive_mutex> guard(notes.lock);
  const std::vector<Note>& accepted = notes.GetNotes();
  const std::vector<Note>& candidates = notes.GetCandidates();
  std::vector<std::pair<Note, bool>> all;
  all.reserve(accepted.size() + candidates.size());
  for (const Note& note : accepted) all.emplace_back(note, false);
  for (const Note& candidate : candidates) all.emplace_back(candidate, true);
  return all;
}

void TranscriptionJob::Cancel(std::shared_ptr<TranscriptionJob> self) {
  if (!self || self->cancelled) return;
  self->cancelled = true;
  self->locked = true;
  emit self->Cancelled(self);
}

void TranscriptionJob::SetHasUnsavedChanges(bool unsaved, bool update_save_point) {
  has_unsaved_changes = unsaved;
  (void)update_save_point;
  emit NewHasUnsavedChanges();
}

void TranscriptionJob::SetDestinationFilename(int format, const QString& filename) {
  switch (format) {
    case kFormatMusicXml: musicxml_filename = filename; break;
    case kFormatPdf: pdf_filename = filename; break;
    case kFormatMidi: midi_filename = filename; break;
    case kFormatTmpj: tmpj_filename = filename; break;
    case kFormatCsv: spectrogram_filename = filename; break;
    default: break;
  }
}

std::vector<QString> TranscriptionJob::SaveFilenames() const {
  std::vector<QString> names;
  for (const QString* name : {&musicxml_filename, &tmpj_filename, &midi_filename, &spectrogram_filename,
                              &pdf_filename, &notes_csv_filename, &training_spectrogram_filename,
                              &extra_spectrogram_filename}) {
    if (!name->isEmpty()) names.push_back(*name);
  }
  return names;
}

bool TranscriptionJob::IsMidiInput() const {
  const QString name = input_filename.toLower();
  return name.endsWith(".mid") || name.endsWith(".midi");
}

bool TranscriptionJob::IsTmpjInput() const { return input_filename.toLower().endsWith(".tmpj"); }

int TranscriptionJob::GetInputType(const QString& filename) {
  const QString name = filename.toLower();
  if (name.endsWith(".tmpj")) return kInputTmpj;
  if (name.endsWith(".xml") || name.endsWith(".musicxml")) return kInputMusicXml;
  if (name.endsWith(".mid") || name.endsWith(".midi")) return kInputMidi;
  return kInputAudio;
}
