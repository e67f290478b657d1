#include "score/note_data.h"

#include <algorithm>
#include <cmath>

#include "score/beats_analyzer.h"
#include "score/transcription_job.h"

namespace {

using Guard = std::lock_guard<std::recursive_mutex>;

// The integer part of a grid coordinate, kept inside int whatever the input times hold.
int IntegerPart(double value) {
  if (std::isnan(value)) return 0;
  return static_cast<int>(std::max(-1e9, std::min(1e9, value)));
}

}  // namespace

NoteData::NoteData(TranscriptionJob* job_) : job(job_) {}

// ---------------------------------------------------------------------------------------------
// Vectors and indices

void NoteData::ClearPermanent() {
  Guard guard(lock);
  notes.clear();
  candidates.clear();
  note_map.clear();
  candidate_map.clear();
}

void NoteData::SetNotesCandidatesPermanent(const std::vector<Note>& new_candidates,
                                           const std::vector<Note>& new_notes) {
  Guard guard(lock);
  // Copies first: the arguments may be our own vectors.
  std::vector<Note> candidates_copy = new_candidates;
  std::vector<Note> notes_copy = new_notes;
  candidates = std::move(candidates_copy);
  notes = std::move(notes_copy);
  CreateMaps();
  Recalculate();
}

void NoteData::SetNotesDirectly(const std::vector<Note>& new_notes) {
  Guard guard(lock);
  if (&new_notes != &notes) notes = new_notes;
}

void NoteData::SetCandidatesDirectly(const std::vector<Note>& new_candidates) {
  Guard guard(lock);
  if (&new_candidates != &candidates) candidates = new_candidates;
}

std::vector<Note>& NoteData::GetNotes() {
  Guard guard(lock);
  return notes;
}

std::vector<Note>& NoteData::GetCandidates() {
  Guard guard(lock);
  return candidates;
}

std::vector<Note> NoteData::GetNotesAndCandidates() const {
  Guard guard(lock);
  std::vector<Note> all;
  all.reserve(notes.size() + candidates.size());
  all.insert(all.end(), notes.begin(), notes.end());
  all.insert(all.end(), candidates.begin(), candidates.end());
  return all;
}

// ---------------------------------------------------------------------------------------------
// Beats

std::vector<Beat>& NoteData::Beats() const { return job->beats; }

long NoteData::BeatIndexOf(const Beat* beat) const {
  const std::vector<Beat>& beats = Beats();
  if (!beat || beats.empty() || beat < beats.data() || beat >= beats.data() + beats.size()) return -1;
  return static_cast<long>(beat - beats.data());
}

int NoteData::BeatPosition(long beat_idx) const {
  if (beat_idx < 0 || beat_idx >= static_cast<long>(beat_positions.size())) return 0;
  return beat_positions[beat_idx];
}

int NoteData::MeasureFirstPositionIdx(int measure_idx) const {
  const auto& measures = job->beats_analyzer.measures;
  if (measure_idx < 0 || measure_idx >= static_cast<int>(measures.size()) || measures[measure_idx].empty()) {
    return 0;
  }
  return BeatPosition(measures[measure_idx].front());
}

Beat* NoteData::LastBeatOnOrBefore(double time) {
  Guard guard(lock);
  std::vector<Beat>& beats = Beats();
  if (beats.empty()) return nullptr;
  Beat key;
  key.time = time;
  auto it = std::upper_bound(beats.begin(), beats.end(), key);
  if (it != beats.begin()) --it;
  if (it + 1 == beats.end() && it != beats.begin()) --it;  // never the sentinel
  return &*it;
}

double NoteData::Interval(const Beat* a, const Beat* b) {
  Guard guard(lock);
  if (!a || !b) return 0.0;
  const int steps = BeatPosition(b) - BeatPosition(a);
  if (steps == 0) return 0.0;
  return (b->time - a->time) / steps;
}

// ---------------------------------------------------------------------------------------------
// The grid

