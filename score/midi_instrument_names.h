#pragma once

#include <string>
#include <vector>

// The 128 General MIDI program names, indexed by program number from 0. Track names of MIDI
// export and the list of the save dialog come from here.
const std::vector<std::string>& MidiInstrumentNames();
