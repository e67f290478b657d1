// Linear sample-rate conversion in place, and folding of surplus channels.
#include "audio/resample.h"

#include <gtest/gtest.h>

#include <random>

namespace {

// The conversion written out of place, straight from its definition: each output frame
// interpolates between the two input frames around i * from / to.
std::vector<std::int16_t> ReferenceResample(const std::vector<std::int16_t>& in, int channels, int from,
                                            int to) {
  const std::size_t frames = in.size() / channels;
  const double step = static_cast<double>(from) / to;
  const std::size_t out_frames = frames * to / from;
  std::vector<std::int16_t> out(out_frames * channels);
  for (std::size_t i = 0; i < out_frames; ++i) {
    const std::size_t lower = static_cast<std::size_t>(i * step);
    const std::size_t upper = std::min(lower + 1, frames - 1);
    double f = i * step - static_cast<double>(lower);
    // Upsampling states the fraction as a distance from the lower frame in output units.
    if (to > from) f = upper == lower ? 0.0 : (i - lower / step) * step / static_cast<double>(upper - lower);
    for (int c = 0; c < channels; ++c)
      out[i * channels + c] =
          static_cast<std::int16_t>(in[lower * channels + c] * (1.0 - f) + in[upper * channels + c] * f);
  }
  return out;
}

std::vector<std::int16_t> Noise(std::size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> value(-32768, 32767);
  std::vector<std::int16_t> samples(count);
  for (auto& s : samples) s = static_cast<std::int16_t>(value(random));
  return samples;
}

TEST(ResampleLinear, MatchesTheOutOfPlaceDefinitionForCommonRates) {
  const int rates[] = {8000, 22050, 32000, 44100, 48000, 96000, 192000};
  for (int from : rates) {
    for (int channels : {1, 2, 6}) {
      const std::vector<std::int16_t> input =
          Noise(static_cast<std::size_t>(997) * channels, from + channels);
      std::vector<std::int16_t> audio = input;
      ResampleLinear(&audio, channels, from, 44100);
      ASSERT_EQ(audio, ReferenceResample(input, channels, from, 44100))
          << from << " Hz, " << channels << " channels";
    }
  }
}

TEST(ResampleLinear, FortyEightKilohertzKeepsTheTruncatedFrameCount) {
  for (std::size_t frames : {14400u, 48000u, 48001u, 123457u}) {
    std::vector<std::int16_t> audio(frames * 2, 7);
    ResampleLinear(&audio, 2, 48000, 44100);
    EXPECT_EQ(audio.size() / 2, frames * 44100 / 48000) << frames;
    EXPECT_EQ(audio.front(), 7);
    EXPECT_EQ(audio.back(), 7);
  }
}

TEST(ResampleLinear, DoublingTheRateInterpolatesMidpoints) {
  std::vector<std::int16_t> audio = {0, 100, 300, -301};
  ResampleLinear(&audio, 1, 22050, 44100);
  // The last output frame has no upper neighbour and repeats the last input.
  EXPECT_EQ(audio, (std::vector<std::int16_t>{0, 50, 100, 200, 300, 0, -301, -301}));
}

TEST(ResampleLinear, HalvingTheRateTakesEveryOtherFrame) {
  std::vector<std::int16_t> audio = {1, -1, 2, -2, 3, -3, 4, -4, 5, -5};
  ResampleLinear(&audio, 2, 88200, 44100);
  EXPECT_EQ(audio, (std::vector<std::int16_t>{1, -1, 3, -3}));
}

TEST(ResampleLinear, EqualRatesAndEmptyAudioAreLeftAlone) {
  std::vector<std::int16_t> audio = {1, 2, 3};
  ResampleLinear(&audio, 1, 44100, 44100);
  EXPECT_EQ(audio, (std::vector<std::int16_t>{1, 2, 3}));
  std::vector<std::int16_t> empty;
  ResampleLinear(&empty, 2, 8000, 44100);
  EXPECT_TRUE(empty.empty());
}

TEST(ResampleLinear, RefusesAResultBeyondAnIntFrameCount) {
  std::vector<std::int16_t> audio(100000);
  EXPECT_THROW(ResampleLinear(&audio, 1, 1, 44100), std::bad_alloc);
  EXPECT_EQ(audio.size(), 100000u) << "untouched on refusal";
}

TEST(FoldChannels, FiveOneFoldsAlternateChannelsEachDividedByThree) {
  // Two frames of 5.1.
  std::vector<std::int16_t> audio = {300, 30, 600, 60, 900, 90, -3, -30001, 7, 8, 9, 30001};
  FoldChannels(&audio, 6, 2);
  EXPECT_EQ(audio,
            (std::vector<std::int16_t>{100 + 200 + 300, 10 + 20 + 30, -1 + 2 + 3, -10000 + 2 + 10000}));
}

TEST(FoldChannels, ThreeChannelsSplitTheLeftAndKeepTheRight) {
  std::vector<std::int16_t> audio = {32767, -32768, 32767, -5, 7, 9};
  FoldChannels(&audio, 3, 2);
  EXPECT_EQ(audio, (std::vector<std::int16_t>{16383 + 16383, -32768, -2 + 4, 7}));
}

TEST(FoldChannels, FewerChannelsThanTheLimitAreKept) {
  std::vector<std::int16_t> audio = {1, 2, 3, 4};
  FoldChannels(&audio, 2, 2);
  FoldChannels(&audio, 1, 2);
  EXPECT_EQ(audio, (std::vector<std::int16_t>{1, 2, 3, 4}));
}

}  // namespace
