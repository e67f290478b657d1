#pragma once

#include <QObject>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "score/beat.h"
#include "score/text_symbols.h"

class TranscriptionJob;

// Measures, signatures, tempos and quarter-note positions derived from the job's beat list,
// and the edits of measure mode. Every edit replaces the list as a whole and calls Set(),
// which ends in NoteData::Recalculate(); any Beat* taken before an edit is invalid after it.
// The tables are valid only after Set(). Runs on the thread that owns the job at the time.
class BeatsAnalyzer : public QObject {
  Q_OBJECT

 public:
  explicit BeatsAnalyzer(TranscriptionJob* job);

  // Rebuilds every table from the beat list, drops redundant changes from the beats
  // themselves, then recalculates the note grid.
  void Set();
  void SetBeats(const std::vector<Beat>& beats);

  // Measure edits. Bad indices are ignored; the two spacing refusals print a line on stdout.
  void DoubleMeasures(int measure_idx, bool all_following);
  void HalveMeasures(int measure_idx);
  void DeleteMeasure(int measure_idx);
  // These throw std::out_of_range for a bad beat index.
  void SetTimeSignatureTop(int beat_idx, int value);
  void SetTimeSignatureBottom(int beat_idx, int value);
  void SetTempo(int beat_idx, int value);
  void SetKeySignature(int beat_idx, int value);

  // Beat drags, in seconds.
  std::pair<double, double> BeatMoveInterpolationBounds(unsigned long beat_idx);
  std::set<unsigned long> BeatMoveAffectedBeats(unsigned long beat_idx, bool all_following);
  // The lowest and highest time the drag may reach; the beat's present time is always inside.
  std::pair<double, double> BeatMoveBounds(unsigned long beat_idx,
                                           const std::pair<double, double>& interpolation_bounds,
                                           bool all_following, const std::set<unsigned long>& affected);
  void MoveBeat(unsigned long beat_idx, double new_time, bool all_following,
                const std::pair<double, double>& interpolation_bounds,
                const std::set<unsigned long>& affected, const std::set<unsigned long>& affected_notes,
                bool update_all_notes);
  // Slides the beat times one place along while the labels stay; the ends keep their times.
  void ShiftBeats(int direction);

  // Quarter notes per minute.
  double EstimateTempo(Beat& beat);
  double CalculatedTempo(Beat& beat);

  // Look-ups; a beat that is not in the job's list throws std::out_of_range.
  int Tempo(Beat& beat);
  std::pair<int, int> TimeSignature(Beat& beat);
  int KeySignature(Beat& beat);
  Beat* NextBeat(Beat& beat);
  Beat* PreviousBeat(Beat& beat);
  long BeatIndex(const Beat* beat) const;  // -1 for a beat outside the list
  double BeatEndTime(Beat& beat);
  int MeasureIndex(Beat& beat);
  const std::vector<Beat*>& Measure(Beat& beat);
  Beat* NextMeasure(Beat& beat);      // first beat of the next measure, or null
  Beat* PreviousMeasure(Beat& beat);  // first beat of the previous measure, or null
  int MeasureBeats(Beat& beat);       // beats in the beat's measure
  std::pair<double, double> MeasureStartEndTimes(Beat& beat);
  double PositionQuarters(Beat& beat);
  std::string KeyName(int fifths) const;

  std::vector<std::vector<Beat*>> measures;  // the sentinel is in none
  std::vector<double> measure_start_quarters;
  std::vector<std::pair<int, int>> time_signatures;  // (top, bottom) of each measure
  std::vector<int> key_signatures;                   // fifths; kNoKeyChange where none was set
  const double min_beat_spacing = 0.01;              // seconds
  TranscriptionJob* job = nullptr;
  std::vector<int> beat_measures;     // per beat, its measure
  std::vector<int> beat_tempos;       // per beat, the user tempo in force; 0 if none
  std::vector<double> beat_quarters;  // per beat, its position in quarter notes
  TextSymbols symbols;

 signals:
  void RedrawBeats();
  void RepositionBeats(std::set<unsigned long> beat_idxs);

 private:
  std::vector<Beat>& Beats() const;
  size_t CheckedIndex(const Beat& beat) const;
  // Installs a new list and rebuilds.
  void Install(std::vector<Beat>&& beats);
  // The run of measures from `measure_idx` on with the same time signature.
  int RunLength(int measure_idx) const;
  bool SetTimeSignatureTopPinned(size_t beat_idx, int value);
  void SetTimeSignatureTopFree(size_t beat_idx, int value);
};
