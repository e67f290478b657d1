#pragma once

#include <vector>

class TranscriptionJob;

// Sheet music overrides from the command line, in the order the options were read. Key
// indices are zero-based (0 to 87).
class CliModifiers {
 public:
  std::vector<int> lowest_keys;
  std::vector<int> highest_keys;
  std::vector<bool> remove_outside;  // true: remove notes outside the range; false: move them in
  std::vector<int> treble_clef_start_keys;

  // Applies every entry in order, so the last of each list wins. Runs on the worker once
  // the audio is in, so it also beats what a project file stored.
  void Set(TranscriptionJob* job) const;
};
