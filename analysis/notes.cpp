#include "analysis/notes.h"

#include <QLibrary>
#include <QMutexLocker>
#include <algorithm>
#include <cmath>
#include <iostream>
#include <map>
#include <mutex>

#include "analysis/estimate_note_volume.h"
#include "nn/cuda_library.h"
#include "nn/note_net_weights.h"
#include "platform/language_strings.h"
#include "platform/run_multithread.h"
#include "score/keyboard.h"
#include "score/note_positions.h"
#include "score/note_sort.h"
#include "score/transcription_job.h"

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace {

constexpr double kMinCandidateScore = 0.02;
constexpr float kNoteScore = 0.5f;
constexpr double kDuplicateSeconds = 0.13;

// Every layer of a window allocates its output anew. While the stage runs, freed memory stays
// with the process instead of being returned and faulted in again for the next layer; the
// usual trimming comes back afterwards.
class KeepHeapDuringStage {
 public:
  KeepHeapDuringStage() {
#if defined(__GLIBC__)
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
#endif
  }
  ~KeepHeapDuringStage() {
#if defined(__GLIBC__)
    mallopt(M_TRIM_THRESHOLD, 128 * 1024);
    malloc_trim(0);
#endif
  }
  KeepHeapDuringStage(const KeepHeapDuringStage&) = delete;
  KeepHeapDuringStage& operator=(const KeepHeapDuringStage&) = delete;
};

}  // namespace

void Notes::CalculateNoteFrames() {
  std::vector<int>& windows = job->note_windows;
  windows.clear();
  const int end = job->display_spectrogram.num_times;
  int start = FirstWindowFrame();
  do {
    windows.push_back(start);
    start += WindowStride();
  } while (start < end);
}

Tensor Notes::GetInput(int window) const {
  Tensor input({1, window_bands, window_frames});
  const Spectrogram& grid = job->display_spectrogram;
  const int start = job->note_windows.at(window);
  const int first = std::max(0, -start);
  const int bands = std::min(window_bands, static_cast<int>(grid.amplitudes.size()));
  for (int band = 0; band < bands; ++band) {
    const std::vector<float>& row = grid.amplitudes[band];
    const int last = std::min({window_frames, grid.num_times - start, static_cast<int>(row.size()) - start});
    float* out = input.data[0][band].data();
    for (int c = first; c < last; ++c) out[c] = row[start + c];
  }
  return input;
}

void Notes::GetNoteGroupCandidates(int window, int worker) {
  if (job->cancelled) return;
  AllInWindowNet& net = nets.at(worker);
  const Tensor output = net.Process(GetInput(window));
  AddCandidatesFromNetOutput(output.data, window);
}

void Notes::AddCandidatesFromNetOutput(const NetOutput& output, int window) {
  if (output.empty()) return;
  const std::vector<std::vector<float>>& onsets = output[0];
  const std::vector<double>& times = job->display_spectrogram.times;
  const int start = job->note_windows.at(window);
  const int keys = std::min(Keyboard::kNumKeys, static_cast<int>(onsets.size()));
  const int columns = onsets.empty() ? 0 : static_cast<int>(onsets[0].size());
  const double margin = left_margin_groups * frames_per_group;
  const double column_frames = frames_per_group / 3.0;
  std::vector<Note> found;
  for (int t = 0; t < columns; ++t) {
    const int frame = start + static_cast<int>(margin + 0.5 + (t + 0.5) * column_frames);
    if (frame < 0) continue;
    if (frame >= static_cast<int>(times.size())) break;
    const double time = times[frame];
    for (int k = 0; k < keys; ++k) {
      if (t >= static_cast<int>(onsets[k].size())) continue;
      const float p = onsets[k][t];
      if (static_cast<double>(p) < kMinCandidateScore) continue;
      Note note;
      note.key_idx = k;
      note.frequency = Keyboard::key_freqs_[k];
      note.start_time = time;
      note.score = p;
      found.push_back(note);
    }
  }
  QMutexLocker lock(&mutex);
  candidates.insert(candidates.end(), found.begin(), found.end());
}

void Notes::GetNotes(JobPtr job_) {
  if (!job_ || job_->cancelled) return;
  job = std::move(job_);
  if (!NetWeightsLoaded()) {
    const std::string& prefix = job->language.FILE_READ_FAILED;
    emit Message(prefix.empty() ? NetWeightsError() : prefix + "\n" + NetWeightsError(), false);
    TranscriptionJob::Cancel(job);
    job.reset();
    return;
  }
  CalculateNoteFrames();
  const int windows = static_cast<int>(job->note_windows.size());
  emit ProgressUpdate(job, JobTasks::kNotes, 0, windows);
  {
    QMutexLocker lock(&mutex);
    candidates.clear();
  }
  {
    KeepHeapDuringStage keep_heap;
    if (CudaIsAvailable()) {
      RunOnAccelerator(windows);
    } else {
      RunOnCpu(windows);
    }
  }
  if (job->cancelled) {
    candidates.clear();
    job.reset();
    return;
  }
  PublishCandidates();
  EstimateNoteVolumes();
  DetectTriplets();
  job.reset();
}