int NoteData::SmallestNotesPerQuarter() const {
  Guard guard(lock);
  return smallest_notes_per_quarter;
}

int NoteData::MinSmallestNotesPerQuarter() const {
  Guard guard(lock);
  if (!job) return -1;
  const BeatsAnalyzer& analyzer = job->beats_analyzer;
  const size_t measure_count = std::min(analyzer.measures.size(), analyzer.time_signatures.size());
  if (measure_count == 0) return 1;
  int bottom = 1;
  for (size_t i = 0; i < measure_count; ++i) bottom = std::max(bottom, analyzer.time_signatures[i].second);
  return bottom < 4 ? 1 : std::min(bottom / 4, kMaxSmallestNotesPerQuarter);
}

int NoteData::SetSmallestNotesPerQuarter(int value) {
  Guard guard(lock);
  if (std::max(value, MinSmallestNotesPerQuarter()) == smallest_notes_per_quarter)
    return smallest_notes_per_quarter;
  smallest_notes_per_quarter = value;
  Recalculate();
  emit SmallestNotesPerQuarterChanged();
  return smallest_notes_per_quarter;
}

void NoteData::SetSmallestNotesPerQuarterDirectly(int value) {
  Guard guard(lock);
  smallest_notes_per_quarter = value;
}

void NoteData::Recalculate() {
  Guard guard(lock);
  const int min_spq = MinSmallestNotesPerQuarter();
  if (smallest_notes_per_quarter > kMaxSmallestNotesPerQuarter) {
    smallest_notes_per_quarter = kMaxSmallestNotesPerQuarter;
  }
  if (smallest_notes_per_quarter < min_spq) {
    smallest_notes_per_quarter = min_spq;
    emit SmallestNotesPerQuarterChanged();
  }
  beat_positions.clear();
  const std::vector<Beat>& beats = Beats();
  const std::vector<double>& quarters = job->beats_analyzer.beat_quarters;
  // Each beat sits on a whole step counted in quarter notes, so the grid follows the beats and
  // tempo changes need no special case.
  const int spq = std::max(smallest_notes_per_quarter, 1);
  for (size_t i = 0; i < beats.size() && i < quarters.size(); ++i) {
    beat_positions.push_back(IntegerPart(spq * quarters[i] + 0.5));
  }
  UpdatePositions(SpectrogramArea());
}

MusicPosition NoteData::EndOfSong() {
  Guard guard(lock);
  const std::vector<Beat>& beats = Beats();
  if (beats.empty()) return MusicPosition();
  const long last = static_cast<long>(beats.size()) - 1;
  const int position_idx = BeatPosition(last);
  return MusicPosition(beats.back().time, static_cast<int>(job->beats_analyzer.measures.size()), 0, 0.0,
                       position_idx, static_cast<int64_t>(position_idx) * positions_per_step);
}

MusicPosition NoteData::StartOfSong() {
  Guard guard(lock);
  std::vector<Beat>& beats = Beats();
  if (beats.empty()) return MusicPosition();
  const double step = beats.size() > 1 ? Interval(&beats[0], &beats[1]) : 0.0;
  return MusicPosition(beats.front().time, 0, 0, step, 0, 0);
}

MusicPosition NoteData::GetMusicPosition(int position_idx, const Beat* near) {
  Guard guard(lock);
  const std::vector<Beat>& beats = Beats();
  if (beats.size() < 2) return EndOfSong();
  const long last = static_cast<long>(beats.size()) - 1;
  if (position_idx >= BeatPosition(last)) return EndOfSong();

  long b = std::max(0L, std::min(BeatIndexOf(near), last - 1));
  while (b > 0 && BeatPosition(b) > position_idx) --b;
  while (b + 1 < last && BeatPosition(b + 1) <= position_idx) ++b;
  const long n = b + 1;
  const int steps = BeatPosition(n) - BeatPosition(b);
  const double step_seconds = steps != 0 ? (beats[n].time - beats[b].time) / steps : 0.0;
  const double time = beats[b].time + (position_idx - BeatPosition(b)) * step_seconds;
  const int measure_idx = job->beats_analyzer.beat_measures.size() > static_cast<size_t>(b)
                              ? job->beats_analyzer.beat_measures[b]
                              : 0;
  return MusicPosition(time, measure_idx, position_idx - MeasureFirstPositionIdx(measure_idx), step_seconds,
                       position_idx, static_cast<int64_t>(position_idx) * positions_per_step);
}

