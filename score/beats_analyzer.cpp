#include "score/beats_analyzer.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <limits>
#include <stdexcept>

#include "score/note_data.h"
#include "score/transcription_job.h"

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
// A time signature beyond this many beats to the measure is refused rather than built.
constexpr int kMaxBeatsPerMeasure = 256;

bool CarriesSignatureOrKey(const Beat& beat) {
  return beat.time_signature_top != 0 || beat.time_signature_bottom != 0 ||
         beat.key_signature != Beat::kNoKeyChange;
}

}  // namespace

BeatsAnalyzer::BeatsAnalyzer(TranscriptionJob* job_) : job(job_) {}

std::vector<Beat>& BeatsAnalyzer::Beats() const { return job->beats; }

long BeatsAnalyzer::BeatIndex(const Beat* beat) const {
  const std::vector<Beat>& beats = Beats();
  if (!beat || beats.empty() || beat < beats.data() || beat >= beats.data() + beats.size()) return -1;
  return static_cast<long>(beat - beats.data());
}

size_t BeatsAnalyzer::CheckedIndex(const Beat& beat) const {
  const long idx = BeatIndex(&beat);
  if (idx < 0) throw std::out_of_range("BeatsAnalyzer: beat is not in the job's beat list");
  return static_cast<size_t>(idx);
}

void BeatsAnalyzer::Set() {
  std::vector<Beat>& beats = Beats();
  measures.clear();
  measure_start_quarters.clear();
  time_signatures.clear();
  key_signatures.clear();
  beat_measures.clear();
  beat_tempos.clear();
  beat_quarters.clear();
  beat_measures.reserve(beats.size());
  beat_tempos.reserve(beats.size());
  beat_quarters.reserve(beats.size());

  int tempo = 0, top = 0, bottom = 0, key = Beat::kNoKeyChange, measure_idx = -1;
  double quarters = 0.0;
  for (size_t i = 0; i < beats.size(); ++i) {
    Beat& beat = beats[i];
    const bool last = i + 1 == beats.size();
    // A change to what already holds is no change: the beat itself forgets it.
    if (beat.tempo == tempo) beat.tempo = 0;
    if (beat.time_signature_top == top) beat.time_signature_top = 0;
    if (beat.time_signature_bottom == bottom) beat.time_signature_bottom = 0;
    if (beat.key_signature == key) beat.key_signature = Beat::kNoKeyChange;
    if (beat.tempo != 0) tempo = beat.tempo;
    if (beat.time_signature_top != 0) top = beat.time_signature_top;
    if (beat.time_signature_bottom != 0) bottom = beat.time_signature_bottom;
    if (beat.key_signature != Beat::kNoKeyChange) key = beat.key_signature;

    if (beat.number == 1) {
      ++measure_idx;
      if (!last) measures.emplace_back();
      // The sentinel can add an entry here although it opens no measure.
      measure_start_quarters.push_back(quarters);
      time_signatures.emplace_back(top, bottom);
      key_signatures.push_back(key);
    }
    if (!last && !measures.empty()) measures.back().push_back(&beat);
    beat_tempos.push_back(tempo);
    beat_measures.push_back(measure_idx);
    beat_quarters.push_back(quarters);
    // A list that never says its bottom is not valid input; count its beats as quarters
    // rather than divide by zero.
    quarters += bottom > 0 ? 4.0 / bottom : 1.0;
  }
  job->notes.Recalculate();
  job->SetHasUnsavedChanges(true, true);
}

void BeatsAnalyzer::Install(std::vector<Beat>&& beats) {
  job->beats = std::move(beats);
  Set();
  emit RedrawBeats();
}

void BeatsAnalyzer::SetBeats(const std::vector<Beat>& beats) {
  if (&beats != &job->beats) job->beats = beats;
  Set();
  emit RedrawBeats();
}

