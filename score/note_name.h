#pragma once

#include <QString>
#include <string>

#include "score/text_symbols.h"

// One spelling of a pitch class in one key signature.
struct NoteName {
  std::string name;          // letter or syllable
  int alter = 0;             // -1 flat, 0 natural, 1 sharp
  bool outside_key = false;  // the pitch class is not in the key's scale
  int octave_offset = 0;     // B sharp sits an octave below its key's C, C flat one above
  const TextSymbols* symbols = &TextSymbols::Shared();

  // The name followed by its accidental glyph, if any.
  QString Text() const {
    QString text = QString::fromStdString(name);
    if (alter > 0) text += QString::fromStdString(symbols->sharp);
    if (alter < 0) text += QString::fromStdString(symbols->flat);
    return text;
  }
};
