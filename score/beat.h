#pragma once

// One entry of the song's beat list (TranscriptionJob::beats), which is ordered by time and
// ends in a sentinel that marks the end of the song and opens no measure. Zero in a signature
// or tempo field, and kNoKeyChange in `key_signature`, mean that the earlier value holds.
struct Beat {
  static constexpr int kNoKeyChange = 1000;

  Beat() = default;
  Beat(int number, double time, int time_signature_top = 0, int time_signature_bottom = 0, int tempo = 0,
       int key_signature = kNoKeyChange)
      : number(number),
        time(time),
        time_signature_top(time_signature_top),
        time_signature_bottom(time_signature_bottom),
        tempo(tempo),
        key_signature(key_signature) {}

  // Written as !(time >= other.time) so that a key beat holding only a time can be searched for.
  bool operator<(const Beat& other) const { return !(time >= other.time); }

  int number = 1;                    // place in the measure, from 1; 1 starts a measure
  double time = 0.0;                 // seconds
  int time_signature_top = 0;        // beats per measure from here on
  int time_signature_bottom = 0;     // note value of a beat from here on (4 = quarter)
  int tempo = 0;                     // user tempo in beats per minute from here on
  int key_signature = kNoKeyChange;  // fifths from here on
};