int BeatsAnalyzer::RunLength(int measure_idx) const {
  int run = 1;
  while (measure_idx + run < static_cast<int>(measures.size()) &&
         time_signatures[measure_idx + run] == time_signatures[measure_idx]) {
    ++run;
  }
  return run;
}

void BeatsAnalyzer::DoubleMeasures(int measure_idx, bool all_following) {
  std::vector<Beat>& beats = Beats();
  if (measure_idx < 0 || measure_idx >= static_cast<int>(measures.size())) return;
  const int last_doubled = all_following ? measure_idx + RunLength(measure_idx) - 1 : measure_idx;

  std::vector<Beat> doubled;
  doubled.reserve(beats.size() * 2);
  int number = 0;
  int beats_per_measure = 0;
  for (size_t i = 0; i + 1 < beats.size(); ++i) {
    const int m = beat_measures[i];
    if (m < measure_idx || m > last_doubled) {
      doubled.push_back(beats[i]);
      continue;
    }
    if (&beats[i] == measures[m].front()) {
      number = 0;
      beats_per_measure =
          time_signatures[m].first > 0 ? time_signatures[m].first : static_cast<int>(measures[m].size());
    }
    // Each beat, then a copy half way to the next one, both numbered on in the old signature.
    Beat half = beats[i];
    half.time = (beats[i].time + beats[i + 1].time) / 2.0;
    for (Beat* written : {&beats[i], &half}) {
      doubled.push_back(*written);
      number = number % beats_per_measure + 1;
      doubled.back().number = number;
    }
  }
  doubled.push_back(beats.back());
  for (size_t i = 1; i < doubled.size(); ++i) {
    if (doubled[i].time - doubled[i - 1].time < min_beat_spacing) {
      std::cout << "Unable to double beats. Too closely spaced." << std::endl;
      return;
    }
  }
  Install(std::move(doubled));
}

void BeatsAnalyzer::HalveMeasures(int measure_idx) {
  std::vector<Beat>& beats = Beats();
  // The last measure cannot start a halving.
  if (measure_idx < 0 || measure_idx >= static_cast<int>(measures.size()) - 1) return;
  const int run = RunLength(measure_idx);
  if (run == 1) return;
  // An odd last measure of the run stays as it is.
  const int range_end = measure_idx + run - run % 2;

  std::vector<Beat> halved;
  halved.reserve(beats.size());
  bool drop_next = true;
  for (size_t i = 0; i + 1 < beats.size(); ++i) {
    const int m = beat_measures[i];
    const bool in_range = m >= measure_idx && m < range_end;
    if (!in_range || &beats[i] == measures[measure_idx].front()) {
      halved.push_back(beats[i]);
      continue;
    }
    if (!drop_next) halved.push_back(beats[i]);
    drop_next = !drop_next;
  }

  int top = time_signatures.empty() ? 0 : time_signatures.front().first;
  int number = 0;
  for (Beat& beat : halved) {
    if (beat.time_signature_top != 0) top = beat.time_signature_top;
    const int wrap = top > 0 ? top : 4;
    number = number >= wrap ? 1 : number + 1;
    beat.number = number;
  }
  halved.push_back(beats.back());
  Install(std::move(halved));
}

