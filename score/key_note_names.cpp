#include "score/key_note_names.h"

#include "platform/preferences.h"

namespace {

// Tonic pitch class of the major key of each signature.
const std::map<int, int> kTonicByFifths = {{0, 3},  {1, 10},  {2, 5},  {3, 0},  {4, 7},
                                           {5, 2},  {6, 9},   {7, 4},  {-1, 8}, {-2, 1},
                                           {-3, 6}, {-4, 11}, {-5, 4}, {-6, 9}, {-7, 2}};
// F, C, G, D, A, E, B as pitch classes.
constexpr int kOrderOfSharps[7] = {8, 3, 10, 5, 0, 7, 2};
// Semitones above the tonic that a major scale lacks.
constexpr int kOffsetsOutsideScale[5] = {1, 3, 6, 8, 10};

int PitchClass(int key_idx) { return ((key_idx % 12) + 12) % 12; }

}  // namespace

KeyNoteNames::KeyNoteNames(Preferences* preferences_) : preferences(preferences_) {
  fifths_values = {0, 1, 2, 3, 4, 5, 6, 7, -1, -2, -3, -4, -5, -6, -7};
  major_keys_by_fifths = kTonicByFifths;
  Recompute();
}

bool KeyNoteNames::DoReMi() const { return preferences && preferences->do_re_mi; }

const std::string& KeyNoteNames::LetterOfNatural(int pitch_class) const {
  switch (pitch_class) {
    case 0:
      return letter_a;
    case 2:
      return letter_b;
    case 3:
      return letter_c;
    case 5:
      return letter_d;
    case 7:
      return letter_e;
    case 8:
      return letter_f;
    default:
      return letter_g;
  }
}

void KeyNoteNames::Recompute() {
  if (DoReMi()) {
    letter_a = "LA", letter_b = "SI", letter_c = "DO", letter_d = "RE";
    letter_e = "MI", letter_f = "FA", letter_g = "SOL";
  } else {
    letter_a = "A", letter_b = "B", letter_c = "C", letter_d = "D";
    letter_e = "E", letter_f = "F", letter_g = "G";
  }
  names_by_fifths.clear();
  missing_pitches_by_fifths.clear();
  for (int f : fifths_values) {
    const int tonic = major_keys_by_fifths.at(f);
    std::vector<int>& missing = missing_pitches_by_fifths[f];
    for (int offset : kOffsetsOutsideScale) missing.push_back((offset + tonic) % 12);

    // The spelling with no signature, then all black keys flat or sharp as the signature goes.
    std::vector<NoteName> names = {{letter_a, 0}, {letter_b, -1}, {letter_b, 0},  {letter_c, 0},
                                   {letter_c, 1}, {letter_d, 0},  {letter_e, -1}, {letter_e, 0},
                                   {letter_f, 0}, {letter_f, 1},  {letter_g, 0},  {letter_g, 1}};
    if (f < 0) {
      names[4] = {letter_d, -1};
      names[9] = {letter_g, -1};
      names[11] = {letter_a, -1};
    } else if (f > 0) {
      names[1] = {letter_a, 1};
      names[6] = {letter_d, 1};
    }
    // The altered notes of the signature are spelled from their natural letter, so that
    // F sharp major has an E sharp and G flat major a C flat.
    const int sign = f < 0 ? -1 : 1;
    for (int i = 0; i < (f < 0 ? -f : f); ++i) {
      const int natural = f < 0 ? kOrderOfSharps[6 - i] : kOrderOfSharps[i];
      const int target = (natural + sign + 12) % 12;
      names[target] = {LetterOfNatural(natural), sign};
      if (f < 0 && natural == 3 && target == 2) names[target].octave_offset = 1;
      if (f > 0 && natural == 2 && target == 3) names[target].octave_offset = -1;
    }
    for (int pitch_class = 0; pitch_class < 12; ++pitch_class) {
      for (int m : missing) names[pitch_class].outside_key |= (m == pitch_class);
    }
    names_by_fifths[f] = std::move(names);
  }
}

int KeyNoteNames::MajorKeyFromFifths(int fifths) const {
  auto it = major_keys_by_fifths.find(fifths);
  return it == major_keys_by_fifths.end() ? major_keys_by_fifths.at(0) : it->second;
}

const NoteName& KeyNoteNames::KeyName(int key_idx, int fifths) const {
  auto it = names_by_fifths.find(fifths);
  if (it == names_by_fifths.end()) it = names_by_fifths.find(0);
  return it->second[PitchClass(key_idx)];
}

QString KeyNoteNames::QSimpleName(int key_idx) const { return KeyName(key_idx, 0).Text(); }

QString KeyNoteNames::QSimpleFullName(int key_idx) const {
  return QSimpleName(key_idx) + QString::number(Octave(key_idx));
}

int KeyNoteNames::ShiftedFifths(int fifths, int semitones) const {
  if (semitones == 0) return fifths;
  const int target = PitchClass(MajorKeyFromFifths(fifths) + semitones % 12);
  // Ascending from -7, so the flat spelling of a shared tonic comes first.
  for (const auto& [candidate, tonic] : major_keys_by_fifths) {
    if (tonic == target) return candidate;
  }
  return fifths;
}

std::vector<int> KeyNoteNames::MissingPitches(int fifths) const {
  auto it = missing_pitches_by_fifths.find(fifths);
  if (it == missing_pitches_by_fifths.end()) it = missing_pitches_by_fifths.find(0);
  return it->second;
}
