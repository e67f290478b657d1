#pragma once

#include <QString>
#include <memory>

#include "output/xml_attributes.h"
#include "output/xml_base.h"
#include "output/xml_note.h"

namespace xml {

// <staff-layout number=".."> with the distance to the staff above, in tenths.
class StaffLayout : public XmlBase {
 public:
  explicit StaffLayout(int number);
  double staff_distance = 0.0;
};

// <print>: layout of the first measure. The schema puts the staff layout before the numbering.
class Print : public XmlBase {
 public:
  Print();
  StaffLayout staff_layout;
  QString measure_numbering = QStringLiteral("none");
};

// <metronome parentheses="..">: beat unit and beats per minute.
class Metronome : public XmlBase {
 public:
  explicit Metronome(const QString& parentheses);
  QString beat_unit = QStringLiteral("quarter");
  double per_minute = 0.0;
};

class DirectionType : public XmlBase {
 public:
  DirectionType();
  Metronome metronome;
};

// <direction placement="..">: a tempo mark.
class Direction : public XmlBase {
 public:
  explicit Direction(const QString& placement);
  DirectionType direction_type;
};

// <backup>: moves the time cursor back by `duration` divisions, so the next staff starts over.
class Backup : public XmlBase {
 public:
  explicit Backup(int duration);
  int duration;
};

// <measure number="..">: its children print in the order they were added.
class Measure : public XmlBase {
 public:
  explicit Measure(int number);

  Print* AddPrint();
  Attributes* AddAttributes();
  Direction* AddDirection(const QString& placement);
  XmlNote* AddNote(std::unique_ptr<XmlNote> note);
  Backup* AddBackup(int duration);

  int number;
  Attributes* attributes_element = nullptr;  // the measure's <attributes>, if it has one
};

}  // namespace xml
