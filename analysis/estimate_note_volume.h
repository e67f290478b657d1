#pragma once

#include "score/note.h"
#include "score/spectrogram.h"

// The velocity of a note read from the spectrogram: the strongest cell over 15 columns from its
// onset, in the band nearest its frequency and the band nearest twice that, mapped as
// trunc(peak * 0.011627197265625 + 32.5). A note with no energy gets 32; a grid with no
// frequencies or amplitudes gives 1. Not clamped to 127: the stage rescales the largest.
int EstimateNoteVolume(const Note& note, const Spectrogram& spectrogram);

// The band of `frequencies` (ascending, Hz) nearest `frequency`: past the end the last band, at
// or below the first entry band 0, otherwise the upper neighbour when it is at least as near.
int ClosestBand(const std::vector<double>& frequencies, double frequency);
