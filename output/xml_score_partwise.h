#pragma once

#include <QString>
#include <vector>

#include "output/xml_base.h"
#include "output/xml_measure.h"
#include "output/xml_score_part.h"

namespace xml {

// <work> with its title.
class Work : public XmlBase {
 public:
  Work();
  QString work_title;
};

// <part-list>: the score parts, added by the builder.
class PartList : public XmlBase {
 public:
  PartList();
  ScorePart* AddScorePart(const QString& id, const QString& instrument_id);
};

// <part id="..">: the measures of one part, numbered by the builder.
class Part : public XmlBase {
 public:
  explicit Part(const QString& id);
  Measure* AddMeasure(int number);
  std::vector<Measure*> measures;  // the same elements as `children`, typed
};

// <score-partwise version="3.0">: the root of the document.
class ScorePartwise : public XmlBase {
 public:
  ScorePartwise();
  Part* AddPart(const QString& id);

  Work work;
  PartList part_list;
  std::vector<Part*> parts;
};

}  // namespace xml
