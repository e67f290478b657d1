#pragma once

#include <QMutex>
#include <QObject>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "nn/all_in_window_net.h"
#include "score/job_tasks.h"
#include "score/note.h"

class TranscriptionJob;

// The note stage: runs the note network over the job's main spectrogram in overlapping
// windows, turns its onset probabilities into candidates, thins them, and hands those of
// score 0.5 and above to the job's notes and the rest to its candidates. Made per run on the
// worker thread; stop times are left automatic (0.0).
class Notes : public QObject {
  Q_OBJECT

 public:
  using JobPtr = std::shared_ptr<TranscriptionJob>;
  using NetOutput = std::vector<std::vector<std::vector<float>>>;

  // The stage. Returns at once for a cancelled job; without loaded network weights it shows
  // the weights error (naming the file) and cancels the job.
  void GetNotes(JobPtr job);
  // The job's window starts in frames: from -84, every 552, until the start reaches the end
  // of the main spectrogram; always at least one.
  void CalculateNoteFrames();
  // {1, 352, 720}: column c holds the main spectrogram's column start + c, zero outside it.
  Tensor GetInput(int window) const;
  // The body of the parallel run; worker `worker` owns nets[worker].
  void GetNoteGroupCandidates(int window, int worker);
  // Appends a candidate for every cell of channel 0 with a probability of at least 0.02, at the
  // time of frame start + 86 + 4t of output column t.
  void AddCandidatesFromNetOutput(const NetOutput& output, int window);
  // Every note's and candidate's velocity from the spectrogram, scaled to at most 127.
  void EstimateNoteVolumes();
  // Makes triplets where notes sit far nearer a triplet grid than the plain one.
  void DetectTriplets();

  // Removes near-duplicates of one key, 0.13 s apart or closer, from candidates sorted by key
  // (and here by start time within a key), by the index walk of the stage: the higher score
  // stays, the one looked at wins ties.
  static void ThinCandidates(std::vector<Note>* sorted);
  // The triplet walk over the notes' grid positions: every span of four consecutive positions
  // within one measure and of an allowed length whose notes all lie far nearer the triplet
  // grid than the plain one (or on its start) is offered to `create`, which says whether a
  // triplet was made. True if any was.
  static bool FindTriplets(std::vector<Note>& notes, const std::set<int>& spans,
                           const std::function<bool(const std::vector<Note*>&)>& create);
  // Scores below 0.5 to `low`, the others to `high`, keeping the order.
  static void SplitCandidates(const std::vector<Note>& sorted, std::vector<Note>* low,
                              std::vector<Note>* high);

  const int window_frames = 720;
  const int window_bands = 352;
  const int frames_per_group = 12;
  const int left_margin_groups = 7;
  const int right_margin_groups = 7;
  JobPtr job;
  QMutex mutex;  // guards `candidates`
  std::vector<Note> candidates;
  std::vector<AllInWindowNet> nets;
  // Spaces the accelerator's outputs that are read and the networks made for the workers.
  // Every window is read and every worker needs a network of its own, so it is 1.
  const int note_window_stride = 1;

 signals:
  void ProgressUpdate(std::shared_ptr<TranscriptionJob> job, JobTasks::Tasks task, int done, int count);
  void Message(std::string text, bool is_fatal);

 public slots:
  void MultithreadUpdate(int done);
  void OutOfMemory();

 private:
  int FirstWindowFrame() const { return -left_margin_groups * frames_per_group; }
  int WindowStride() const {
    return window_frames - (left_margin_groups + right_margin_groups) * frames_per_group;
  }
  void RunOnCpu(int windows);
  void RunOnAccelerator(int windows);
  // Makes the accepted notes a triplet if NoteData's rules allow it; true if one was made.
  bool MakeTriplet(const std::vector<Note*>& accepted);
  // Sorts, thins and splits `candidates` into the job's notes, then volumes and triplets.
  void PublishCandidates();
};
