#include "output/xml_measure.h"

namespace xml {

StaffLayout::StaffLayout(int number) : XmlBase("staff-layout") {
  attributes.emplace_back("number", QString::number(number));
  AddLeaf("staff-distance", &staff_distance);
  Initialize();
}

Print::Print() : XmlBase("print"), staff_layout(2) {
  AddChild(&staff_layout);
  AddLeaf("measure-numbering", &measure_numbering);
  Initialize();
}

Metronome::Metronome(const QString& parentheses) : XmlBase("metronome") {
  attributes.emplace_back("parentheses", parentheses);
  AddLeaf("beat-unit", &beat_unit);
  AddLeaf("per-minute", &per_minute);
  Initialize();
}

DirectionType::DirectionType() : XmlBase("direction-type"), metronome("yes") {
  AddChild(&metronome);
  Initialize();
}

Direction::Direction(const QString& placement) : XmlBase("direction") {
  attributes.emplace_back("placement", placement);
  AddChild(&direction_type);
  Initialize();
}

Backup::Backup(int duration_) : XmlBase("backup"), duration(duration_) {
  AddLeaf("duration", &duration);
  Initialize();
}

Measure::Measure(int number_) : XmlBase("measure"), number(number_) {
  attributes.emplace_back("number", QString::number(number));
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
