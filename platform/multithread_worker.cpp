#include "platform/multithread_worker.h"

#include <new>

MultithreadWorker::MultithreadWorker(int worker_index_, std::function<bool(int*)> get_work_,
                                     std::function<void(int, int)> work_)
    : worker_index(worker_index_), get_work(std::move(get_work_)), work(std::move(work_)) {}

void MultithreadWorker::run() {
  int index = 0;
  while (get_work(&index)) {
    try {
      work(index, worker_index);
    } catch (const std::bad_alloc&) {
      emit OutOfMemory();
      return;
    }
  }
}
