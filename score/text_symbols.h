#pragma once

#include <string>

// The accidental glyphs that names of keys and notes are written with (UTF-8).
struct TextSymbols {
  std::string sharp = "\u266F";
  std::string flat = "\u266D";
  std::string natural = "\u266E";

  // One shared instance, so that NoteName can point at it without owning it.
  static const TextSymbols& Shared() {
    static const TextSymbols symbols;
    return symbols;
  }
};