void BeatsAnalyzer::DeleteMeasure(int measure_idx) {
  std::vector<Beat>& beats = Beats();
  const int measure_count = static_cast<int>(measures.size());
  if (measure_idx < 0 || measure_count < 2 || measure_idx >= measure_count) return;

  std::vector<Beat> edited = beats;
  const Beat& deleted_first = *measures[measure_idx].front();
  const size_t deleted_begin = BeatIndex(&deleted_first);
  const size_t deleted_end = deleted_begin + measures[measure_idx].size();

  if (measure_idx + 1 < measure_count) {
    // The next measure takes over whatever the deleted one changed and it does not.
    Beat& next_first = edited[BeatIndex(measures[measure_idx + 1].front())];
    if (next_first.time_signature_top == 0) next_first.time_signature_top = deleted_first.time_signature_top;
    if (next_first.time_signature_bottom == 0) {
      next_first.time_signature_bottom = deleted_first.time_signature_bottom;
    }
    if (next_first.tempo == 0) next_first.tempo = deleted_first.tempo;
    if (next_first.key_signature == Beat::kNoKeyChange)
      next_first.key_signature = deleted_first.key_signature;
  }
  if (measure_idx > 0) {
    // One neighbour stretches across the gap: the measure before the last, otherwise the one
    // after. Its beats are spread evenly from the earlier start to the beat after the later one.
    const int stretched = measure_idx == measure_count - 1 ? measure_idx - 1 : measure_idx + 1;
    const int earlier = std::min(stretched, measure_idx);
    const int later = std::max(stretched, measure_idx);
    const double start = measures[earlier].front()->time;
    const size_t after_later = BeatIndex(measures[later].back()) + 1;
    const double end = beats[after_later].time;
    const size_t first = BeatIndex(measures[stretched].front());
    const size_t count = measures[stretched].size();
    for (size_t i = 0; i < count; ++i) edited[first + i].time = start + i * (end - start) / count;
  }
  edited.erase(edited.begin() + deleted_begin, edited.begin() + deleted_end);
  Install(std::move(edited));
}

void BeatsAnalyzer::SetTimeSignatureTop(int beat_idx, int value) {
  std::vector<Beat>& beats = Beats();
  beats.at(beat_idx);
  if (value < 1 || value > kMaxBeatsPerMeasure) return;
  const int measure_idx = beat_measures.at(beat_idx);
  bool pinned = false;
  for (int m = measure_idx + 1; m < static_cast<int>(measures.size()); ++m) {
    pinned |= CarriesSignatureOrKey(*measures[m].front());
  }
  if (pinned && measure_idx >= 0) {
    SetTimeSignatureTopPinned(beat_idx, value);
  } else {
    SetTimeSignatureTopFree(beat_idx, value);
  }
}

bool BeatsAnalyzer::SetTimeSignatureTopPinned(size_t beat_idx, int value) {
  // Later changes of signature or key are pinned to their measures, so the measures up to the
  // next signature keep their bar lines and are divided anew.
  std::vector<Beat>& beats = Beats();
  const int first_measure = beat_measures[beat_idx];
  const size_t begin = BeatIndex(measures[first_measure].front());
  std::vector<Beat> edited(beats.begin(), beats.begin() + begin);
  int m = first_measure;
  for (; m < static_cast<int>(measures.size()); ++m) {
    const Beat& first = *measures[m].front();
    if (m > first_measure && (first.time_signature_top != 0 || first.time_signature_bottom != 0)) break;
    const double start = first.time;
    const double end =
        m + 1 < static_cast<int>(measures.size()) ? measures[m + 1].front()->time : beats.back().time;
    if ((end - start) / value < min_beat_spacing) {
      std::cout << "Unable to change time signature. Beats too closely spaced." << std::endl;
      return false;
    }
    edited.push_back(first);
    if (m == first_measure) edited.back().time_signature_top = value;
    for (int k = 1; k < value; ++k) edited.emplace_back(k + 1, start + k * (end - start) / value);
  }
  if (m < static_cast<int>(measures.size())) {
    edited.insert(edited.end(), beats.begin() + BeatIndex(measures[m].front()), beats.end() - 1);
  }
  edited.push_back(beats.back());
  Install(std::move(edited));
  return true;
}

