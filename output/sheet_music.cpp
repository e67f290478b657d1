#include "output/sheet_music.h"

#include <QFile>
#include <algorithm>
#include <cmath>
#include <mutex>

#include "output/note_copies.h"
#include "output/string_fret_data.h"
#include "platform/file_names.h"
#include "platform/language_strings.h"
#include "score/beats_analyzer.h"
#include "score/note_sort.h"
#include "score/transcription_job.h"

namespace {

const QString kClefSigns[] = {"G", "F", "TAB"};
const int kClefLines[] = {2, 4, 5};

}  // namespace

SheetMusic::SheetMusic(std::shared_ptr<TranscriptionJob> job_)
    : note_data(job_.get()), key_names(nullptr), job(std::move(job_)) {}

QString SheetMusic::Header() {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!DOCTYPE score-partwise PUBLIC \"-//Recordare//DTD MusicXML 3.0 Partwise//EN\" "
         "\"http://www.musicxml.org/dtds/partwise.dtd\">\n";
}

bool SheetMusic::SaveSheetMusic(QString path) {
  if (path.isEmpty()) path = job->musicxml_filename;
  if (path.isEmpty()) return false;
  EnsureFoldersExist({path});
  const bool written = WriteFile(path, DocumentText());
  if (!written) emit Message(job->language.FILE_WRITE_FAILED + path.toStdString(), false);
  score.reset();
  return written;
}

QString SheetMusic::DocumentText() {
  GetScore();
  // The only escaping of the document: titles and names may hold "&".
  return Header() + score->to_xml(0).replace("&", "&amp;");
}

bool SheetMusic::WriteFile(const QString& path, const QString& text) {
  QFile file(path);
  if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) return false;
  const QByteArray bytes = text.toUtf8();
  return file.write(bytes) == bytes.size() && file.flush();
}

int SheetMusic::TicksPerQuarter() const {
  return note_data.SmallestNotesPerQuarter() * note_data.positions_per_step;
}

void SheetMusic::FillNoteTypes() {
  struct Value {
    const char* name;
    double quarters;
    bool dotted;
  };
  // Greedy breakdown follows this order: the plain 16th comes before the dotted one, so 3/8 of
  // a quarter is written as a 16th and a 32nd.
  static const Value kValues[] = {
      {"whole", 4.0, false},      {"half", 3.0, true},        {"half", 2.0, false},
      {"quarter", 1.5, true},     {"quarter", 1.0, false},    {"eighth", 0.75, true},
      {"eighth", 0.5, false},     {"16th", 0.25, false},      {"16th", 0.375, true},
      {"32nd", 0.1875, true},     {"32nd", 0.125, false},     {"64th", 0.09375, true},
      {"64th", 0.0625, false},    {"128th", 0.046875, true},  {"128th", 0.03125, false},
      {"256th", 0.0234375, true}, {"256th", 0.015625, false},
  };
  note_types.clear();
  for (const Value& value : kValues) {
    note_types.push_back({value.name, value.quarters, static_cast<int>(divisions * value.quarters + 0.5),
                          value.dotted, false});
  }
  triplet_note_types.clear();
  for (double quarters : {1.0 / 3.0, 2.0 / 3.0}) {
    triplet_note_types.push_back({quarters < 0.5 ? "eighth" : "quarter", quarters,
                                  static_cast<int>(divisions * quarters + 0.5), false, true});
  }
}

void SheetMusic::GetScore() {
  note_data.ClearPermanent();
  note_data.SetSmallestNotesPerQuarter(job->sheet_music_settings.smallest_notes_per_quarter);
  note_data.SetNotesCandidatesPermanent({}, CopyNotesWithOwnTriplets(job->notes));
  note_data.RemoveDuplicatesPermanent();
  divisions = TicksPerQuarter();
  beamer.SetQuarterNoteFrames(divisions);
  FillNoteTypes();
  measures_by_clef.clear();
  staff_numbers.clear();

  score = std::make_shared<xml::ScorePartwise>();
  score->work.work_title = job->title;
  ScorePart();
  xml::Part* part = score->AddPart(part_id);
  if (job->cancelled) return;
  SetStaffNumbers();
  note_data.TransposeAndFilterNotesPermanent(job->sheet_music_settings);
  GetMeasures(part);
}

