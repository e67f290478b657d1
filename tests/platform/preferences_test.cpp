#include <gtest/gtest.h>

#include <QDir>
#include <QSettings>
#include <QTemporaryDir>
#include <QThread>

#include "platform/preferences.h"

namespace {

class PreferencesTest : public ::testing::Test {
 protected:
  QString File() const { return dir.filePath("Preferences.ini"); }
  QTemporaryDir dir;
};

TEST_F(PreferencesTest, FirstRunHasTheDefaults) {
  Preferences p(File(), "Deutsch");
  EXPECT_EQ(p.default_song_folder, QDir::homePath());
  EXPECT_TRUE(p.use_internal_viewer);
  EXPECT_FALSE(p.use_local_browser);
  EXPECT_EQ(p.thread_count, QThread::idealThreadCount());
  EXPECT_EQ(p.highest_note_idx, 87);
  EXPECT_EQ(p.instrument, "Piano");
  EXPECT_EQ(p.treble_clef_start_key_idx, 39);
  EXPECT_EQ(p.frets, 1);  // -1 read as a flag
  EXPECT_EQ(p.midi_instrument, 0);
  EXPECT_EQ(p.midi_constant_volume, 64);
  EXPECT_EQ(p.language_string, "Deutsch");
  EXPECT_EQ(p.volume, 75);
  EXPECT_EQ(p.vertical_zoom, 35);
  EXPECT_DOUBLE_EQ(p.ui_scale_factor, 1.0);
  EXPECT_TRUE(p.string_keys.isEmpty());
  EXPECT_TRUE(p.recent_files.isEmpty());
}

TEST_F(PreferencesTest, SaveThenLoadRoundTrips) {
  {
    Preferences p(File());
    p.thread_count = 3;
    p.octave_shift = -1;
    p.instrument = QString::fromUtf8("Violín");
    p.string_keys = {7, 12, 17, 22, 26, 31};
    p.recent_files = QStringList{"/a/one.mp3", "/b/two, with comma.tmpj"};
    p.mainWindowGeometry = QByteArray("\x01\x00\xff", 3);
    p.playback_line_offset = -0.25;
    p.do_re_mi = true;
    p.language_string = "Nederlands";
    p.Save();
  }
  Preferences q(File(), "English");
  EXPECT_EQ(q.thread_count, 3);
  EXPECT_EQ(q.octave_shift, -1);
  EXPECT_EQ(q.instrument, QString::fromUtf8("Violín"));
  EXPECT_EQ(q.string_keys, (QList<int>{7, 12, 17, 22, 26, 31}));
  EXPECT_EQ(q.recent_files, (QStringList{"/a/one.mp3", "/b/two, with comma.tmpj"}));
  EXPECT_EQ(q.mainWindowGeometry, QByteArray("\x01\x00\xff", 3));
  EXPECT_DOUBLE_EQ(q.playback_line_offset, -0.25);
  EXPECT_TRUE(q.do_re_mi);
  EXPECT_EQ(q.language_string, "Nederlands");
}

TEST_F(PreferencesTest, BothViewerFlagsMeanTheBrowser) {
  {
    QSettings s(File(), QSettings::IniFormat);
    s.setValue("use_internal_viewer", true);
    s.setValue("use_local_browser", true);
  }
  Preferences p(File());
  EXPECT_FALSE(p.use_internal_viewer);
  EXPECT_TRUE(p.use_local_browser);
}

TEST_F(PreferencesTest, FretsAreAFlagAndBadValuesFallBack) {
  {
    QSettings s(File(), QSettings::IniFormat);
    s.setValue("frets", 0);
    s.setValue("thread_count", "many");
    s.setValue("string_keys", "not a list");
    s.setValue("volume", "50");
  }
  Preferences p(File());
  EXPECT_EQ(p.frets, 0);
  EXPECT_EQ(p.volume, 50);
  EXPECT_EQ(p.thread_count, QThread::idealThreadCount());
  EXPECT_TRUE(p.string_keys.isEmpty());

  {
    QSettings s(File(), QSettings::IniFormat);
    s.setValue("frets", 19);  // a real count does not survive: it reads as the flag
  }
  EXPECT_EQ(Preferences(File()).frets, 1);
}

TEST_F(PreferencesTest, GarbageFileGivesDefaults) {
  QFile f(File());
  ASSERT_TRUE(f.open(QIODevice::WriteOnly));
  f.write(QByteArray(4096, '\xff'));
  f.write("\n[[[\n=====\nthread_count\n");
  f.close();
  Preferences p(File());
  EXPECT_EQ(p.highest_note_idx, 87);
  EXPECT_TRUE(p.show_notes);
}

TEST_F(PreferencesTest, ExternalViewerTakesTheMuseScorePathWhenItsOwnIsGone) {
  const QString program = dir.filePath("viewer-program");
  QFile(program).open(QIODevice::WriteOnly);
  {
    QSettings s(File(), QSettings::IniFormat);
    s.setValue("muse_score_path", program);
    s.setValue("external_viewer_path", dir.filePath("gone"));
  }
  Preferences p(File());
  EXPECT_EQ(p.muse_score_path, program);
  EXPECT_EQ(p.external_viewer_path, program);
}

}  // namespace
