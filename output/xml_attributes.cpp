#include "output/xml_attributes.h"

#include <memory>

namespace xml {

Key::Key() : XmlBase(QStringLiteral("key")) {
  AddLeaf(QStringLiteral("fifths"), &fifths);
  AddLeaf(QStringLiteral("mode"), &mode);
  Initialize();
}

Time::Time() : XmlBase(QStringLiteral("time")) {
  AddLeaf(QStringLiteral("beats"), &beats);
  AddLeaf(QStringLiteral("beat-type"), &beat_type);
  Initialize();
}

Clef::Clef(int number) : XmlBase(QStringLiteral("clef")) {
  attributes.emplace_back(QStringLiteral("number"), QString::number(number));
  AddLeaf(QStringLiteral("sign"), &sign);
  AddLeaf(QStringLiteral("line"), &line);
  Initialize();
}

StaffLines::StaffLines() : XmlBase(QStringLiteral("staff-lines")) {
  int_value = &lines;
  Initialize();
}

StaffTuning::StaffTuning(int line, const QString& step, int alter, int octave)
    : XmlBase(QStringLiteral("staff-tuning")), tuning_step(step), tuning_alter(alter), tuning_octave(octave) {
  attributes.emplace_back(QStringLiteral("line"), QString::number(line));
  AddLeaf(QStringLiteral("tuning-step"), &tuning_step);
  AddLeaf(QStringLiteral("tuning-alter"), &tuning_alter)->visible = alter != 0;
  AddLeaf(QStringLiteral("tuning-octave"), &tuning_octave);
  Initialize();
}

StaffDetails::StaffDetails() : XmlBase(QStringLiteral("staff-details")) {
  AddChild(&staff_lines);
  Initialize();
  child_lists.push_back(&tunings);
}

StaffTuning* StaffDetails::AddStaffTuning(int line, const QString& step, int alter, int octave) {
  StaffTuning* tuning = Keep(std::make_unique<StaffTuning>(line, step, alter, octave));
  tunings.push_back(tuning);
  return tuning;
}

Attributes::Attributes() : XmlBase(QStringLiteral("attributes")) {
  divisions_element = AddLeaf(QStringLiteral("divisions"), &divisions);
  AddChild(&key);
  AddChild(&time);
  staves_element = AddLeaf(QStringLiteral("staves"), &staves);
  for (XmlBase* child : children) child->visible = false;
  Initialize();
  child_lists.push_back(&clefs);
  child_lists.push_back(&staff_details);
}

void Attributes::SetDivisions(int value) {
  divisions = value;
  divisions_element->visible = true;
}

void Attributes::SetKey(int fifths, const QString& mode) {
  key.fifths = fifths;
  key.mode = mode;
  key.visible = true;
}

void Attributes::SetTime(int beats, int beat_type) {
  time.beats = beats;
  time.beat_type = beat_type;
  time.visible = true;
}

void Attributes::SetStaves(int value) {
  staves = value;
  staves_element->visible = true;
}

Clef* Attributes::AddClef(int number, const QString& sign, int line) {
  Clef* clef = Keep(std::make_unique<Clef>(number));
  clef->sign = sign;
  clef->line = line;
  clefs.push_back(clef);
  return clef;
}

StaffDetails* Attributes::AddStaffDetails() {
  StaffDetails* details = Keep(std::make_unique<StaffDetails>());
  staff_details.push_back(details);
  return details;
}

}  // namespace xml
