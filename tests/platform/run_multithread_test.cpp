#include <gtest/gtest.h>

#include <QCoreApplication>
#include <atomic>
#include <mutex>
#include <new>
#include <set>
#include <thread>
#include <vector>

#include "platform/run_multithread.h"
#include "platform/thread_signal.h"

namespace {

// Runs `count` items on `threads` workers; returns how often each item ran and the
// progress reports.
struct Outcome {
  std::vector<int> runs;
  std::vector<int> reports;
  std::set<int> workers;
  int out_of_memory = 0;
};

Outcome RunItems(int count, int threads, std::function<void(int)> extra = nullptr) {
  Outcome outcome;
  outcome.runs.assign(std::max(count, 0), 0);
  std::mutex mutex;
  RunMultithread runner(count, threads, [&](int item, int worker) {
    if (extra) extra(item);
    std::lock_guard<std::mutex> lock(mutex);
    ++outcome.runs[item];
    outcome.workers.insert(worker);
  });
  QObject::connect(&runner, &RunMultithread::ProgressUpdate, [&](int done) {
    std::lock_guard<std::mutex> lock(mutex);
    outcome.reports.push_back(done);
  });
  QObject::connect(&runner, &RunMultithread::OutOfMemory, [&] { ++outcome.out_of_memory; });
  runner.Run();
  return outcome;
}

TEST(RunMultithreadTest, NoItemsNoReports) {
  const Outcome o = RunItems(0, 4);
  EXPECT_TRUE(o.reports.empty());
  EXPECT_TRUE(o.workers.empty());
}

TEST(RunMultithreadTest, OneItemOneReport) {
  const Outcome o = RunItems(1, 2);
  EXPECT_EQ(o.runs, std::vector<int>{1});
  EXPECT_EQ(o.reports, std::vector<int>{1});
}

TEST(RunMultithreadTest, EveryItemRunsExactlyOnceWithAReportPerPercent) {
  const Outcome o = RunItems(1000, 3);
  for (int runs : o.runs) ASSERT_EQ(runs, 1);
  // One report at each whole percent above zero (items 10, 20, ... 990) and one for the last item.
  EXPECT_EQ(o.reports.size(), 100u);
  EXPECT_NE(std::find(o.reports.begin(), o.reports.end(), 1000), o.reports.end());
  EXPECT_NE(std::find(o.reports.begin(), o.reports.end(), 11), o.reports.end());
  EXPECT_EQ(std::set<int>(o.reports.begin(), o.reports.end()).size(), o.reports.size());
}

TEST(RunMultithreadTest, SurplusWorkersEndAtOnce) {
  const Outcome o = RunItems(3, 8);
  EXPECT_EQ(o.runs, (std::vector<int>{1, 1, 1}));
  EXPECT_LE(o.workers.size(), 3u);
}

TEST(RunMultithreadTest, NoWorkersLeaveItemsUndone) {
  const Outcome o = RunItems(5, 0);
  EXPECT_EQ(o.runs, std::vector<int>(5, 0));
}

TEST(RunMultithreadTest, OutOfMemoryIsReportedAndOthersGoOn) {
  // Item 3 fails; the worker that took it stops, the other finishes the rest.
  const Outcome o = RunItems(50, 2, [](int item) {
    if (item == 3) throw std::bad_alloc();
  });
  EXPECT_EQ(o.out_of_memory, 1);
  EXPECT_EQ(o.runs[3], 0);
  int done = 0;
  for (int runs : o.runs) done += runs;
  EXPECT_EQ(done, 49);
}

TEST(ThreadSignalTest, WaitReturnsOnceFinishedUntilReset) {
  ThreadSignal signal;
  std::thread finisher([&] { signal.Finished(); });
  signal.Wait();
  finisher.join();
  signal.Wait();  // still finished: returns at once
  EXPECT_TRUE(signal.IsFinished());
  signal.Reset();
  EXPECT_FALSE(signal.IsFinished());
  std::thread later([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    signal.Finished();
  });
  signal.Wait();
  later.join();
}

}  // namespace