void SheetMusic::ScorePart() {
  const SheetMusicSettings& settings = job->sheet_music_settings;
  const QString instrument = QString::fromStdString(settings.instrument);
  xml::ScorePart* part = score->part_list.AddScorePart(part_id, "P1-I3");
  const bool custom = settings.instrument == "Custom" || settings.instrument == job->language.CUSTOM;
  part->part_name = custom ? " " : instrument;
  part->score_instrument.instrument_name = instrument;
  part->midi_instrument.midi_channel = 1;
  part->midi_instrument.midi_program = std::clamp(settings.midi_program, 1, 128);
  part->midi_instrument.volume = 80;
  part->midi_instrument.pan = 0;
}

void SheetMusic::GetMeasures(xml::Part* part) {
  if (job->cancelled) return;
  InitializeMeasures(part);
  CreateChords();
  SetStaffNumbers();
  FillMeasures(part);
}

void SheetMusic::SetStaffNumbers() {
  staff_numbers.clear();
  int number = 1;
  for (Clef clef : {TREBLE, BASS, TAB}) {
    if (note_data.HasClef(clef)) staff_numbers[clef] = number++;
  }
}

void SheetMusic::InitializeMeasures(xml::Part* part) {
  BeatsAnalyzer& analyzer = job->beats_analyzer;
  const SheetMusicSettings& settings = job->sheet_music_settings;
  const std::vector<Clef> staffs = note_data.Staffs();
  first_measure = 0;
  last_measure = static_cast<int>(analyzer.measures.size()) - 1;
  for (int m = 0; m <= last_measure; ++m) {
    if (analyzer.measures[m].empty()) continue;
    Beat& first = *analyzer.measures[m][0];
    const bool first_of_song = m == 0;
    const bool print_time =
        first_of_song || first.time_signature_top != 0 || first.time_signature_bottom != 0;
    int key = first_of_song || first.key_signature != Beat::kNoKeyChange ? analyzer.KeySignature(first)
                                                                         : Beat::kNoKeyChange;
    // A song whose key was never set starts in C major.
    if (first_of_song && key == Beat::kNoKeyChange) key = 0;
    const int tempo = first_of_song || first.tempo != 0 ? analyzer.Tempo(first) : 0;
    std::pair<int, int> time = analyzer.TimeSignature(first);
    if (time.first <= 0 || time.second <= 0) time = {4, 4};

    xml::Measure* measure = part->AddMeasure(m + 1);
    if (print_time || key != Beat::kNoKeyChange) {
      if (first_of_song) measure->AddPrint()->staff_layout.staff_distance = 70;
      xml::Attributes* attributes = measure->AddAttributes();
      if (first_of_song) {
        attributes->SetDivisions(divisions);
        attributes->SetStaves(static_cast<int>(staffs.size()));
      }
      if (key != Beat::kNoKeyChange)
        attributes->SetKey(key_names.ShiftedFifths(key, settings.PitchShift()), "major");
      if (print_time) attributes->SetTime(time.first, time.second);
      if (first_of_song) {
        for (Clef clef : staffs) attributes->AddClef(staff_numbers[clef], kClefSigns[clef], kClefLines[clef]);
        if (settings.tablature) {
          xml::StaffDetails* details = attributes->AddStaffDetails();
          const int strings = static_cast<int>(settings.string_keys.size());
          details->staff_lines.lines = strings;
          // Lines count from the bottom: line 1 is the lowest string, the last key of the list.
          for (int line = strings; line >= 1; --line) {
            const int key_idx = settings.string_keys[strings - line];
            const NoteName& name = key_names.KeyName(key_idx, 0);
            details->AddStaffTuning(line, QString::fromStdString(name.name), name.alter,
                                    KeyNoteNames::Octave(key_idx) + name.octave_offset);
          }
        }
      }
    }
    if (tempo > 0) measure->AddDirection("above")->direction_type.metronome.per_minute = tempo;
  }
}

