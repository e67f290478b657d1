#pragma once

#include <QObject>
#include <QString>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "output/music_chord.h"
#include "output/note_beamer.h"
#include "output/note_type.h"
#include "output/xml_score_partwise.h"
#include "score/clef.h"
#include "score/key_note_names.h"
#include "score/note_data.h"

class TranscriptionJob;

// Turns a job's notes and beats into a MusicXML 3.0 partwise document. Works on a private copy
// of the notes (triplets included), so transposition and filtering never touch the editor's
// model. Made for one save on the thread that owns the job at the time, then dropped.
//
// Durations are in divisions of `divisions` = smallest_notes_per_quarter x 6 to the quarter:
// one grid step is six units, so the thirds of a triplet are whole numbers and differences of
// `fine_position` are durations as they stand.
class SheetMusic : public QObject {
  Q_OBJECT

 public:
  explicit SheetMusic(std::shared_ptr<TranscriptionJob> job);

  // Builds and writes the document; an empty `path` takes the job's MusicXML name, and with
  // none at all nothing is written. False when nothing was written.
  bool SaveSheetMusic(QString path = QString());
  // The whole text of the document as SaveSheetMusic writes it.
  QString DocumentText();
  static bool WriteFile(const QString& path, const QString& text);
  static QString Header();

  void GetScore();
  int TicksPerQuarter() const;
  void ScorePart();
  void GetMeasures(xml::Part* part);
  void InitializeMeasures(xml::Part* part);
  void CreateChords();
  void SetStaffNumbers();
  void FillMeasures(xml::Part* part);
  void RemoveInvalidTriplets(const std::vector<Note*>& notes);
  void InsertNotes(const MusicChord& chord, int voice, int staff, int fifths, Clef clef,
                   xml::Measure* measure);
  // Cuts `frames` divisions into note values, longest first; rests take no dotted values.
  void FrameBreakdown(int frames, bool no_dots, std::vector<NoteType>* out) const;
  void MarkAsTriplet(int position, const NoteType* type, xml::XmlNote* note) const;

  std::shared_ptr<xml::ScorePartwise> score;
  QString part_id = "P1";
  NoteData note_data;
  KeyNoteNames key_names;
  int first_measure = 0;
  int last_measure = -1;
  int divisions = 24;
  std::map<Clef, std::vector<MusicChord>> measures_by_clef;
  std::map<Clef, int> staff_numbers;
  std::vector<NoteType> note_types;          // plain and dotted values, longest first
  std::vector<NoteType> triplet_note_types;  // the eighth and the quarter of a triplet
  NoteBeamer beamer;
  std::shared_ptr<TranscriptionJob> job;

 signals:
  void Message(std::string text, bool is_fatal);

 private:
  void FillNoteTypes();
  const NoteType* TripletNoteType(const Triplet& triplet) const;
  // The signature in force at each measure, as written (after transposition).
  std::vector<int> MeasureFifths(const xml::Part& part) const;
};
