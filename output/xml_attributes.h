#pragma once

#include <QString>
#include <vector>

#include "output/xml_base.h"

namespace xml {

// <key>: the signature in fifths and its mode.
class Key : public XmlBase {
 public:
  Key();
  int fifths = 0;
  QString mode = QStringLiteral("major");
};

// <time>: the time signature.
class Time : public XmlBase {
 public:
  Time();
  int beats = 4;
  int beat_type = 4;
};

// <clef number="..">: sign G, F or TAB on a staff line counted from the bottom.
class Clef : public XmlBase {
 public:
  explicit Clef(int number);
  QString sign;
  int line = 2;
};

// <staff-lines>: the number of lines of a staff.
class StaffLines : public XmlBase {
 public:
  StaffLines();
  int lines = 5;
};

// <staff-tuning line="..">: the open pitch of the string on that tablature line.
class StaffTuning : public XmlBase {
 public:
  StaffTuning(int line, const QString& step, int alter, int octave);
  QString tuning_step;
  int tuning_alter;
  int tuning_octave;
};

// <staff-details>: line count and string tunings of a tablature staff.
class StaffDetails : public XmlBase {
 public:
  StaffDetails();
  StaffTuning* AddStaffTuning(int line, const QString& step, int alter, int octave);
  StaffLines staff_lines;
  std::vector<XmlBase*> tunings;
};

// <attributes>: every child is optional and shows only once set.
class Attributes : public XmlBase {
 public:
  Attributes();

  void SetDivisions(int value);
  void SetKey(int fifths, const QString& mode);
  void SetTime(int beats, int beat_type);
  void SetStaves(int value);
  Clef* AddClef(int number, const QString& sign, int line);
  StaffDetails* AddStaffDetails();
  bool HasKey() const { return key.visible; }
  bool HasTime() const { return time.visible; }

  int divisions = 0;
  Key key;
  Time time;
  int staves = 1;
  std::vector<XmlBase*> clefs;
  std::vector<XmlBase*> staff_details;

 private:
  XmlBase* divisions_element;
  XmlBase* staves_element;
};

}  // namespace xml
