#pragma once

#include <QString>

// A written note value: its MusicXML type word, its length in quarter notes and in divisions
// (`frames`), and whether it is dotted or a triplet value.
struct NoteType {
  QString name;
  double quarters = 0.0;
  int frames = 0;
  bool dotted = false;
  bool triplet = false;
};
