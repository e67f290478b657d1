#include "output/xml_score_partwise.h"

#include <memory>

namespace xml {

Work::Work() : XmlBase(QStringLiteral("work")) {
  AddLeaf(QStringLiteral("work-title"), &work_title);
  Initialize();
}

PartList::PartList() : XmlBase(QStringLiteral("part-list")) { Initialize(); }

ScorePart* PartList::AddScorePart(const QString& id, const QString& instrument_id) {
  return Adopt(std::make_unique<ScorePart>(id, instrument_id));
}

Part::Part(const QString& id) : XmlBase(QStringLiteral("part")) {
  attributes.emplace_back(QStringLiteral("id"), id);
  Initialize();
}

Measure* Part::AddMeasure(int number) {
  Measure* measure = Adopt(std::make_unique<Measure>(number));
  measures.push_back(measure);
  return measure;
}

ScorePartwise::ScorePartwise() : XmlBase(QStringLiteral("score-partwise")) {
  attributes.emplace_back(QStringLiteral("version"), "3.0");
  AddChild(&work);
  AddChild(&part_list);
  Initialize();
}

Part* ScorePartwise::AddPart(const QString& id) {
  Part* part = Adopt(std::make_unique<Part>(id));
  parts.push_back(part);
  return part;
}

}  // namespace xml
