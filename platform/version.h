#pragma once

#include <QString>
#include <string>

// The three-part program version.
struct Version {
  int major = 0;
  int minor = 0;
  int patch = 0;

  constexpr Version(int major_, int minor_, int patch_) : major(major_), minor(minor_), patch(patch_) {}

  QString ToString() const;
  std::string ToStdString() const;
  // major * 1000000 + minor * 1000 + patch: versions compare as plain ints.
  int ToInt() const { return major * 1000000 + minor * 1000 + patch; }
  // Parses "a.b.c"; missing or unreadable parts read as 0.
  static Version FromString(const QString& text);
};