void BeatsAnalyzer::SetTimeSignatureTopFree(size_t beat_idx, int value) {
  // Beat times stay; only the bar lines move.
  std::vector<Beat>& beats = Beats();
  std::vector<Beat> edited(beats.begin(), beats.begin() + beat_idx);
  edited.push_back(beats[beat_idx]);
  edited.back().time_signature_top = value;
  const size_t last = beats.size() - 1;
  for (size_t i = beat_idx + 1; i < last; ++i) {
    Beat beat = beats[i];
    beat.number = edited.back().number >= value ? 1 : edited.back().number + 1;
    beat.time_signature_top = 0;
    beat.time_signature_bottom = 0;
    beat.key_signature = Beat::kNoKeyChange;
    if (beat.number != 1) beat.tempo = 0;
    edited.push_back(beat);
  }
  const double step = edited.size() > 1 ? edited.back().time - edited[edited.size() - 2].time : 1.0;
  // The last measure is filled up to the new length.
  while (edited.back().number < value)
    edited.emplace_back(edited.back().number + 1, edited.back().time + step);
  Beat sentinel = beats.back();
  if (edited.back().time + step >= sentinel.time) sentinel.time = edited.back().time + step;
  edited.push_back(sentinel);
  Install(std::move(edited));
}

void BeatsAnalyzer::SetTimeSignatureBottom(int beat_idx, int value) {
  Beats().at(beat_idx).time_signature_bottom = value;
  Set();
  emit RedrawBeats();
}

void BeatsAnalyzer::SetTempo(int beat_idx, int value) {
  Beats().at(beat_idx).tempo = value;
  Set();
  emit RedrawBeats();
}

void BeatsAnalyzer::SetKeySignature(int beat_idx, int value) {
  Beats().at(beat_idx).key_signature = value;
  Set();
  emit RedrawBeats();
}

std::pair<double, double> BeatsAnalyzer::BeatMoveInterpolationBounds(unsigned long beat_idx) {
  const std::vector<Beat>& beats = Beats();
  if (beat_idx >= beats.size() || beat_idx >= beat_measures.size()) return {-kInfinity, kInfinity};
  const unsigned long last = beats.size() - 1;
  if (beats[beat_idx].number == 1) {
    // A downbeat stretches the measure before it and its own.
    const int m = beat_measures[beat_idx];
    const int measure_count = static_cast<int>(measures.size());
    const double lower = m > 0 && m - 1 < measure_count ? measures[m - 1].front()->time : -kInfinity;
    double upper = kInfinity;
    if (beat_idx != last) upper = m + 1 < measure_count ? measures[m + 1].front()->time : beats.back().time;
    return {lower, upper};
  }
  return {beat_idx > 0 ? beats[beat_idx - 1].time : -kInfinity,
          beat_idx < last ? beats[beat_idx + 1].time : kInfinity};
}

std::set<unsigned long> BeatsAnalyzer::BeatMoveAffectedBeats(unsigned long beat_idx, bool all_following) {
  const std::vector<Beat>& beats = Beats();
  std::set<unsigned long> affected;
  if (beat_idx >= beats.size() || beat_idx >= beat_measures.size()) return affected;
  if (all_following) {
    for (unsigned long i = beat_idx; i < beats.size(); ++i) affected.insert(i);
    return affected;
  }
  affected.insert(beat_idx);
  if (beats[beat_idx].number != 1) return affected;
  const int m = beat_measures[beat_idx];
  const int measure_count = static_cast<int>(measures.size());
  if (m > 0 && m - 1 < measure_count) {
    for (size_t i = 1; i < measures[m - 1].size(); ++i) affected.insert(BeatIndex(measures[m - 1][i]));
  }
  if (m >= 0 && m < measure_count) {
    for (const Beat* beat : measures[m]) affected.insert(BeatIndex(beat));
  }
  return affected;
}

