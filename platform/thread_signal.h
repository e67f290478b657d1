#pragma once

#include <condition_variable>
#include <mutex>

// A completion event: Wait blocks until Finished has been called, and keeps returning at
// once until Reset.
class ThreadSignal {
 public:
  void Wait();
  void Finished();
  void Reset();
  bool IsFinished();

 private:
  bool finished = false;
  std::condition_variable condition;
  std::mutex mutex;
};