MusicPosition NoteData::GetMusicPositionGuessTime(int position_idx, double time) {
  Guard guard(lock);
  return GetMusicPosition(position_idx, LastBeatOnOrBefore(time));
}

MusicPosition NoteData::GetClosestPosition(double time, PositionType type, Beat** out) {
  Guard guard(lock);
  std::vector<Beat>& beats = Beats();
  if (beats.empty()) return MusicPosition();
  if (std::isnan(time)) time = beats.front().time;
  time = std::max(time, beats.front().time);
  time = std::min(time, EndOfSong().time);

  Beat* b = LastBeatOnOrBefore(time);
  const long b_idx = BeatIndexOf(b);
  const long last = static_cast<long>(beats.size()) - 1;
  int idx = BeatPosition(b_idx);
  if (b_idx < last) {
    const double interval = Interval(b, b + 1);
    const double rounding = type == CONTAINING ? 0.0 : 0.5;
    if (interval > 0.0) idx += IntegerPart((time - b->time) / interval + rounding);
  }
  if (type == START && idx >= BeatPosition(last)) idx = BeatPosition(last) - 1;
  if (type == STOP && idx <= 0) idx = 1;
  if (out) *out = b;
  return GetMusicPosition(idx, b);
}

MusicPosition NoteData::GetContainingPosition(double time) { return GetClosestPosition(time, CONTAINING); }

MusicPosition NoteData::GetPositionBefore(double time) {
  Guard guard(lock);
  MusicPosition position = GetClosestPosition(time, START);
  if (!(time > position.time) && position.position_idx > 0) position = GetPreviousPosition(position);
  return position;
}

MusicPosition NoteData::GetPositionAfter(double time) {
  Guard guard(lock);
  MusicPosition position = GetClosestPosition(time, STOP);
  if (time >= position.time && position < EndOfSong()) position = GetNextPosition(position);
  return position;
}

MusicPosition NoteData::GetNextPosition(const MusicPosition& position) {
  Guard guard(lock);
  return GetMusicPosition(position.position_idx + 1,
                          LastBeatOnOrBefore(position.time + position.step_seconds));
}

MusicPosition NoteData::GetPreviousPosition(const MusicPosition& position) {
  Guard guard(lock);
  return GetMusicPosition(position.position_idx - 1,
                          LastBeatOnOrBefore(position.time - position.step_seconds));
}

MusicPosition NoteData::ShiftedPosition(const MusicPosition& position, int steps, PositionType type) {
  Guard guard(lock);
  const long last = static_cast<long>(Beats().size()) - 1;
  int idx = position.position_idx + steps;
  if (type == START && idx >= BeatPosition(last)) idx = BeatPosition(last) - 1;
  if (type == STOP && idx < 2) idx = 1;
  const double guess = position.time + (idx - position.position_idx) * position.step_seconds;
  return GetMusicPosition(idx, LastBeatOnOrBefore(guess));
}

MusicPosition NoteData::GetMeasureStartPosition(int measure_idx) {
  Guard guard(lock);
  std::vector<Beat>& beats = Beats();
  if (beats.empty()) return MusicPosition();
  const auto& measures = job->beats_analyzer.measures;
  if (measure_idx < 0 || measure_idx >= static_cast<int>(measures.size()) || measures[measure_idx].empty()) {
    return GetMusicPosition(BeatPosition(static_cast<long>(beats.size()) - 1), &beats.back());
  }
  const Beat* first = measures[measure_idx].front();
  return GetMusicPosition(BeatPosition(first), first);
}

