#pragma once

#include <QString>

class Spectrogram;

// The spectrogram as a plain text matrix for analysis outside the program: a line of band
// frequencies (Hz), a line of column times (s), then one line per column with the amplitude
// of every band, as stored. Numbers have six significant digits, separated by ",".
class SpectrogramCsv {
 public:
  // `filename` with ".csv" appended unless it already ends so, in any case.
  static QString TargetFilename(const QString& filename);
  // Writes `grid` to `filename` as it stands, replacing the file. False if it cannot be
  // opened or fully written.
  static bool Write(const Spectrogram& grid, const QString& filename);
};
