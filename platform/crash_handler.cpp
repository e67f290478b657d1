#include "platform/crash_handler.h"

#include <execinfo.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <QDir>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "platform/constants.h"

namespace Breakpad {
namespace {

// Filled once in Init, read by the signal handler, which may not allocate.
char g_dump_folder[4096] = {0};
char g_version[32] = {0};
std::atomic<bool> g_report_to_system{true};
std::atomic<bool> g_handling{false};
const int kSignals[] = {SIGSEGV, SIGABRT, SIGFPE, SIGILL, SIGBUS};

void WriteText(int fd, const char* text) {
  ssize_t ignored = write(fd, text, strlen(text));
  (void)ignored;
}

// Formats an unsigned number without the C library's locale machinery.
void WriteNumber(int fd, unsigned long value) {
  char digits[24];
  int n = 0;
  do {
    digits[n++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value && n < 23);
  char out[24];
  for (int i = 0; i < n; ++i) out[i] = digits[n - 1 - i];
  out[n] = 0;
  WriteText(fd, out);
}

bool WriteReport(int signal_number) {
  if (!g_dump_folder[0]) return false;
  char path[4200];
  const unsigned long now = static_cast<unsigned long>(time(nullptr));
  snprintf(path, sizeof(path), "%s/%lu-%d.dmp", g_dump_folder, now, static_cast<int>(getpid()));
  const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) return false;
  WriteText(fd, "Tonemill crash report\nversion: ");
  WriteText(fd, g_version);
  WriteText(fd, "\nsignal: ");
  WriteNumber(fd, static_cast<unsigned long>(signal_number));
  if (signal_number > 0) {
    WriteText(fd, " (");
    WriteText(fd, strsignal(signal_number));
    WriteText(fd, ")");
  }
  WriteText(fd, "\ntime: ");
  WriteNumber(fd, now);
  WriteText(fd, "\nbacktrace:\n");
  void* frames[128];
  const int depth = backtrace(frames, 128);
  backtrace_symbols_fd(frames, depth, fd);
  close(fd);
  return true;
}

void HandleSignal(int signal_number) {
  if (!g_handling.exchange(true)) WriteReport(signal_number);
  if (g_report_to_system) {
    signal(signal_number, SIG_DFL);
    raise(signal_number);
  } else {
    _exit(128 + signal_number);
  }
}

}  // namespace

CrashHandler* CrashHandler::instance() {
  static CrashHandler handler;
  return &handler;
}

void CrashHandler::Init(const QString& dump_path) {
  dump_path_ = dump_path;
  QDir().mkpath(dump_path);
  snprintf(g_dump_folder, sizeof(g_dump_folder), "%s", QDir(dump_path).absolutePath().toLocal8Bit().constData());
  snprintf(g_version, sizeof(g_version), "%s", Constants::sw_version.ToStdString().c_str());
  // Load the unwinder now: backtrace() allocates on its first call.
  void* warm_up[1];
  backtrace(warm_up, 1);
  for (int s : kSignals) {
    struct sigaction action;
    memset(&action, 0, sizeof(action));
    action.sa_handler = HandleSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESETHAND;
    sigaction(s, &action, nullptr);
  }
}

void CrashHandler::setReportCrashesToSystem(bool report) { g_report_to_system = report; }

bool CrashHandler::writeMinidump() { return WriteReport(0); }

}  // namespace Breakpad