MusicPosition NoteData::PlainPosition(const MusicPosition& position) {
  if (position.fine_position % positions_per_step == 0) return position;
  return GetMusicPosition(position.position_idx, LastBeatOnOrBefore(position.time));
}

void NoteData::UpdatePositions(const SpectrogramArea& area) {
  Guard guard(lock);
  if (Beats().size() < 2) return;
  for (Note& note : notes) {
    if (area.Contains(note.key_idx, note.music_start.time)) {
      note.music_start = GetClosestPosition(note.start_time, START);
    }
    const double stop = note.StopTimeForUpdate();
    if (stop != 0.0 && area.Contains(note.key_idx, stop)) SetNoteStop(stop, &note);
  }
  RecalculateTriplets(area);
  // Filed after the triplets are settled, so that a note that left its triplet is found under
  // its own start.
  CreateMap(notes, note_map);
  SetNoteAutoStops();
  for (Note& candidate : candidates) {
    if (area.Contains(candidate.key_idx, candidate.MusicStart().time)) {
      candidate.music_start = GetClosestPosition(candidate.start_time, START);
    }
  }
  CreateMap(candidates, candidate_map);
  emit DataChanged();
}

void NoteData::UpdateNotePositions(const std::set<unsigned long>& note_idxs) {
  Guard guard(lock);
  if (Beats().size() < 2) return;
  std::vector<Note*> moved;
  for (unsigned long idx : note_idxs) {
    if (idx >= notes.size()) continue;
    Note* note = &notes[idx];
    RemoveFromMap(note_map, note);
    note->music_start = GetClosestPosition(note->start_time, START);
    AddToMap(note_map, note);
    const double stop = note->StopTimeForUpdate();
    if (stop != 0.0) SetNoteStop(stop, note);
    moved.push_back(note);
  }
  for (Note* note : moved) {
    if (note->stop_time == 0.0) note->music_stop = GetAutoStop(note->music_start);
  }
  emit RedrawNoteIdxs(note_idxs);
}

// ---------------------------------------------------------------------------------------------
// Stops

MusicPosition NoteData::GetAutoStop(const MusicPosition& position) {
  Guard guard(lock);
  MusicPosition best = EndOfSong();
  for (auto& [key_idx, index] : note_map) {
    auto it = index.upper_bound(position.position_idx);
    if (it == index.end() || it->first >= best.position_idx) continue;
    best = PlainPosition(it->second->MusicStart());
  }
  return best;
}

void NoteData::SetNoteStop(double stop, Note* note) {
  Guard guard(lock);
  if (!note) return;
  if (stop == 0.0) {
    note->music_stop = GetAutoStop(note->music_start);
    return;
  }
  note->music_stop = GetClosestPosition(stop, STOP);
  // No note is shorter than one step.
  if (note->music_stop <= note->music_start) note->music_stop = GetNextPosition(note->music_start);
}

void NoteData::SetNoteAutoStops() {
  Guard guard(lock);
  std::map<int, std::vector<Note*>> by_start;
  for (Note& note : notes) by_start[note.MusicStart().position_idx].push_back(&note);

  // Only the next onset in any key ends an automatic note; notes with a stop of their own
  // neither end one nor wait for one.
  std::vector<Note*> pending;
  for (auto& [position_idx, group] : by_start) {
    if (!pending.empty()) {
      const MusicPosition stop = PlainPosition(group.front()->MusicStart());
      for (Note* note : pending) note->music_stop = stop;
      pending.clear();
    }
    for (Note* note : group) {
      if (note->stop_time == 0.0 && !note->InValidTriplet()) pending.push_back(note);
    }
  }
  if (!pending.empty()) {
    // The last notes of the song ring to the next bar line.
    const MusicPosition stop = GetMeasureStartPosition(pending.front()->MusicStart().measure_idx + 1);
    for (Note* note : pending) note->music_stop = stop;
  }
}