void SheetMusic::RemoveInvalidTriplets(const std::vector<Note*>& notes) {
  std::set<const Triplet*> unwritable;
  for (const Note* note : notes) {
    if (!note->InValidTriplet()) continue;
    const int64_t start = note->MusicStart().fine_position;
    const int64_t stop = note->MusicStop().fine_position;
    for (const Note* other : notes) {
      const int64_t overlap = std::min(stop, other->MusicStop().fine_position) -
                              std::max(start, other->MusicStart().fine_position);
      // A note that covers only part of a triplet note needs a second voice, which a staff
      // here does not have.
      if (overlap > 0 && overlap != stop - start) {
        unwritable.insert(note->triplet.get());
        break;
      }
    }
  }
  if (unwritable.empty()) return;
  for (Note* note : notes) {
    if (note->triplet && unwritable.count(note->triplet.get())) {
      note->triplet.reset();
      note->triplet_idx = -1;
    }
  }
}

const NoteType* SheetMusic::TripletNoteType(const Triplet& triplet) const {
  const double quarters =
      0.6666666666666666 / note_data.SmallestNotesPerQuarter() * std::pow(2.0, triplet.level);
  for (const NoteType& type : triplet_note_types) {
    if (std::fabs(type.quarters - quarters) < 1e-7) return &type;
  }
  return nullptr;
}

void SheetMusic::CreateChords() {
  const MusicPosition end_of_song = note_data.EndOfSong();
  const int measure_count = static_cast<int>(job->beats_analyzer.measures.size());
  for (Clef clef : note_data.Staffs()) {
    std::vector<Note*> notes = note_data.StaffNotes(clef);
    std::stable_sort(notes.begin(), notes.end(), SortPointersByStartTime);
    RemoveInvalidTriplets(notes);

    // Cut points, ordered by fine position. Bar lines go in first, so a position shared with a
    // triplet's end keeps the measure of the bar line. The end of the song closes the last one.
    std::map<MusicPosition, std::vector<Note*>> cuts;
    for (int m = 0; m <= measure_count; ++m)
      cuts.emplace(note_data.GetMeasureStartPosition(m), std::vector<Note*>());
    for (Note* note : notes) {
      cuts[note->MusicStart()].push_back(note);
      if (note->MusicStop() != end_of_song) cuts.emplace(note->MusicStop(), std::vector<Note*>());
    }

    std::vector<MusicChord>& chords = measures_by_clef[clef];
    chords.clear();
    std::vector<Note*> sounding;
    for (auto it = cuts.begin(); it != cuts.end() && std::next(it) != cuts.end(); ++it) {
      const MusicPosition& p = it->first;
      const MusicPosition& next = std::next(it)->first;
      MusicChord chord(p, next);
      std::vector<Note*> slice;
      for (Note* note : sounding) {
        if (note->MusicStop() > p) {
          slice.push_back(note);
          chord.ties_back.insert(note->key_idx);
        }
      }
      for (Note* note : it->second) slice.push_back(note);

      sounding.clear();
      for (Note* note : slice) {
        if (std::find(chord.keys.begin(), chord.keys.end(), note->key_idx) == chord.keys.end())
          chord.keys.push_back(note->key_idx);
        if (note->MusicStop() > next) {
          chord.ties_onward.insert(note->key_idx);
          sounding.push_back(note);
        }
        if (!chord.note_type && note->InValidTriplet()) {
          chord.note_type = TripletNoteType(*note->triplet);
          if (chord.note_type) chord.triplet_position = note->triplet_idx;
        }
      }
      std::sort(chord.keys.begin(), chord.keys.end());
      chords.push_back(chord);
    }
  }
}

std::vector<int> SheetMusic::MeasureFifths(const xml::Part& part) const {
  std::vector<int> fifths(part.measures.size(), 0);
  int in_force = 0;
  for (size_t m = 0; m < part.measures.size(); ++m) {
    const xml::Attributes* attributes = part.measures[m]->attributes_element;
    if (attributes && attributes->HasKey()) in_force = attributes->key.fifths;
    fifths[m] = in_force;
  }
  return fifths;
}

