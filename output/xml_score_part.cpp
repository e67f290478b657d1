#include "output/xml_score_part.h"

namespace xml {

ScoreInstrument::ScoreInstrument(const QString& id) : XmlBase("score-instrument") {
  attributes.emplace_back("id", id);
  AddLeaf("instrument-name", &instrument_name);
  Initialize();
}

MidiInstrument::MidiInstrument(const QString& id) : XmlBase("midi-instrument") {
  attributes.emplace_back("id", id);
  AddLeaf("midi-channel", &midi_channel);
  AddLeaf("midi-program", &midi_program);
  AddLeaf("volume", &volume);
  AddLeaf("pan", &pan);
  Initialize();
}

ScorePart::ScorePart(const QString& id, const QString& instrument_id)
    : XmlBase("score-part"), score_instrument(instrument_id), midi_instrument(instrument_id) {
  attributes.emplace_back("id", id);
  AddLeaf("part-name", &part_name);
  AddChild(&score_instrument);
  AddChild(&midi_instrument);
  Initialize();
}

}  // namespace xml