std::pair<double, double> BeatsAnalyzer::BeatMoveBounds(unsigned long beat_idx,
                                                        const std::pair<double, double>& interpolation_bounds,
                                                        bool all_following,
                                                        const std::set<unsigned long>& affected) {
  const std::vector<Beat>& beats = Beats();
  if (beat_idx >= beats.size()) return interpolation_bounds;
  const double t = beats[beat_idx].time;
  const double lo = interpolation_bounds.first;
  const double hi = interpolation_bounds.second;
  double lower, upper;
  if (all_following) {
    lower = beat_idx > 0 ? beats[beat_idx - 1].time + min_beat_spacing : lo;
    upper = t + 100.0;
  } else {
    lower = lo + min_beat_spacing;
    upper = hi - min_beat_spacing;
    // Each beat that stretches with the drag must keep its distance from its neighbours.
    for (unsigned long a : affected) {
      if (a == beat_idx || a >= beats.size()) continue;
      const double a_time = beats[a].time;
      const bool after = a_time >= t;
      const double span = after ? hi - a_time : a_time - lo;
      if (!(span > 0.0) || std::isinf(span)) continue;
      const double rate = after ? (hi - t) / span : (t - lo) / span;
      for (long n : {static_cast<long>(a) + 1, static_cast<long>(a) - 1}) {
        if (n < 0 || n >= static_cast<long>(beats.size())) continue;
        if (after) {
          const double factor = std::fabs((beats[n].time - hi) / span + 1.0);
          if (factor > 0.0) upper = std::min(upper, hi - min_beat_spacing / factor * rate);
        } else {
          const double factor = std::fabs((lo - beats[n].time) / span + 1.0);
          if (factor > 0.0) lower = std::max(lower, min_beat_spacing / factor * rate + lo);
        }
      }
    }
  }
  // A drag can always stay where it is.
  return {std::min(lower, t), std::max(upper, t)};
}

void BeatsAnalyzer::MoveBeat(unsigned long beat_idx, double new_time, bool all_following,
                             const std::pair<double, double>& interpolation_bounds,
                             const std::set<unsigned long>& affected,
                             const std::set<unsigned long>& affected_notes, bool update_all_notes) {
  std::vector<Beat>& beats = Beats();
  if (beat_idx >= beats.size()) return;
  const double old_time = beats[beat_idx].time;
  const double lo = interpolation_bounds.first;
  const double hi = interpolation_bounds.second;
  for (unsigned long a : affected) {
    if (a >= beats.size()) continue;
    double& time = beats[a].time;
    if (all_following) {
      time += new_time - old_time;
    } else if (a == beat_idx) {
      time = new_time;
    } else if (time < old_time) {
      // The grid between the bound and the dragged beat stretches evenly; the bound stays.
      if (std::isfinite(lo) && lo != old_time)
        time = (time - old_time) / (lo - old_time) * (lo - new_time) + new_time;
    } else if (std::isfinite(hi) && hi != old_time) {
      time = (time - old_time) / (hi - old_time) * (hi - new_time) + new_time;
    }
  }
  if (update_all_notes) {
    job->notes.UpdatePositions(SpectrogramArea());
    job->SetHasUnsavedChanges(true, true);
  } else {
    job->notes.UpdateNotePositions(affected_notes);
  }
  emit RepositionBeats(affected);
}

void BeatsAnalyzer::ShiftBeats(int direction) {
  std::vector<Beat>& beats = Beats();
  const size_t size = beats.size();
  if (size < 3) return;
  if (direction < 0) {
    if (beats[1].time - beats[0].time < 1e-10) return;
    for (size_t i = size - 2; i >= 2; --i) beats[i].time = beats[i - 1].time;
    beats[1].time = (beats[0].time + beats[1].time) / 2.0;
  } else {
    if (beats.back().time - beats[1].time < 1e-10) return;
    for (size_t i = 1; i + 2 < size; ++i) beats[i].time = beats[i + 1].time;
    beats[size - 2].time = (beats[size - 2].time + beats.back().time) / 2.0;
  }
  job->SetHasUnsavedChanges(true, true);
  Set();
  emit RedrawBeats();
}

double BeatsAnalyzer::CalculatedTempo(Beat& beat) {
  const std::vector<Beat>& beats = Beats();
  const size_t i = CheckedIndex(beat);
  if (beats.size() < 2) return 0.0;
  const size_t from = i + 1 < beats.size() ? i : i - 1;
  const int m = beat_measures.at(from);
  const int bottom = m >= 0 ? time_signatures.at(m).second : 4;
  const double interval = beats[from + 1].time - beats[from].time;
  if (interval <= 0.0 || bottom <= 0) return 0.0;
  return 240.0 / (interval * bottom);
}

