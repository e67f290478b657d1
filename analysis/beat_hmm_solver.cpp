#include "analysis/beat_hmm_solver.h"

#include <algorithm>
#include <cmath>

#include "analysis/beat_hmm.h"
#include "analysis/beat_state_space.h"
#include "platform/language_strings.h"
#include "platform/run_multithread.h"
#include "score/transcription_job.h"

namespace {

// Measure lengths tried, in this order; on equal likelihood the first wins.
constexpr int kMeasureLengths[] = {3, 4};

float Strength(const std::vector<float>& row) {
  const float beat = row.size() > 0 ? row[0] : 0.0f;
  const float downbeat = row.size() > 1 ? row[1] : 0.0f;
  return std::max(beat, downbeat);
}

// The next time when extending a list outwards: 2 * edge - inner repeats the end interval.
// A hand-made list may hold beats at equal or reversed times; those are extended by 0.5 s
// outwards instead, so that the extension always ends.
double ExtendBefore(double first, double second) {
  return second - first >= 0.01 ? 2.0 * first - second : first - 0.5;
}

double ExtendAfter(double last, double second_last) {
  return last - second_last >= 0.01 ? 2.0 * last - second_last : last + 0.5;
}

}  // namespace

int BeatHMMSolver::NextBeatNumber(int number, int beats_per_measure) {
  return number < beats_per_measure ? number + 1 : 1;
}

int BeatHMMSolver::PreviousBeatNumber(int number, int beats_per_measure) {
  return number >= 2 ? number - 1 : beats_per_measure;
}

void BeatHMMSolver::OutOfMemory() {
  if (!job) return;
  TranscriptionJob::Cancel(job);
  emit Message(job->language.OUT_OF_MEMORY, false);
}

void BeatHMMSolver::Calculate(const std::vector<std::vector<float>>& activations,
                              std::shared_ptr<TranscriptionJob> job_) {
  job = job_;
  const BeatStateSpace beat_space;
  std::vector<BeatHMM> hmms;
  for (int beats : kMeasureLengths) hmms.emplace_back(beats, beat_space);

  RunMultithread runner(static_cast<int>(hmms.size()), std::max(job->thread_count, 1),
                        [&](int item, int) { hmms[item].Calculate(activations); });
  connect(&runner, &RunMultithread::ProgressUpdate, this, &BeatHMMSolver::ProgressUpdate, Qt::DirectConnection);
  connect(&runner, &RunMultithread::OutOfMemory, this, &BeatHMMSolver::OutOfMemory, Qt::DirectConnection);
  runner.Run();
  if (job->cancelled) {
    job.reset();
    return;
  }

  const BeatHMM* hmm = &hmms[0];
  for (const BeatHMM& other : hmms)
    if (other.log_probability > hmm->log_probability) hmm = &other;
  const std::vector<int>& path = hmm->path;
  const std::vector<int>& pointers = hmm->observations.pointers;

  if (path.empty()) {
    emit LogStep("DwnBt path empty!");
  } else {
    std::vector<int> numbers(path.size());
    for (size_t f = 0; f < path.size(); ++f)
      numbers[f] = static_cast<int>(hmm->space.state_positions[path[f]]) + 1;

    // Region starts and ends alternate: a region is a run of frames in a beat's first sixteenth.
    std::vector<int> regions;
    if (pointers[path[0]] > 0) regions.push_back(0);
    for (size_t f = 1; f < path.size(); ++f)
      if ((pointers[path[f - 1]] > 0) != (pointers[path[f]] > 0)) regions.push_back(static_cast<int>(f));

    const int last_state = path.back();
    emit LogStep(QString("DwnBt IDX=%1, size1=%2, size2=%3")
                     .arg(last_state)
                     .arg(path.size())
                     .arg(pointers.size()));
    if (last_state > 0 && last_state < static_cast<int>(pointers.size()) && pointers[last_state] > 0)
      regions.push_back(static_cast<int>(path.size()));

    for (size_t i = 0; i + 1 < regions.size(); i += 2) {
      const int start = regions[i] + hmm->first_frame;
      const int end = regions[i + 1] + hmm->first_frame;
      int best = start;
      for (int frame = start + 1; frame < end; ++frame)
        if (Strength(activations[frame]) > Strength(activations[best])) best = frame;
      job->beats.emplace_back(numbers[best - hmm->first_frame], best * 0.01 + job->start_time);
    }
  }

  EnsureMinimumBeats(hmm->num_beats, job);
  job->beats.front().time_signature_top = hmm->num_beats;
  job->beats.front().time_signature_bottom = 4;
  job->beats_analyzer.Set();
  job.reset();
}

void BeatHMMSolver::EnsureMinimumBeats(int beats_per_measure, std::shared_ptr<TranscriptionJob> job) {
  const int n = std::max(beats_per_measure, 1);
  std::vector<Beat>& beats = job->beats;
  if (beats.empty()) beats.emplace_back(1, job->start_time);
  if (beats.size() == 1) beats.emplace_back(NextBeatNumber(beats[0].number, n), beats[0].time + 0.5);

  // Prepend in one go. A number above the measure length (only a hand-made list has one)
  // walks down from the measure length, not from the number.
  std::vector<Beat> front;
  double first = beats[0].time;
  double second = beats[1].time;
  int number = std::min(beats[0].number, n + 1);
  while (number != 1) {
    number = PreviousBeatNumber(number, n);
    const double time = ExtendBefore(first, second);
    front.emplace_back(number, time);
    second = first;
    first = time;
  }
  beats.insert(beats.begin(), front.rbegin(), front.rend());

  const double stop_time = std::isfinite(job->end_time) ? job->end_time : beats.back().time;
  while (beats.back().time <= stop_time || beats.back().number != 1) {
    const Beat& last = beats.back();
    const Beat next(NextBeatNumber(last.number, n), ExtendAfter(last.time, beats[beats.size() - 2].time));
    beats.push_back(next);
  }
}
