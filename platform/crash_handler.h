#pragma once

#include <QString>

namespace Breakpad {

// Writes a readable crash report ("<time>-<pid>.dmp": signal, backtrace, version) into the
// dump folder when the process dies of a fatal signal. A process-wide singleton.
class CrashHandler {
 public:
  static CrashHandler* instance();

  void Init(const QString& dump_path);
  // When true the system's own crash handling runs after the report is written.
  void setReportCrashesToSystem(bool report);
  // Writes a report of the current stack now, without crashing. False if it failed.
  bool writeMinidump();

  QString DumpPath() const { return dump_path_; }

 private:
  CrashHandler() = default;
  QString dump_path_;
};

}  // namespace Breakpad
