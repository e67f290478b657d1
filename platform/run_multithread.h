#pragma once

#include <QObject>
#include <atomic>
#include <functional>
#include <mutex>

// The parallel-for of the program: runs `work(item, worker)` for every item in
// [0, count) on `num_threads` threads, handing out indices in order from one counter.
// Run() blocks the caller until every worker has ended. Connect ProgressUpdate (emitted
// on worker threads: the slot must only forward) and OutOfMemory (emitted on the
// runner's thread) with direct connections before Run().
class RunMultithread : public QObject {
  Q_OBJECT

 public:
  RunMultithread(int count, int num_threads, std::function<void(int, int)> work);

  void Run();
  // Yields the next index; false once the range is exhausted.
  bool GetWorkIndex(int* index);

 signals:
  void ProgressUpdate(int items_done);
  void OutOfMemory();

 private:
  int count;
  int num_threads;
  std::function<void(int, int)> work;
  int next_index = 0;
  std::mutex mutex;
  double last_percent = 0.0;
  double percent_step = 1.0;
  std::atomic<int> out_of_memory_reports{0};
};
