#include "output/spectrogram_csv.h"

#include <QFile>
#include <QTextStream>
#include <algorithm>
#include <vector>

#include "score/spectrogram.h"

QString SpectrogramCsv::TargetFilename(const QString& filename) {
  return filename.toLower().endsWith(".csv") ? filename : filename + ".csv";
}

namespace {

// One line of values; the stream writes them out as it goes, so a long song never sits in
// memory as text.
template <typename Values>
void WriteLine(QTextStream& stream, const Values& values, int count) {
  for (int i = 0; i < count; ++i) {
    if (i > 0) stream << ',';
    stream << QString::number(static_cast<double>(values[i]), 'g', 6);
  }
  stream << '\n';
}

}  // namespace

bool SpectrogramCsv::Write(const Spectrogram& grid, const QString& filename) {
  QFile file(filename);
  if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) return false;
  QTextStream stream(&file);
  stream.setCodec("UTF-8");
  // Lines end in a bare line feed on every platform.
  const int num_freqs = std::min(
      {grid.num_freqs, static_cast<int>(grid.frequencies.size()), static_cast<int>(grid.amplitudes.size())});
  const int num_times = std::min<int>(grid.num_times, static_cast<int>(grid.times.size()));
  WriteLine(stream, grid.frequencies, num_freqs);
  WriteLine(stream, grid.times, num_times);
  std::vector<float> column(num_freqs);
  for (int t = 0; t < num_times; ++t) {
    for (int f = 0; f < num_freqs; ++f) {
      const std::vector<float>& row = grid.amplitudes[f];
      column[f] = t < static_cast<int>(row.size()) ? row[t] : 0.0f;
    }
    WriteLine(stream, column, num_freqs);
  }
  stream.flush();
  const bool ok = stream.status() == QTextStream::Ok && file.error() == QFileDevice::NoError;
  file.close();
  return ok;
}
