#pragma once

#include <utility>
#include <vector>

// Strings and frets of a fretted instrument, for tablature.
class StringFretData {
 public:
  // `string_keys`: the key of each open string, in the order strings are tried.
  StringFretData(int frets, const std::vector<int>& string_keys) : frets(frets), string_keys(string_keys) {}

  // (string from 1, fret) for each key, in the order of `keys`. Keys are placed lowest first,
  // each on the first string in `string_keys` order that is still free in this chord and
  // reaches the key within `frets` frets (any fret while `frets` is unset, -1); a key that finds
  // none gets (-1, -1).
  std::vector<std::pair<int, int>> StringsFrets(const std::vector<int>& keys) const;

  int frets;
  std::vector<int> string_keys;
};
