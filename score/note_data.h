#pragma once

#include <QObject>
#include <QString>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "score/beat.h"
#include "score/clef.h"
#include "score/common_settings.h"
#include "score/music_position.h"
#include "score/note.h"
#include "score/spectrogram_area.h"
#include "score/triplet.h"

class TranscriptionJob;

// The notes and candidates of one job, with an ordered index per key by grid step, and the only
// converter between seconds and the musical grid (beats from the job's BeatsAnalyzer).
// Every public method takes the recursive `lock`, so the analysis and GUI threads may both call
// in; playback only try-locks. A Note* is valid only inside one locked operation: any change
// of the vectors rebuilds the indices, so edits that span time name notes by index in `notes`.
class NoteData : public QObject {
  Q_OBJECT

 public:
  enum PositionType { START = 0, STOP = 1, CONTAINING = 2 };
  // key_idx -> (start position_idx -> note), for notes or for candidates.
  using KeyIndex = std::multimap<int, Note*>;
  using NoteMap = std::unordered_map<int, KeyIndex>;
  using TripletsMap = std::map<std::shared_ptr<Triplet>, std::vector<Note*>>;

  // A treble_clef_start_key_idx above the lowest bound gives the score a bass staff, one below
  // the highest bound a treble staff: the bass-only and treble-only split keys.
  static constexpr int clef_lowest_bound = -1;
  static constexpr int clef_highest_bound = 88;
  // A grid finer than this is refused, so positions stay far inside int.
  static constexpr int kMaxSmallestNotesPerQuarter = 256;

  explicit NoteData(TranscriptionJob* job);

  // Vectors and indices.
  void ClearPermanent();
  void SetNotesCandidatesPermanent(const std::vector<Note>& candidates, const std::vector<Note>& notes);
  void SetNotesDirectly(const std::vector<Note>& notes);
  void SetCandidatesDirectly(const std::vector<Note>& candidates);
  // References for the GUI thread, which is the thread that edits.
  std::vector<Note>& GetNotes();
  std::vector<Note>& GetCandidates();
  // Notes first, then candidates.
  std::vector<Note> GetNotesAndCandidates() const;

  // The grid.
  void Recalculate();
  void UpdatePositions(const SpectrogramArea& area = SpectrogramArea());
  void UpdateNotePositions(const std::set<unsigned long>& note_idxs);
  MusicPosition GetMusicPosition(int position_idx, const Beat* near);
  MusicPosition GetMusicPositionGuessTime(int position_idx, double time);
  // `time` in seconds onto the grid; a midpoint rounds up for START and STOP and down for
  // CONTAINING. No note starts at the end of the song or stops at its start.
  MusicPosition GetClosestPosition(double time, PositionType type, Beat** out = nullptr);
  MusicPosition GetContainingPosition(double time);
  MusicPosition GetPositionBefore(double time);
  MusicPosition GetPositionAfter(double time);
  MusicPosition GetNextPosition(const MusicPosition& position);
  MusicPosition GetPreviousPosition(const MusicPosition& position);
  MusicPosition ShiftedPosition(const MusicPosition& position, int steps, PositionType type);
  MusicPosition GetMeasureStartPosition(int measure_idx);
  // Never the sentinel; null without beats.
  Beat* LastBeatOnOrBefore(double time);
  MusicPosition StartOfSong();
  MusicPosition EndOfSong();
  // Seconds of one grid step between two beats.
  double Interval(const Beat* a, const Beat* b);

  // Stops.
  // The next note start after `position` in any key, or the end of the song.
  MusicPosition GetAutoStop(const MusicPosition& position);
  void SetNoteStop(double stop, Note* note);
  void SetNoteAutoStops();
  // Seconds between which the start (START) or the stop (STOP) edge of the note may be dragged:
  // no further than the neighbouring notes of its key, and never shorter than one step. The
  // present edge always lies inside.
  std::pair<double, double> GetNoteEdgeBounds(const Note& note, PositionType edge);

  // Fineness of the grid.
  int SmallestNotesPerQuarter() const;
  int MinSmallestNotesPerQuarter() const;
  int SetSmallestNotesPerQuarter(int value);
  void SetSmallestNotesPerQuarterDirectly(int value);

  // Changes with no undo record.
  void TransposeAndFilterNotesPermanent(const CommonSettings& settings);
  void UpdateNoteKeyIdxPermanent(int key_idx, Note* note);
  void RemoveNotesPermanent(const std::vector<Note*>& notes);
  void RemoveDuplicatesPermanent();

  // Staves, from the job's sheet music settings.
  std::vector<Clef> Staffs() const;
  bool HasClef(Clef clef) const;
  std::vector<Note*> StaffNotes(Clef clef);

  // Triplets.
  std::set<int> AllowedTripletSpans() const;
  TripletsMap GetTripletsMap(std::vector<Note>& notes);
  // Triplets whose span no longer snaps to an allowed span of the grid fall apart.
  void RecalculateTriplets(const SpectrogramArea& area = SpectrogramArea());

  // Index helpers. Notes are filed under MusicStart().position_idx.
  Note* FindNote(NoteMap& map, int key_idx, int position_idx);
  Note* FindExactNote(NoteMap& map, const Note& note);
  Note* ExistingNote(int key_idx, int position_idx);
  // Indices in `notes` of pointers into it; pointers from elsewhere are skipped.
  std::set<unsigned long> NoteIndices(const std::vector<Note*>& note_pointers);
  // Pointers for valid indices, in index order.
  std::vector<Note*> NotesFromIndices(const std::set<unsigned long>& note_idxs);
  void AddToMap(NoteMap& map, Note* note);
  bool RemoveFromMap(NoteMap& map, Note* note);
  void CreateMap(std::vector<Note>& vector, NoteMap& map);
  void CreateMaps();
  // Copies of the indexed notes, by ascending key and start.
  std::vector<Note> VectorFromMap(const NoteMap& map);
  NoteMap& NotesMaps(bool candidates_map);

  void DebugVerify() {}

  const int positions_per_step = MusicPosition::kPositionsPerStep;
  int current_group = 1;  // group of the notes that the user adds
  mutable std::recursive_mutex lock;
  const float manual_note_score = 2.0f;
  TranscriptionJob* job = nullptr;

 signals:
  void DataChanged();
  void NotesChanged();
  void NotesModified();
  void RedrawNoteIdxs(std::set<unsigned long> note_idxs);
  void SmallestNotesPerQuarterChanged();
  void LogStep(QString text);

 private:
  std::vector<Beat>& Beats() const;
  long BeatIndexOf(const Beat* beat) const;
  int BeatPosition(long beat_idx) const;
  int BeatPosition(const Beat* beat) const { return BeatPosition(BeatIndexOf(beat)); }
  int MeasureFirstPositionIdx(int measure_idx) const;
  // The plain grid position at the index of a position inside a triplet.
  MusicPosition PlainPosition(const MusicPosition& position);
  void RemoveDuplicates(std::vector<Note>* vector, NoteMap* map, const NoteMap* blocking);

  int smallest_notes_per_quarter = 4;
  std::vector<Note> notes;
  std::vector<Note> candidates;
  NoteMap note_map;
  NoteMap candidate_map;
  // position_idx of each beat, by index in the job's beat list.
  std::vector<int> beat_positions;
};
