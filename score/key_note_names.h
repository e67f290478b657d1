#pragma once

#include <QString>
#include <map>
#include <string>
#include <vector>

#include "score/note_name.h"

class Preferences;

// Spells the twelve pitch classes in each of the fifteen key signatures (-7 to 7 fifths).
// Pitch classes count from A: key_idx % 12, 0 = A, 3 = C. Call Recompute() after the
// `do_re_mi` preference changes.
class KeyNoteNames {
 public:
  // A null `preferences` always gives the letter names A to G.
  explicit KeyNoteNames(Preferences* preferences = nullptr);

  void Recompute();
  bool DoReMi() const;
  // Pitch class of the major key's tonic; a signature outside -7..7 is taken as 0.
  int MajorKeyFromFifths(int fifths) const;
  // The spelling of key_idx's pitch class; a signature outside -7..7 (such as 1000) as 0.
  const NoteName& KeyName(int key_idx, int fifths) const;
  // The name in the signature of no accidentals, with its glyph; then with the octave.
  QString QSimpleName(int key_idx) const;
  QString QSimpleFullName(int key_idx) const;
  // Octaves change at C: Octave(3) is 1, Octave(2) is 0.
  static int Octave(int key_idx) { return (key_idx + 9) / 12; }
  // The signature after transposing by `semitones`; of two spellings of one tonic the one
  // with flats wins (C flat over B, G flat over F sharp, D flat over C sharp).
  int ShiftedFifths(int fifths, int semitones) const;
  // The five pitch classes outside the major scale of `fifths`.
  std::vector<int> MissingPitches(int fifths) const;

  std::vector<int> fifths_values;
  std::string letter_a, letter_b, letter_c, letter_d, letter_e, letter_f, letter_g;
  Preferences* preferences = nullptr;
  std::map<int, std::vector<NoteName>> names_by_fifths;
  std::map<int, int> major_keys_by_fifths;
  std::map<int, std::vector<int>> missing_pitches_by_fifths;

 private:
  const std::string& LetterOfNatural(int pitch_class) const;
};
