#include "platform/memory_stats.h"

#include <fstream>
#include <string>

namespace {

// Reads one "Name:   value kB" line of a /proc status file; -1 when absent.
long ReadProcValueKb(const char* path, const std::string& name) {
  std::ifstream in(path);
  std::string key;
  long value = 0;
  std::string unit;
  while (in >> key >> value) {
    std::getline(in, unit);
    if (key == name + ":") return value;
  }
  return -1;
}

}  // namespace

bool MemoryStats(int* total_mb, int* available_mb, int* process_mb) {
#if defined(__linux__)
  const long total = ReadProcValueKb("/proc/meminfo", "MemTotal");
  const long available = ReadProcValueKb("/proc/meminfo", "MemAvailable");
  if (total < 0 || available < 0) return false;
  const long resident = ReadProcValueKb("/proc/self/status", "VmRSS");
  if (total_mb) *total_mb = static_cast<int>(total / 1024);
  if (available_mb) *available_mb = static_cast<int>(available / 1024);
  if (process_mb) *process_mb = resident < 0 ? 0 : static_cast<int>(resident / 1024);
  return true;
#else
  (void)total_mb;
  (void)available_mb;
  (void)process_mb;
  return false;
#endif
}