std::pair<double, double> NoteData::GetNoteEdgeBounds(const Note& note, PositionType edge) {
  Guard guard(lock);
  const MusicPosition start = note.MusicStart();
  const MusicPosition stop = note.MusicStop();
  const KeyIndex* index = nullptr;
  auto found = note_map.find(note.key_idx);
  if (found != note_map.end()) index = &found->second;

  std::pair<double, double> bounds;
  if (edge == START) {
    bounds.first = StartOfSong().time;
    if (index) {
      // After the start of the previous note of the key.
      for (auto it = index->begin(); it != index->end() && it->first < start.position_idx; ++it) {
        if (it->second != &note) bounds.first = GetNextPosition(it->second->MusicStart()).time;
      }
    }
    bounds.second = GetPreviousPosition(stop).time;
    bounds.first = std::min(bounds.first, start.time);
    bounds.second = std::max(bounds.second, start.time);
  } else {
    bounds.first = GetNextPosition(start).time;
    bounds.second = EndOfSong().time;
    if (index) {
      for (auto it = index->upper_bound(start.position_idx); it != index->end(); ++it) {
        if (it->second == &note) continue;
        bounds.second = it->second->MusicStart().time;
        break;
      }
    }
    bounds.first = std::min(bounds.first, stop.time);
    bounds.second = std::max(bounds.second, stop.time);
  }
  return bounds;
}

// ---------------------------------------------------------------------------------------------
// Changes with no undo record

void NoteData::TransposeAndFilterNotesPermanent(const CommonSettings& settings) {
  Guard guard(lock);
  // A range narrower than an octave is widened downwards, then upwards, to a full octave.
  int low = settings.lowest_note_idx;
  int high = settings.highest_note_idx;
  if (static_cast<long>(high) - low < 11) low = high - 11;
  low = std::max(0, std::min(low, 87));
  high = std::max(0, std::min(high, 87));
  if (high - low < 11) high = std::min(low + 11, 87);
  if (high - low < 11) low = high - 11;

  const long shift = settings.PitchShift();
  std::vector<Note*> to_remove;
  std::vector<std::pair<Note*, int>> to_move;
  for (Note& note : notes) {
    long k = note.key_idx + shift;
    // Whole octaves into the keyboard, then into the range.
    if (k < 0) k += 12 * ((-k + 11) / 12);
    if (k > 87) k -= 12 * ((k - 87 + 11) / 12);
    if ((k < low || k > high) && settings.remove_notes_outside_range) {
      to_remove.push_back(&note);
      continue;
    }
    if (k < low) k += 12 * ((low - k + 11) / 12);
    if (k > high) k -= 12 * ((k - high + 11) / 12);
    if (k != note.key_idx) to_move.emplace_back(&note, static_cast<int>(k));
  }
  for (auto& [note, key_idx] : to_move) UpdateNoteKeyIdxPermanent(key_idx, note);
  if (!to_remove.empty()) RemoveNotesPermanent(to_remove);
}

void NoteData::UpdateNoteKeyIdxPermanent(int key_idx, Note* note) {
  Guard guard(lock);
  if (!note) return;
  RemoveFromMap(note_map, note);
  note->key_idx = key_idx;
  AddToMap(note_map, note);
  emit DataChanged();
}

void NoteData::RemoveNotesPermanent(const std::vector<Note*>& removed) {
  Guard guard(lock);
  for (Note* note : removed) RemoveFromMap(note_map, note);
  std::vector<Note> kept = VectorFromMap(note_map);
  notes = std::move(kept);
  CreateMaps();
  SetNoteAutoStops();
  emit DataChanged();
  emit NotesChanged();
}

