#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <csignal>

#include "platform/crash_handler.h"

namespace {

QByteArray OnlyReport(const QString& folder) {
  const QStringList dumps = QDir(folder).entryList({"*.dmp"}, QDir::Files);
  if (dumps.size() != 1) return QByteArray();
  QFile file(QDir(folder).filePath(dumps.first()));
  file.open(QIODevice::ReadOnly);
  return file.readAll();
}

TEST(CrashHandlerTest, ReportOnDemandNamesVersionAndStack) {
  QTemporaryDir dir;
  Breakpad::CrashHandler::instance()->Init(dir.path());
  ASSERT_TRUE(Breakpad::CrashHandler::instance()->writeMinidump());
  const QByteArray report = OnlyReport(dir.path());
  EXPECT_TRUE(report.contains("version: 4.16.0")) << report.toStdString();
  EXPECT_TRUE(report.contains("backtrace:"));
}

TEST(CrashHandlerDeathTest, FatalSignalLeavesAReport) {
  // The child shares this process's state, the report folder included.
  GTEST_FLAG_SET(death_test_style, "fast");
  QTemporaryDir dir;
  const QString folder = dir.path();
  EXPECT_DEATH(
      {
        Breakpad::CrashHandler::instance()->Init(folder);
        Breakpad::CrashHandler::instance()->setReportCrashesToSystem(false);
        std::raise(SIGSEGV);
      },
      "");
  const QByteArray report = OnlyReport(folder);
  EXPECT_TRUE(report.contains("signal: 11")) << report.toStdString();
}

}  // namespace
