#include "output/xml_score_part.h"

namespace xml {

ScoreInstrument::ScoreInstrument(const QString& id) : XmlBase(QStringLiteral("score-instrument")) {
  attributes.emplace_back(QStringLiteral("id"), id);
  AddLeaf(QStringLiteral("instrument-name"), &instrument_name);
  Initialize();
}

MidiInstrument::MidiInstrument(const QString& id) : XmlBase(QStringLiteral("midi-instrument")) {
  attributes.emplace_back(QStringLiteral("id"), id);
  AddLeaf(QStringLiteral("midi-channel"), &midi_channel);
  AddLeaf(QStringLiteral("midi-program"), &midi_program);
  AddLeaf(QStringLiteral("volume"), &volume);
  AddLeaf(QStringLiteral("pan"), &pan);
  Initialize();
}

ScorePart::ScorePart(const QString& id, const QString& instrument_id)
    : XmlBase(QStringLiteral("score-part")), score_instrument(instrument_id), midi_instrument(instrument_id) {
  attributes.emplace_back(QStringLiteral("id"), id);
  AddLeaf(QStringLiteral("part-name"), &part_name);
  AddChild(&score_instrument);
  AddChild(&midi_instrument);
  Initialize();
}

}  // namespace xml
