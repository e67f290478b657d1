#pragma once

#include <QString>
#include <cstdint>
#include <vector>

#include "output/xml_base.h"

namespace xml {

// Self-closing markers of a note.
class Rest : public XmlBase {
 public:
  Rest() : XmlBase(QStringLiteral("rest"), true) {}
};
class Chord : public XmlBase {
 public:
  Chord() : XmlBase(QStringLiteral("chord"), true) {}
};
class Dot : public XmlBase {
 public:
  Dot() : XmlBase(QStringLiteral("dot"), true) {}
};

// <tie type="start|stop"/>: the sound of a note goes on into the next one.
class Tie : public XmlBase {
 public:
  explicit Tie(const QString& type);
};
// <tied type="start|stop"/>: the drawn tie.
class Tied : public XmlBase {
 public:
  explicit Tied(const QString& type);
};
// <tuplet type="start|stop"/>: the bracket over a triplet.
class Tuplet : public XmlBase {
 public:
  Tuplet();
  void SetType(const QString& type);
};

// <alter>: semitones from the natural step, written only when not 0.
class Alter : public XmlBase {
 public:
  Alter();
  int value = 0;
};

// <pitch>: step, alteration and octave (octaves change at C).
class Pitch : public XmlBase {
 public:
  Pitch();
  QString step = QStringLiteral("C");
  Alter alter;
  int octave = 4;
};

// <time-modification>: three in the time of two.
class TimeModification : public XmlBase {
 public:
  TimeModification();
  int actual_notes = 3;
  int normal_notes = 2;
};

// <technical>: string and fret of a tablature note.
class Technical : public XmlBase {
 public:
  Technical();
  int string = 1;
  int fret = 0;
};

// <notations>: drawn ties, the tuplet bracket and tablature fingering, each shown once set.
class Notations : public XmlBase {
 public:
  Notations();
  Tied tied_start;
  Tied tied_stop;
  Tuplet tuplet;
  Technical technical;
};

// <beam number="..">: one of "begin", "continue", "end", "forward hook", "backward hook".
class Beam : public XmlBase {
 public:
  Beam(int number, const QString& value);
  QString value;
};

// <note>: a pitch or a rest of one note value. `position` (fine grid units from the start of the
// song) and `key_idx` are not printed; the chord and beam builders read them.
class XmlNote : public XmlBase {
 public:
  XmlNote();

  void SetPitch(const QString& step, int alter, int octave);
  void SetRest();
  void SetChord();
  void SetDot();
  void SetTieStart();  // <tie> and <tied> of type start
  void SetTieStop();   // <tie> and <tied> of type stop
  void SetTimeModification();
  void SetTuplet(const QString& type);
  void SetTechnical(int string, int fret);
  void SetStem(const QString& word);
  Beam* AddBeam(int number, const QString& value);

  bool IsRest() const { return rest.visible; }
  bool IsChord() const { return chord.visible; }
  bool HasTieStart() const { return tie_start.visible; }
  bool HasTieStop() const { return tie_stop.visible; }
  bool HasStem() const { return stem_element->visible; }

  Chord chord;
  Rest rest;
  Pitch pitch;
  int duration = 0;
  Tie tie_start;
  Tie tie_stop;
  int voice = 1;
  QString type;
  Dot dot;
  TimeModification time_modification;
  QString stem;
  int staff = 1;
  std::vector<XmlBase*> beams;
  Notations notations;

  int64_t position = 0;
  int key_idx = -1;

 private:
  XmlBase* stem_element;
  std::vector<XmlBase*> after_beams;  // the notations follow the beams
};

}  // namespace xml
