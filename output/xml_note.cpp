#include "output/xml_note.h"

#include <memory>

namespace xml {

Tie::Tie(const QString& type) : XmlBase("tie", true) { attributes.emplace_back("type", type); }

Tied::Tied(const QString& type) : XmlBase("tied", true) { attributes.emplace_back("type", type); }

Tuplet::Tuplet() : XmlBase("tuplet", true) { attributes.emplace_back("type", "start"); }

void Tuplet::SetType(const QString& type) { attributes[0].second = type; }

Alter::Alter() : XmlBase("alter") {
  int_value = &value;
  Initialize();
}

Pitch::Pitch() : XmlBase("pitch") {
  AddLeaf("step", &step);
  AddChild(&alter);
  AddLeaf("octave", &octave);
  alter.visible = false;
  Initialize();
}

TimeModification::TimeModification() : XmlBase("time-modification") {
  AddLeaf("actual-notes", &actual_notes);
  AddLeaf("normal-notes", &normal_notes);
  Initialize();
}

Technical::Technical() : XmlBase("technical") {
  AddLeaf("string", &string);
  AddLeaf("fret", &fret);
  Initialize();
}

Notations::Notations() : XmlBase("notations"), tied_start("start"), tied_stop("stop") {
  AddChild(&tied_start);
  AddChild(&tied_stop);
  AddChild(&tuplet);
  AddChild(&technical);
  for (XmlBase* child : children) child->visible = false;
  Initialize();
}

Beam::Beam(int number, const QString& value_) : XmlBase("beam"), value(value_) {
  attributes.emplace_back("number", QString::number(number));
  string_value = &value;
  Initialize();
}

XmlNote::XmlNote() : XmlBase("note"), tie_start("start"), tie_stop("stop") {
  AddChild(&chord);
  AddChild(&rest);
  AddChild(&pitch);
  AddLeaf("duration", &duration);
  AddChild(&tie_start);
  AddChild(&tie_stop);
  AddLeaf("voice", &voice);
  AddLeaf("type", &type);
  AddChild(&dot);
  AddChild(&time_modification);
  stem_element = AddLeaf("stem", &stem);
  AddLeaf("staff", &staff);
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
