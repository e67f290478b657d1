#pragma once

#include <QThread>
#include <functional>

// One worker of RunMultithread: takes item indices from `get_work` until it says no and
// runs `work(item, worker_index)` on each.
class MultithreadWorker : public QThread {
  Q_OBJECT

 public:
  MultithreadWorker(int worker_index, std::function<bool(int*)> get_work, std::function<void(int, int)> work);

  int worker_index;
  std::function<bool(int*)> get_work;
  std::function<void(int, int)> work;

 signals:
  // The body ran out of memory; this worker has stopped.
  void OutOfMemory();

 protected:
  void run() override;
};