void SheetMusic::FillMeasures(xml::Part* part) {
  const std::vector<Clef> staffs = note_data.Staffs();
  const std::vector<int> fifths = MeasureFifths(*part);
  for (size_t s = 0; s < staffs.size(); ++s) {
    const Clef clef = staffs[s];
    const int staff = staff_numbers[clef];
    const bool last_staff = s + 1 == staffs.size();
    const std::vector<MusicChord>& chords = measures_by_clef[clef];
    int64_t measure_length = 0;
    for (size_t i = 0; i < chords.size(); ++i) {
      const MusicChord& chord = chords[i];
      const int measure_idx = chord.start.measure_idx;
      const int index = measure_idx - first_measure;
      if (measure_idx < first_measure || measure_idx > last_measure ||
          index >= static_cast<int>(part->measures.size()))
        continue;
      xml::Measure* measure = part->measures[index];
      InsertNotes(chord, staff, staff, fifths[index], clef, measure);
      measure_length += chord.stop.fine_position - chord.start.fine_position;
      const bool measure_ends = i + 1 == chords.size() || chords[i + 1].start.measure_idx != measure_idx;
      if (measure_ends) {
        // The next staff starts over at the start of the measure.
        if (!last_staff) measure->AddBackup(static_cast<int>(measure_length));
        measure_length = 0;
      }
    }
  }
  beamer.Finalize();
}

void SheetMusic::FrameBreakdown(int frames, bool no_dots, std::vector<NoteType>* out) const {
  for (const NoteType& type : note_types) {
    if (frames <= 0) break;
    if ((no_dots && type.dotted) || type.frames <= 0) continue;
    while (frames >= type.frames) {
      out->push_back(type);
      frames -= type.frames;
    }
  }
}

void SheetMusic::MarkAsTriplet(int position, const NoteType* type, xml::XmlNote* note) const {
  note->SetTimeModification();
  note->duration = type->frames;
  if (position == 0) note->SetTuplet("start");
  if (position == 2) note->SetTuplet("stop");
}

void SheetMusic::InsertNotes(const MusicChord& chord, int voice, int staff, int fifths, Clef clef,
                             xml::Measure* measure) {
  std::vector<NoteType> values;
  if (chord.note_type) {
    values.push_back(*chord.note_type);
  } else {
    FrameBreakdown(static_cast<int>(chord.stop.fine_position - chord.start.fine_position), chord.keys.empty(),
                   &values);
  }
  const SheetMusicSettings& settings = job->sheet_music_settings;
  std::vector<std::pair<int, int>> strings_frets;
  if (clef == TAB && !chord.keys.empty()) {
    // Notes are written transposed, so the open strings are compared at their written pitch.
    std::vector<int> written_strings = settings.string_keys;
    for (int& key : written_strings) key += settings.PitchShift();
    strings_frets = StringFretData(settings.frets, written_strings).StringsFrets(chord.keys);
  }

  int offset = 0;
  for (size_t k = 0; k < values.size(); ++k) {
    const NoteType& value = values[k];
    auto make_note = [&]() {
      auto note = std::make_unique<xml::XmlNote>();
      note->duration = value.frames;
      note->type = value.name;
      if (value.dotted) note->SetDot();
      note->voice = voice;
      note->staff = staff;
      if (chord.note_type) MarkAsTriplet(chord.triplet_position, chord.note_type, note.get());
      note->position = chord.start.fine_position + offset;
      return note;
    };
    int written = 0;
    for (size_t i = 0; i < chord.keys.size(); ++i) {
      const int key = chord.keys[i];
      if (clef == TAB && strings_frets[i].second < 0) continue;  // no string reaches this key
      auto note = make_note();
      const NoteName& name = key_names.KeyName(key, fifths);
      note->SetPitch(QString::fromStdString(name.name), name.alter,
                     KeyNoteNames::Octave(key) + name.octave_offset);
      note->key_idx = key;
      if (written > 0) note->SetChord();
      if (chord.ties_onward.count(key) || k + 1 < values.size()) note->SetTieStart();
      if (chord.ties_back.count(key) || k > 0) note->SetTieStop();
      if (clef == TAB) note->SetTechnical(strings_frets[i].first, strings_frets[i].second);
      beamer.ProcessNote(clef, measure->AddNote(std::move(note)), measure);
      ++written;
    }
    // A rest, or a chord none of whose keys a tablature can play: the time is still filled.
    if (written == 0) {
      auto rest = make_note();
      rest->SetRest();
      measure->AddNote(std::move(rest));
    }
    offset += value.frames;
  }
}
