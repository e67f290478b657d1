#include "output/xml_measure.h"

namespace xml {

StaffLayout::StaffLayout(int number) : XmlBase(QStringLiteral("staff-layout")) {
  attributes.emplace_back(QStringLiteral("number"), QString::number(number));
  AddLeaf(QStringLiteral("staff-distance"), &staff_distance);
  Initialize();
}

Print::Print() : XmlBase(QStringLiteral("print")), staff_layout(2) {
  AddChild(&staff_layout);
  AddLeaf(QStringLiteral("measure-numbering"), &measure_numbering);
  Initialize();
}

Metronome::Metronome(const QString& parentheses) : XmlBase(QStringLiteral("metronome")) {
  attributes.emplace_back(QStringLiteral("parentheses"), parentheses);
  AddLeaf(QStringLiteral("beat-unit"), &beat_unit);
  AddLeaf(QStringLiteral("per-minute"), &per_minute);
  Initialize();
}

DirectionType::DirectionType() : XmlBase(QStringLiteral("direction-type")), metronome(QStringLiteral("yes")) {
  AddChild(&metronome);
  Initialize();
}

Direction::Direction(const QString& placement) : XmlBase(QStringLiteral("direction")) {
  attributes.emplace_back(QStringLiteral("placement"), placement);
  AddChild(&direction_type);
  Initialize();
}

Backup::Backup(int duration_) : XmlBase(QStringLiteral("backup")), duration(duration_) {
  AddLeaf(QStringLiteral("duration"), &duration);
  Initialize();
}

Measure::Measure(int number_) : XmlBase(QStringLiteral("measure")), number(number_) {
  attributes.emplace_back(QStringLiteral("number"), QString::number(number));
  Initialize();
}

Print* Measure::AddPrint() { return Adopt(std::make_unique<Print>()); }

Attributes* Measure::AddAttributes() {
  attributes_element = Adopt(std::make_unique<Attributes>());
  return attributes_element;
}

Direction* Measure::AddDirection(const QString& placement) {
  return Adopt(std::make_unique<Direction>(placement));
}

XmlNote* Measure::AddNote(std::unique_ptr<XmlNote> note) { return Adopt(std::move(note)); }

Backup* Measure::AddBackup(int duration) { return Adopt(std::make_unique<Backup>(duration)); }

}  // namespace xml
