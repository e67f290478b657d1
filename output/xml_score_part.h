#pragma once

#include <QString>

#include "output/xml_base.h"

namespace xml {

// <score-instrument id="..">.
class ScoreInstrument : public XmlBase {
 public:
  explicit ScoreInstrument(const QString& id);
  QString instrument_name;
};

// <midi-instrument id="..">: channel 1 to 16, program 1 to 128, volume 0 to 100, pan in degrees.
class MidiInstrument : public XmlBase {
 public:
  explicit MidiInstrument(const QString& id);
  int midi_channel = 1;
  int midi_program = 1;
  int volume = 80;
  int pan = 0;
};

// <score-part id="..">: the part's name and its one instrument.
class ScorePart : public XmlBase {
 public:
  ScorePart(const QString& id, const QString& instrument_id);
  QString part_name;
  ScoreInstrument score_instrument;
  MidiInstrument midi_instrument;
};

}  // namespace xml
