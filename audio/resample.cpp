#include "audio/resample.h"

#include <algorithm>
#include <limits>
#include <new>

void ResampleLinear(std::vector<std::int16_t>* audio, int channels, int from, int to) {
  if (from == to || channels < 1 || from <= 0 || to <= 0) return;
  const std::size_t frames = audio->size() / channels;
  if (frames == 0) return;
  const double step = static_cast<double>(from) / to;
  // frames / step in exact arithmetic: in floating point 48000 frames at 48 kHz would give
  // 44099.999... and lose a frame.
  const unsigned long long out_frames_exact = static_cast<unsigned long long>(frames) * to / from;
  if (out_frames_exact >= static_cast<unsigned long long>(std::numeric_limits<int>::max()))
    throw std::bad_alloc();
  const std::size_t out_frames = static_cast<std::size_t>(out_frames_exact);
  const std::size_t last = frames - 1;
  std::int16_t* data = audio->data();

  if (to < from) {
    // Forward: output frame i never reads before input frame i, so nothing unread is overwritten.
    for (std::size_t i = 0; i < out_frames; ++i) {
      const double position = i * step;
      const std::size_t lower = static_cast<std::size_t>(position);
      const std::size_t upper = lower + 1 < last ? lower + 1 : last;
      const double f = position - static_cast<double>(lower);
      for (int c = 0; c < channels; ++c) {
        const double value = data[lower * channels + c] * (1.0 - f) + data[upper * channels + c] * f;
        data[i * channels + c] = static_cast<std::int16_t>(value);
      }
    }
    audio->resize(out_frames * channels);
    audio->shrink_to_fit();
    return;
  }

  // Backward after growing: output frame i reads input frames at or below it, none of which
  // has been written yet.
  audio->resize(out_frames * channels);
  data = audio->data();
  for (std::size_t i = out_frames; i-- > 0;) {
    const std::size_t lower = static_cast<std::size_t>(i * step);
    std::size_t upper = lower + 1;
    double f = 0.0;
    if (lower >= last) {
      upper = last;
    } else {
      f = (i - lower / step) * step / static_cast<double>(upper - lower);
    }
    const std::size_t low = lower < last ? lower : last;
    for (int c = 0; c < channels; ++c) {
      const double value = data[low * channels + c] * (1.0 - f) + data[upper * channels + c] * f;
      data[i * channels + c] = static_cast<std::int16_t>(value);
    }
  }
}

void FoldChannels(std::vector<std::int16_t>* audio, int channels, int max_channels) {
  if (max_channels < 1 || channels <= max_channels) return;
  const std::size_t frames = audio->size() / channels;
  std::vector<int> sources_per_target(max_channels, 0);
  for (int c = 0; c < channels; ++c) ++sources_per_target[c % max_channels];
  std::int16_t* data = audio->data();
  std::vector<int> sum(max_channels);
  // Frame f is written at f * max_channels, never after where frame f + 1 is read.
  for (std::size_t f = 0; f < frames; ++f) {
    std::fill(sum.begin(), sum.end(), 0);
    const std::int16_t* in = data + f * channels;
    for (int c = 0; c < channels; ++c) sum[c % max_channels] += in[c] / sources_per_target[c % max_channels];
    for (int t = 0; t < max_channels; ++t) data[f * max_channels + t] = static_cast<std::int16_t>(sum[t]);
  }
  audio->resize(frames * max_channels);
}