void NoteData::RemoveDuplicates(std::vector<Note>* vector, NoteMap* map, const NoteMap* blocking) {
  std::set<const Note*> keep;
  for (const auto& [key_idx, index] : *map) {
    const KeyIndex* blocked = nullptr;
    if (blocking) {
      auto it = blocking->find(key_idx);
      if (it != blocking->end()) blocked = &it->second;
    }
    for (auto it = index.begin(); it != index.end(); it = index.upper_bound(it->first)) {
      if (blocked && blocked->count(it->first)) continue;
      keep.insert(it->second);
    }
  }
  std::vector<Note> kept;
  kept.reserve(keep.size());
  for (const Note& note : *vector) {
    if (keep.count(&note)) kept.push_back(note);
  }
  *vector = std::move(kept);
  CreateMap(*vector, *map);
}

void NoteData::RemoveDuplicatesPermanent() {
  Guard guard(lock);
  // The candidates first, so that one standing on a note's key and step goes too.
  RemoveDuplicates(&candidates, &candidate_map, &note_map);
  RemoveDuplicates(&notes, &note_map, nullptr);
}

// ---------------------------------------------------------------------------------------------
// Staves

std::vector<Clef> NoteData::Staffs() const {
  Guard guard(lock);
  const SheetMusicSettings& settings = job->sheet_music_settings;
  if (settings.tablature) return {TAB};
  std::vector<Clef> staffs;
  if (settings.treble_clef_start_key_idx < clef_highest_bound) staffs.push_back(TREBLE);
  if (settings.treble_clef_start_key_idx > clef_lowest_bound) staffs.push_back(BASS);
  return staffs;
}

bool NoteData::HasClef(Clef clef) const {
  const std::vector<Clef> staffs = Staffs();
  return std::find(staffs.begin(), staffs.end(), clef) != staffs.end();
}

std::vector<Note*> NoteData::StaffNotes(Clef clef) {
  Guard guard(lock);
  SheetMusicSettings& settings = job->sheet_music_settings;
  std::vector<Note*> staff;
  for (Note& note : notes) {
    bool on_staff = false;
    if (settings.tablature) {
      on_staff = true;
    } else if (!settings.assign_clef_by_track) {
      if (clef == TREBLE) on_staff = note.key_idx >= settings.treble_clef_start_key_idx;
      if (clef == BASS) on_staff = note.key_idx < settings.treble_clef_start_key_idx;
    } else {
      // A group the table lacks is entered with the map's default, the treble staff.
      on_staff = settings.track_clefs[note.group] == clef;
    }
    if (on_staff) staff.push_back(&note);
  }
  return staff;
}

// ---------------------------------------------------------------------------------------------
// Triplets

std::set<int> NoteData::AllowedTripletSpans() const {
  Guard guard(lock);
  std::set<int> spans;
  if (smallest_notes_per_quarter >= 4) spans.insert(smallest_notes_per_quarter);
  if (smallest_notes_per_quarter >= 2) spans.insert(2 * smallest_notes_per_quarter);
  return spans;
}

NoteData::TripletsMap NoteData::GetTripletsMap(std::vector<Note>& vector) {
  Guard guard(lock);
  TripletsMap map;
  for (Note& note : vector) {
    if (note.triplet) map[note.triplet].push_back(&note);
  }
  return map;
}

void NoteData::RecalculateTriplets(const SpectrogramArea& area) {
  Guard guard(lock);
  const std::set<int> spans = AllowedTripletSpans();
  for (auto& [triplet, members] : GetTripletsMap(notes)) {
    if (!area.whole && (triplet->stop_time < area.first_time || triplet->start_time > area.last_time))
      continue;
    const MusicPosition start = GetClosestPosition(triplet->start_time, START);
    const MusicPosition stop = GetClosestPosition(triplet->stop_time, STOP);
    const Triplet::PositionPair stored = triplet->StartStop();
    const int measures = stop.measure_idx - start.measure_idx;
    const bool writable = spans.count(stop.position_idx - start.position_idx) && measures < 2 &&
                          (measures != 1 || stop.measure_position == 0);
    if (writable && start == stored.first && stop == stored.second) continue;
    if (writable) {
      // A finer or coarser grid moves every fine position; a triplet that still fits the new
      // grid is laid out on it anew. A new object, because undo records share the old one.
      auto moved = std::make_shared<Triplet>(start, stop, positions_per_step);
      if (moved->valid) {
        for (Note* note : members) note->triplet = moved;
        continue;
      }
    }
    // The notes keep their triplet_idx and fall back on their own positions.
    for (Note* note : members) note->triplet.reset();
  }
}

