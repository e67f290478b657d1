#pragma once

#include <cstdint>
#include <vector>

// Converts interleaved 16-bit audio from `from` Hz to `to` Hz in place by linear
// interpolation between neighbouring frames, with no low-pass filter. The result has
// trunc(frames * to / from) frames, computed exactly. Equal rates, or fewer than one channel, do nothing.
// Throws std::bad_alloc when the result would not fit in memory or in an int frame count.
void ResampleLinear(std::vector<std::int16_t>* audio, int channels, int from, int to);

// Folds interleaved audio of `channels` channels into `max_channels` in place: source
// channel c goes to c modulo `max_channels`, each source divided (truncating) by the number
// of sources of its target before they are summed. Does nothing unless channels > max_channels.
void FoldChannels(std::vector<std::int16_t>* audio, int channels, int max_channels);
