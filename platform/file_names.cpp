#include "platform/file_names.h"

#include <QDir>
#include <QFileInfo>

void EnsureFoldersExist(const std::vector<QString>& filenames) {
  for (const QString& name : filenames) {
    if (name.isEmpty()) continue;
    const QDir folder = QFileInfo(name).absoluteDir();
    if (!folder.exists()) QDir().mkpath(folder.absolutePath());
  }
}

QString ChangeExtension(const QString& filename, const QString& extension) {
  const QFileInfo info(filename);
  const QString suffix = info.suffix();
  QString stem = filename;
  if (!suffix.isEmpty()) stem.chop(suffix.size() + 1);
  return stem + "." + extension;
}
