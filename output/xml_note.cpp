#include "output/xml_note.h"

#include <memory>

namespace xml {

Tie::Tie(const QString& type) : XmlBase(QStringLiteral("tie"), true) {
  attributes.emplace_back(QStringLiteral("type"), type);
}

Tied::Tied(const QString& type) : XmlBase(QStringLiteral("tied"), true) {
  attributes.emplace_back(QStringLiteral("type"), type);
}

Tuplet::Tuplet() : XmlBase(QStringLiteral("tuplet"), true) {
  attributes.emplace_back(QStringLiteral("type"), QStringLiteral("start"));
}

void Tuplet::SetType(const QString& type) { attributes[0].second = type; }

Alter::Alter() : XmlBase(QStringLiteral("alter")) {
  int_value = &value;
  Initialize();
}

Pitch::Pitch() : XmlBase(QStringLiteral("pitch")) {
  AddLeaf(QStringLiteral("step"), &step);
  AddChild(&alter);
  AddLeaf(QStringLiteral("octave"), &octave);
  alter.visible = false;
  Initialize();
}

TimeModification::TimeModification() : XmlBase(QStringLiteral("time-modification")) {
  AddLeaf(QStringLiteral("actual-notes"), &actual_notes);
  AddLeaf(QStringLiteral("normal-notes"), &normal_notes);
  Initialize();
}

Technical::Technical() : XmlBase(QStringLiteral("technical")) {
  AddLeaf(QStringLiteral("string"), &string);
  AddLeaf(QStringLiteral("fret"), &fret);
  Initialize();
}

Notations::Notations()
    : XmlBase(QStringLiteral("notations")),
      tied_start(QStringLiteral("start")),
      tied_stop(QStringLiteral("stop")) {
  AddChild(&tied_start);
  AddChild(&tied_stop);
  AddChild(&tuplet);
  AddChild(&technical);
  for (XmlBase* child : children) child->visible = false;
  Initialize();
}

Beam::Beam(int number, const QString& value_) : XmlBase(QStringLiteral("beam")), value(value_) {
  attributes.emplace_back(QStringLiteral("number"), QString::number(number));
  string_value = &value;
  Initialize();
}

XmlNote::XmlNote()
    : XmlBase(QStringLiteral("note")), tie_start(QStringLiteral("start")), tie_stop(QStringLiteral("stop")) {
  AddChild(&chord);
  AddChild(&rest);
  AddChild(&pitch);
  AddLeaf(QStringLiteral("duration"), &duration);
  AddChild(&tie_start);
  AddChild(&tie_stop);
  AddLeaf(QStringLiteral("voice"), &voice);
  AddLeaf(QStringLiteral("type"), &type);
  AddChild(&dot);
  AddChild(&time_modification);
  stem_element = AddLeaf(QStringLiteral("stem"), &stem);
  AddLeaf(QStringLiteral("staff"), &staff);
  for (XmlBase* optional :
       {static_cast<XmlBase*>(&chord), static_cast<XmlBase*>(&rest), static_cast<XmlBase*>(&pitch),
        static_cast<XmlBase*>(&tie_start), static_cast<XmlBase*>(&tie_stop), static_cast<XmlBase*>(&dot),
        static_cast<XmlBase*>(&time_modification), stem_element, static_cast<XmlBase*>(&notations)})
    optional->visible = false;
  Initialize();
  child_lists.push_back(&beams);
  after_beams.push_back(&notations);
  child_lists.push_back(&after_beams);
}

void XmlNote::SetPitch(const QString& step, int alter, int octave) {
  pitch.step = step;
  pitch.alter.value = alter;
  pitch.alter.visible = alter != 0;
  pitch.octave = octave;
  pitch.visible = true;
  rest.visible = false;
}

void XmlNote::SetRest() {
  rest.visible = true;
  pitch.visible = false;
}

void XmlNote::SetChord() { chord.visible = true; }

void XmlNote::SetDot() { dot.visible = true; }

void XmlNote::SetTieStart() {
  tie_start.visible = true;
  notations.tied_start.visible = true;
  notations.visible = true;
}

void XmlNote::SetTieStop() {
  tie_stop.visible = true;
  notations.tied_stop.visible = true;
  notations.visible = true;
}

void XmlNote::SetTimeModification() { time_modification.visible = true; }

void XmlNote::SetTuplet(const QString& type) {
  notations.tuplet.SetType(type);
  notations.tuplet.visible = true;
  notations.visible = true;
}

void XmlNote::SetTechnical(int string, int fret) {
  notations.technical.string = string;
  notations.technical.fret = fret;
  notations.technical.visible = true;
  notations.visible = true;
}

void XmlNote::SetStem(const QString& word) {
  stem = word;
  stem_element->visible = true;
}

Beam* XmlNote::AddBeam(int number, const QString& value) {
  Beam* beam = Keep(std::make_unique<Beam>(number, value));
  beams.push_back(beam);
  return beam;
}

}  // namespace xml
