#include "platform/version.h"

#include <QStringList>

QString Version::ToString() const {
  return QString("%1.%2.%3").arg(major).arg(minor).arg(patch);
}

std::string Version::ToStdString() const { return ToString().toStdString(); }

Version Version::FromString(const QString& text) {
  const QStringList parts = text.split('.');
  auto part = [&](int i) { return i < parts.size() ? parts[i].toInt() : 0; };
  return Version(part(0), part(1), part(2));
}
