#pragma once

#include <QMetaType>

// A rectangle on the grid in keys (0 to 87) and seconds, bounds inclusive. The default
// area is the whole song.
class SpectrogramArea {
 public:
  SpectrogramArea() = default;
  SpectrogramArea(double first_key, double last_key, double first_time, double last_time);

  bool Contains(int key, double time) const;

  bool whole = true;
  double first_key = 0.0;
  double last_key = 0.0;
  double first_time = 0.0;
  double last_time = 0.0;
};

Q_DECLARE_METATYPE(SpectrogramArea)