void Notes::RunOnCpu(int windows) {
  const int threads = std::max(1, job->thread_count);
  nets.clear();
  for (int i = 0; i < threads; i += note_window_stride)
    nets.emplace_back(window_frames, frames_per_group, left_margin_groups, right_margin_groups);
  RunMultithread runner(windows, threads,
                        [this](int item, int worker) { GetNoteGroupCandidates(item, worker); });
  connect(&runner, &RunMultithread::ProgressUpdate, this, &Notes::MultithreadUpdate, Qt::DirectConnection);
  connect(&runner, &RunMultithread::OutOfMemory, this, &Notes::OutOfMemory, Qt::DirectConnection);
  runner.Run();
  nets.clear();
}

void Notes::RunOnAccelerator(int windows) {
  std::cout << "Using cuda" << std::endl;
  QLibrary library(QString::fromStdString(CudaLibPath()));
  const auto run_net = reinterpret_cast<RunNetFunction>(library.resolve("RunNet"));
  if (!run_net) {
    // The library answered IsAvailable a moment ago; should it vanish now, the CPU does the work.
    std::cout << library.errorString().toStdString() << std::endl;
    RunOnCpu(windows);
    return;
  }
  emit ProgressUpdate(job, JobTasks::kNotes, 1, 1);
  std::vector<Tensor> inputs;
  inputs.reserve(windows);
  for (int w = 0; w < windows; ++w) inputs.push_back(GetInput(w));
  std::vector<NetOutput> outputs;
  run_net(GetNetWeights(), inputs, 1, outputs);
  const int answered = std::min(windows, static_cast<int>(outputs.size()));
  for (int i = 0; i < answered; i += note_window_stride) AddCandidatesFromNetOutput(outputs[i], i);
  emit ProgressUpdate(job, JobTasks::kNotes, 1, 1);
}

void Notes::PublishCandidates() {
  // Key first, as the stage requires; start time within a key makes the thinning independent
  // of the order in which the workers finished.
  std::sort(candidates.begin(), candidates.end(), SortByKeyStartScore);
  ThinCandidates(&candidates);
  std::vector<Note> low;
  std::vector<Note> high;
  SplitCandidates(candidates, &low, &high);
  job->notes.SetNotesCandidatesPermanent(low, high);
  candidates.clear();
  job->notes.RemoveDuplicatesPermanent();
}

void Notes::ThinCandidates(std::vector<Note>* sorted) {
  std::vector<Note>& all = *sorted;
  const size_t count = all.size();
  std::vector<char> keep(count, 1);
  // The walk goes by index over the whole vector; erasing inside one key's run shifts only
  // that run, so each run is walked as a list of its living members. When a winner erased a
  // member before it, "the next index" lies one further on and may reach into the next run:
  // `carry` is where the walk enters the next run.
  size_t carry = 0;
  std::vector<size_t> members;
  for (size_t begin = 0; begin < count;) {
    size_t end = begin;
    while (end < count && all[end].key_idx == all[begin].key_idx) ++end;
    members.clear();
    for (size_t m = begin; m < end; ++m) members.push_back(m);
    size_t i = carry;
    while (i < members.size()) {
      const double time = all[members[i]].start_time;
      // Members are in time order, so those within reach form one stretch around i; the first
      // of them in group order is the partner.
      const auto first = std::partition_point(members.begin(), members.end(), [&](size_t m) {
        return std::fabs(time - all[m].start_time) > kDuplicateSeconds && all[m].start_time < time;
      });
      size_t j = static_cast<size_t>(first - members.begin());
      if (j == i) ++j;
      if (j >= members.size() || std::fabs(time - all[members[j]].start_time) > kDuplicateSeconds) {
        ++i;
        continue;
      }
      if (all[members[i]].score >= all[members[j]].score) {
        keep[members[j]] = 0;
        members.erase(members.begin() + static_cast<std::ptrdiff_t>(j));
        ++i;
      } else {
        keep[members[i]] = 0;
        members.erase(members.begin() + static_cast<std::ptrdiff_t>(i));
      }
    }
    carry = i - members.size();
    begin = end;
  }
  size_t out = 0;
  for (size_t n = 0; n < count; ++n)
    if (keep[n]) {
      if (out != n) all[out] = std::move(all[n]);
      ++out;
    }
  all.resize(out);
}