double BeatsAnalyzer::EstimateTempo(Beat& beat) {
  const std::vector<Beat>& beats = Beats();
  const long i = static_cast<long>(CheckedIndex(beat));
  std::vector<std::pair<long, long>> intervals;
  if (i > 0) intervals.emplace_back(i - 1, i);
  for (long k = 0; k < 3; ++k) intervals.emplace_back(i + k, i + k + 1);
  if (i == 0) intervals.emplace_back(3, 4);
  double sum = 0.0;
  int used = 0;
  for (const auto& [from, to] : intervals) {
    if (to >= static_cast<long>(beats.size())) continue;
    const int m = beat_measures.at(from);
    const int bottom = m >= 0 ? time_signatures.at(m).second : 4;
    const double interval = beats[to].time - beats[from].time;
    if (interval <= 0.0 || bottom <= 0) continue;
    sum += 240.0 / (interval * bottom);
    ++used;
  }
  return used > 0 ? sum / used : 0.0;
}

int BeatsAnalyzer::Tempo(Beat& beat) { return beat_tempos.at(CheckedIndex(beat)); }

std::pair<int, int> BeatsAnalyzer::TimeSignature(Beat& beat) {
  return time_signatures.at(beat_measures.at(CheckedIndex(beat)));
}

int BeatsAnalyzer::KeySignature(Beat& beat) {
  return key_signatures.at(beat_measures.at(CheckedIndex(beat)));
}

Beat* BeatsAnalyzer::NextBeat(Beat& beat) {
  const size_t i = CheckedIndex(beat);
  return i + 1 < Beats().size() ? &Beats()[i + 1] : nullptr;
}

Beat* BeatsAnalyzer::PreviousBeat(Beat& beat) {
  const size_t i = CheckedIndex(beat);
  return i > 0 ? &Beats()[i - 1] : nullptr;
}

double BeatsAnalyzer::BeatEndTime(Beat& beat) {
  const Beat* next = NextBeat(beat);
  return next ? next->time : beat.time + 0.1;
}

int BeatsAnalyzer::MeasureIndex(Beat& beat) { return beat_measures.at(CheckedIndex(beat)); }

const std::vector<Beat*>& BeatsAnalyzer::Measure(Beat& beat) { return measures.at(MeasureIndex(beat)); }

Beat* BeatsAnalyzer::NextMeasure(Beat& beat) {
  const int m = MeasureIndex(beat) + 1;
  return m >= 0 && m < static_cast<int>(measures.size()) ? measures[m].front() : nullptr;
}

Beat* BeatsAnalyzer::PreviousMeasure(Beat& beat) {
  const int m = MeasureIndex(beat) - 1;
  return m >= 0 && m < static_cast<int>(measures.size()) ? measures[m].front() : nullptr;
}

int BeatsAnalyzer::MeasureBeats(Beat& beat) { return static_cast<int>(Measure(beat).size()); }

std::pair<double, double> BeatsAnalyzer::MeasureStartEndTimes(Beat& beat) {
  const int m = MeasureIndex(beat);
  const double start = measures.at(m).front()->time;
  const double end =
      m + 1 < static_cast<int>(measures.size()) ? measures[m + 1].front()->time : Beats().back().time;
  return {start, end};
}

double BeatsAnalyzer::PositionQuarters(Beat& beat) { return beat_quarters.at(CheckedIndex(beat)); }

std::string BeatsAnalyzer::KeyName(int fifths) const {
  static const char* const kLetters[] = {"C", "G", "D", "A", "E", "B", "F", "C",
                                         "G", "D", "A", "E", "B", "F", "C"};
  if (fifths < -7 || fifths > 7) return std::string();
  std::string name = kLetters[fifths + 7];
  if (fifths <= -2) name += symbols.flat;  // C flat to B flat
  if (fifths >= 6) name += symbols.sharp;  // F sharp and C sharp
  return name;
}
