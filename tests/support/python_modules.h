#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>
#include <cstdlib>

// A Python that can import `modules` (as in "torch, numpy"), for the tests that compare our code
// with the reference models in training/: $TONEMILL_PYTHON, then Debian's, then the one on PATH.
// Empty when none can; the caller then skips with a visible notice.
inline QString PythonWithModules(const QString& modules) {
  QStringList candidates;
  if (const char* env = std::getenv("TONEMILL_PYTHON"); env && *env) candidates << env;
  candidates << "/usr/bin/python3" << "python3";
  for (const QString& python : candidates) {
    QProcess probe;
    probe.start(python, {"-c", "import " + modules});
    if (probe.waitForFinished(120000) && probe.exitStatus() == QProcess::NormalExit && probe.exitCode() == 0)
      return python;
  }
  return QString();
}
