#include "platform/thread_signal.h"

void ThreadSignal::Wait() {
  std::unique_lock<std::mutex> lock(mutex);
  while (!finished) condition.wait(lock);
}

void ThreadSignal::Finished() {
  {
    std::lock_guard<std::mutex> lock(mutex);
    finished = true;
  }
  condition.notify_all();
}

void ThreadSignal::Reset() {
  std::lock_guard<std::mutex> lock(mutex);
  finished = false;
}

bool ThreadSignal::IsFinished() {
  std::lock_guard<std::mutex> lock(mutex);
  return finished;
}