void Notes::SplitCandidates(const std::vector<Note>& sorted, std::vector<Note>* low,
                            std::vector<Note>* high) {
  for (const Note& note : sorted) (note.score < kNoteScore ? low : high)->push_back(note);
}

void Notes::EstimateNoteVolumes() {
  std::lock_guard<std::recursive_mutex> lock(job->notes.lock);
  std::vector<Note>& notes = job->notes.GetNotes();
  std::vector<Note>& candidate_notes = job->notes.GetCandidates();
  int largest = 0;
  for (std::vector<Note>* list : {&notes, &candidate_notes})
    for (Note& note : *list) {
      note.volume = EstimateNoteVolume(note, job->display_spectrogram);
      largest = std::max(largest, note.volume);
    }
  if (largest < 128) return;
  const double factor = 127.0 / largest;
  job->amplitude_scale = factor;
  for (std::vector<Note>* list : {&notes, &candidate_notes})
    for (Note& note : *list) note.volume = static_cast<int>(note.volume * factor + 0.5);
}

bool Notes::FindTriplets(std::vector<Note>& notes, const std::set<int>& spans,
                         const std::function<bool(const std::vector<Note*>&)>& create) {
  std::set<MusicPosition> ordered;
  for (const Note& note : notes) {
    ordered.insert(note.MusicStart());
    ordered.insert(note.MusicStop());
  }
  const std::vector<MusicPosition> positions(ordered.begin(), ordered.end());
  bool changed = false;
  size_t i = 0;
  while (i + 3 < positions.size()) {
    const MusicPosition& a = positions[i];
    const MusicPosition& b = positions[i + 3];
    if (a.measure_idx != b.measure_idx || spans.count(b.position_idx - a.position_idx) == 0) {
      ++i;
      continue;
    }
    const double third = (b.time - a.time) * 0.3333333333333333;
    std::vector<Note*> accepted;
    bool given_up = false;
    for (Note& note : notes) {
      if (note.MusicStart() < a || note.MusicStop() > b) continue;
      if (note.triplet) {
        given_up = true;
        break;
      }
      if (note.MusicStart() == a) {
        accepted.push_back(&note);
        continue;
      }
      // How far the onset lies from the plain grid, and from the triplet grid from a.
      const double d = std::fabs(note.start_time - note.MusicStart().time);
      const double x = note.start_time - a.time;
      const double g = std::fabs(x - std::trunc(x / third + 0.5) * third);
      if (!(d / (d + 1e-07 + g) >= 0.92)) {
        given_up = true;
        break;
      }
      accepted.push_back(&note);
    }
    if (!given_up && create(accepted)) {
      changed = true;
      i += 3;
    } else {
      ++i;
    }
  }
  return changed;
}

bool Notes::MakeTriplet(const std::vector<Note*>& accepted) {
  // What NoteData::TryCreateTriplet(accepted, true) decides and does, without the undo record
  // (the pipeline clears the undo history when the job ends). The note edits of NoteData take
  // this over once they offer it.
  NoteData& data = job->notes;
  if (accepted.size() < 3) return false;
  for (const Note* note : accepted)
    if (note->triplet) return false;
  std::map<MusicPosition, std::vector<Note*>> by_position;
  const auto [earliest, latest] = NotePositions(accepted, &by_position);
  if (by_position.size() != 3 ||
      data.AllowedTripletSpans().count(latest.position_idx - earliest.position_idx) == 0)
    return false;
  auto triplet = std::make_shared<Triplet>(earliest, latest, data.positions_per_step);
  if (!triplet->valid) return false;
  int index = 0;
  for (auto& [position, notes_here] : by_position) {
    for (Note* note : notes_here) {
      note->triplet = triplet;
      note->triplet_idx = index;
    }
    ++index;
  }
  // Notes are filed under their start, which now lies on the triplet's grid.
  data.CreateMaps();
  return true;
}

void Notes::DetectTriplets() {
  NoteData& data = job->notes;
  std::lock_guard<std::recursive_mutex> lock(data.lock);
  const bool changed =
      FindTriplets(data.GetNotes(), data.AllowedTripletSpans(),
                   [&](const std::vector<Note*>& accepted) { return MakeTriplet(accepted); });
  if (changed) data.SetNoteAutoStops();
}

void Notes::MultithreadUpdate(int done) {
  emit ProgressUpdate(job, JobTasks::kNotes, done, static_cast<int>(job->note_windows.size()));
}

void Notes::OutOfMemory() {
  TranscriptionJob::Cancel(job);
  emit Message(job->language.OUT_OF_MEMORY, true);
}