// ---------------------------------------------------------------------------------------------
// Index helpers

Note* NoteData::FindNote(NoteMap& map, int key_idx, int position_idx) {
  Guard guard(lock);
  auto key = map.find(key_idx);
  if (key == map.end()) return nullptr;
  auto it = key->second.find(position_idx);
  return it == key->second.end() ? nullptr : it->second;
}

Note* NoteData::FindExactNote(NoteMap& map, const Note& note) {
  Guard guard(lock);
  auto key = map.find(note.key_idx);
  if (key == map.end()) return nullptr;
  auto range = key->second.equal_range(note.MusicStart().position_idx);
  for (auto it = range.first; it != range.second; ++it) {
    if (it->second->start_time == note.start_time && it->second->stop_time == note.stop_time)
      return it->second;
  }
  return nullptr;
}

Note* NoteData::ExistingNote(int key_idx, int position_idx) {
  return FindNote(note_map, key_idx, position_idx);
}

std::set<unsigned long> NoteData::NoteIndices(const std::vector<Note*>& note_pointers) {
  Guard guard(lock);
  std::set<unsigned long> idxs;
  for (const Note* note : note_pointers) {
    if (note >= notes.data() && note < notes.data() + notes.size()) {
      idxs.insert(static_cast<unsigned long>(note - notes.data()));
    }
  }
  return idxs;
}

std::vector<Note*> NoteData::NotesFromIndices(const std::set<unsigned long>& note_idxs) {
  Guard guard(lock);
  std::vector<Note*> pointers;
  for (unsigned long idx : note_idxs) {
    if (idx < notes.size()) pointers.push_back(&notes[idx]);
  }
  return pointers;
}

void NoteData::AddToMap(NoteMap& map, Note* note) {
  Guard guard(lock);
  map[note->key_idx].emplace(note->MusicStart().position_idx, note);
}

bool NoteData::RemoveFromMap(NoteMap& map, Note* note) {
  Guard guard(lock);
  if (!note) return false;
  auto key = map.find(note->key_idx);
  if (key == map.end()) return false;
  KeyIndex& index = key->second;
  // Where it should be first, then anywhere in its key in case its start moved since.
  auto range = index.equal_range(note->MusicStart().position_idx);
  for (auto it = range.first; it != range.second; ++it) {
    if (it->second == note) {
      index.erase(it);
      return true;
    }
  }
  for (auto it = index.begin(); it != index.end(); ++it) {
    if (it->second == note) {
      index.erase(it);
      return true;
    }
  }
  return false;
}

void NoteData::CreateMap(std::vector<Note>& vector, NoteMap& map) {
  Guard guard(lock);
  map.clear();
  for (Note& note : vector) AddToMap(map, &note);
}

void NoteData::CreateMaps() {
  Guard guard(lock);
  CreateMap(notes, note_map);
  CreateMap(candidates, candidate_map);
}

std::vector<Note> NoteData::VectorFromMap(const NoteMap& map) {
  Guard guard(lock);
  std::vector<int> keys;
  size_t count = 0;
  for (const auto& [key_idx, index] : map) {
    keys.push_back(key_idx);
    count += index.size();
  }
  std::sort(keys.begin(), keys.end());
  std::vector<Note> vector;
  vector.reserve(count);
  for (int key_idx : keys) {
    for (const auto& [position_idx, note] : map.at(key_idx)) vector.push_back(*note);
  }
  return vector;
}

NoteData::NoteMap& NoteData::NotesMaps(bool candidates_map) {
  Guard guard(lock);
  return candidates_map ? candidate_map : note_map;
}
