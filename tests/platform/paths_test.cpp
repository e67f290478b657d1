#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "platform/file_names.h"
#include "platform/paths.h"
#include "platform/version.h"

namespace {

TEST(PathsTest, PlainFolderLayout) {
  QTemporaryDir app, data;
  QDir(app.path()).mkpath("TM_resources/languages");
  const QString data_folder = data.filePath("nested/Tonemill");
  Paths paths(app.path(), data_folder);
  EXPECT_EQ(paths.resources_path, QDir(app.filePath("TM_resources")).absolutePath());
  EXPECT_EQ(paths.languages_path, QDir(app.filePath("TM_resources/languages")).absolutePath());
  EXPECT_EQ(paths.piano_key_prefix, QDir(app.path()).absoluteFilePath("TM_resources/piano_key_"));
  EXPECT_TRUE(QDir(data_folder).exists());  // created
  EXPECT_EQ(paths.preferences_file, QDir(data_folder).absoluteFilePath("Preferences.ini"));
  EXPECT_EQ(paths.temp_crash_log, QDir(data_folder).absoluteFilePath(".temp_crash_log.dat"));
  EXPECT_EQ(paths.temporary_xml, QDir(data_folder).absoluteFilePath("temporary_file.xml"));
  // Two folders up from the data folder, then the system's report folder.
  EXPECT_EQ(paths.crash_reports_path, QDir(data.path()).absoluteFilePath("Logs/DiagnosticReports"));
}

TEST(PathsTest, BundleLayoutAndMissingResourcesStillResolve) {
  QTemporaryDir root, data;
  QDir(root.path()).mkpath("Contents/MacOS");
  QDir(root.path()).mkpath("Contents/Resources/TM_resources");
  Paths bundle(root.filePath("Contents/MacOS"), data.path());
  EXPECT_EQ(bundle.resources_path, QDir(root.filePath("Contents/Resources/TM_resources")).absolutePath());

  QTemporaryDir bare;
  Paths plain(bare.path(), data.path());
  EXPECT_EQ(plain.resources_path, QDir(bare.path()).absolutePath());
}

TEST(FileNamesTest, EnsureFoldersExistCreatesEachFolder) {
  QTemporaryDir dir;
  EnsureFoldersExist({dir.filePath("a/b/out.musicxml"), "", dir.filePath("c/out.mid")});
  EXPECT_TRUE(QDir(dir.filePath("a/b")).exists());
  EXPECT_TRUE(QDir(dir.filePath("c")).exists());
}

TEST(FileNamesTest, ChangeExtension) {
  EXPECT_EQ(ChangeExtension("/x/song.mp3", "tmpj"), "/x/song.tmpj");
  EXPECT_EQ(ChangeExtension("/x/song.final.wav", "mid"), "/x/song.final.mid");
  EXPECT_EQ(ChangeExtension("/x/song", "csv"), "/x/song.csv");
}

TEST(VersionTest, TextAndNumber) {
  const Version v(4, 16, 0);
  EXPECT_EQ(v.ToString(), "4.16.0");
  EXPECT_EQ(v.ToInt(), 4016000);
  EXPECT_LT(Version(4, 9, 999).ToInt(), Version(4, 10, 0).ToInt());
  EXPECT_EQ(Version::FromString("3.2").ToInt(), 3002000);
  EXPECT_EQ(Version::FromString("garbage").ToInt(), 0);
}

}  // namespace
