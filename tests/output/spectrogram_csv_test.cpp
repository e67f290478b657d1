#include "output/spectrogram_csv.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include "score/spectrogram.h"

namespace {

QByteArray ReadAll(const QString& path) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) return QByteArray();
  return file.readAll();
}

TEST(SpectrogramCsv, OneBandTwoColumnsGiveFourLines) {
  QTemporaryDir dir;
  Spectrogram grid;
  grid.time_step = 0.5;
  grid.Initialize(0.25, 1.25, 1.0);
  grid.num_freqs = 1;
  grid.frequencies = {27.5};
  grid.amplitudes = {{1.5f, 0.125f}};
  const QString path = dir.filePath("one.csv");
  ASSERT_TRUE(SpectrogramCsv::Write(grid, path));
  EXPECT_EQ(ReadAll(path), QByteArray("27.5\n0.25,0.75\n1.5\n0.125\n"));
}

TEST(SpectrogramCsv, WritesColumnsAsLinesWithSixSignificantDigits) {
  QTemporaryDir dir;
  Spectrogram grid;
  grid.time_step = 0.01;
  grid.Initialize(0.0, 0.03, 0.602);  // 53 bands, 3 columns
  grid.amplitudes[0][1] = 1234567.0f;
  grid.amplitudes[52][2] = 0.000012345678f;
  grid.amplitudes[1][0] = 3.0f;
  const QString path = dir.filePath("grid.csv");
  ASSERT_TRUE(SpectrogramCsv::Write(grid, path));
  const QList<QByteArray> lines = ReadAll(path).split('\n');
  ASSERT_EQ(lines.size(), 3 + 2 + 1);  // the last line feed leaves an empty piece
  EXPECT_TRUE(lines.last().isEmpty());
  const QList<QByteArray> freqs = lines[0].split(',');
  ASSERT_EQ(freqs.size(), 53);
  EXPECT_EQ(freqs[0], "27.5");
  EXPECT_EQ(lines[1], "0,0.01,0.02");
  const QList<QByteArray> first = lines[2].split(',');
  ASSERT_EQ(first.size(), 53);
  EXPECT_EQ(first[0], "0");
  EXPECT_EQ(first[1], "3");
  EXPECT_EQ(lines[3].split(',')[0], "1.23457e+06");
  EXPECT_EQ(lines[4].split(',')[52], "1.23457e-05");
}

TEST(SpectrogramCsv, TargetGetsTheExtensionUnlessItEndsInAnyCase) {
  EXPECT_EQ(SpectrogramCsv::TargetFilename("/out/song"), "/out/song.csv");
  EXPECT_EQ(SpectrogramCsv::TargetFilename("/out/song.csv"), "/out/song.csv");
  EXPECT_EQ(SpectrogramCsv::TargetFilename("/out/SONG.CSV"), "/out/SONG.CSV");
  EXPECT_EQ(SpectrogramCsv::TargetFilename("/out/song.csv.txt"), "/out/song.csv.txt.csv");
}

TEST(SpectrogramCsv, ReplacesAnExistingFileAndFailsOnAnUnwritablePath) {
  QTemporaryDir dir;
  const QString path = dir.filePath("old.csv");
  {
    QFile old(path);
    ASSERT_TRUE(old.open(QIODevice::WriteOnly));
    old.write(QByteArray(10000, 'x'));
  }
  Spectrogram grid;
  grid.time_step = 1.0;
  grid.Initialize(0.0, 1.0, 1.0);
  ASSERT_TRUE(SpectrogramCsv::Write(grid, path));
  EXPECT_FALSE(ReadAll(path).contains('x'));
  EXPECT_FALSE(SpectrogramCsv::Write(grid, dir.filePath("missing-folder/grid.csv")));

  // A damaged grid with rows lost and a short row writes what it has, zeros for the rest.
  grid.amplitudes.resize(2);
  grid.amplitudes[1].clear();
  ASSERT_TRUE(SpectrogramCsv::Write(grid, path));
  EXPECT_EQ(ReadAll(path).split('\n')[2], "0,0");
}

}  // namespace
