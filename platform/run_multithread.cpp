#include "platform/run_multithread.h"

#include <memory>
#include <vector>

#include "platform/multithread_worker.h"

RunMultithread::RunMultithread(int count_, int num_threads_, std::function<void(int, int)> work_)
    : count(count_), num_threads(num_threads_), work(std::move(work_)) {}

void RunMultithread::Run() {
  if (num_threads < 1) return;
  std::vector<std::unique_ptr<MultithreadWorker>> workers;
  workers.reserve(num_threads);
  for (int i = 0; i < num_threads; ++i) {
    auto worker = std::make_unique<MultithreadWorker>(
        i, [this](int* index) { return GetWorkIndex(index); }, work);
    connect(worker.get(), &MultithreadWorker::OutOfMemory, this, [this] { ++out_of_memory_reports; },
            Qt::DirectConnection);
    worker->start(QThread::InheritPriority);
    workers.push_back(std::move(worker));
  }
  for (auto& worker : workers) worker->wait();
  // Out-of-memory is reported on the thread that owns the runner, once per failed worker,
  // after every worker has ended.
  for (int i = out_of_memory_reports; i > 0; --i) emit OutOfMemory();
}

bool RunMultithread::GetWorkIndex(int* index) {
  std::unique_lock<std::mutex> lock(mutex);
  if (next_index >= count) return false;
  const int i = next_index++;
  *index = i;
  const double percent = i * 100.0 / count;
  if (i == count - 1 || percent >= last_percent + percent_step) {
    last_percent = percent;
    lock.unlock();
    emit ProgressUpdate(i + 1);
  }
  return true;
}
