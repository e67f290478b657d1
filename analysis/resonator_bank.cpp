#include "analysis/resonator_bank.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "analysis/resonator_band.h"
#include "analysis/resonator_grid.h"
#include "score/spectrogram.h"

#if defined(__GNUC__) && defined(__x86_64__)
#define TONEMILL_AVX512_KERNEL 1
#endif

namespace {

constexpr int kMaxPasses = ResonatorBank::kMaxPasses;
// Samples filtered between two read-outs; the window adds two periods of the lowest band.
constexpr int64_t kChunkSamples = 8192;

// Per-lane coefficients of the current segment.
template <int kLanes>
struct LaneCoefficients {
  float two_c[kLanes];
  float one_minus_alpha[kLanes];
  float alpha[kLanes];
  float one_plus_alpha[kLanes];
};

// Per-lane state of each chained pass.
template <int kLanes>
struct LaneState {
  float x1[kMaxPasses][kLanes];
  float x2[kMaxPasses][kLanes];
  float y1[kMaxPasses][kLanes];
  float y2[kMaxPasses][kLanes];
};

// The resonator recursion for `count` samples of one input stream, kLanes bands side by
// side, kPasses passes chained: y = (2c y1 - (1 - alpha) y2 + alpha (x - x2)) / (1 + alpha),
// all in single precision and in exactly this order, with pass p's output the input of pass
// p + 1. out[i * kLanes + lane] receives the last pass. The state is held in locals so that
// it stays in registers; the lane loops are what the compiler vectorises.
template <int kLanes, int kPasses>
inline __attribute__((always_inline)) void ResonateLanes(const float* in, int64_t count, float* out,
                                                         const LaneCoefficients<kLanes>& coef,
                                                         LaneState<kLanes>* state) {
  float two_c[kLanes], one_minus[kLanes], alpha[kLanes], one_plus[kLanes];
  float x1[kPasses][kLanes], x2[kPasses][kLanes], y1[kPasses][kLanes], y2[kPasses][kLanes];
  for (int k = 0; k < kLanes; ++k) {
    two_c[k] = coef.two_c[k];
    one_minus[k] = coef.one_minus_alpha[k];
    alpha[k] = coef.alpha[k];
    one_plus[k] = coef.one_plus_alpha[k];
  }
  for (int p = 0; p < kPasses; ++p) {
    for (int k = 0; k < kLanes; ++k) {
      x1[p][k] = state->x1[p][k];
      x2[p][k] = state->x2[p][k];
      y1[p][k] = state->y1[p][k];
      y2[p][k] = state->y2[p][k];
    }
  }
  for (int64_t i = 0; i < count; ++i) {
    float x[kLanes];
    for (int k = 0; k < kLanes; ++k) x[k] = in[i];
    for (int p = 0; p < kPasses; ++p) {
      for (int k = 0; k < kLanes; ++k) {
        const float y =
            (two_c[k] * y1[p][k] - one_minus[k] * y2[p][k] + alpha[k] * (x[k] - x2[p][k])) / one_plus[k];
        x2[p][k] = x1[p][k];
        x1[p][k] = x[k];
        y2[p][k] = y1[p][k];
        y1[p][k] = y;
        x[k] = y;
      }
    }
    float* o = out + i * kLanes;
    for (int k = 0; k < kLanes; ++k) o[k] = x[k];
  }
  for (int p = 0; p < kPasses; ++p) {
    for (int k = 0; k < kLanes; ++k) {
      state->x1[p][k] = x1[p][k];
      state->x2[p][k] = x2[p][k];
      state->y1[p][k] = y1[p][k];
      state->y2[p][k] = y2[p][k];
    }
  }
}

template <int kLanes>
using LaneKernel = void (*)(const float*, int64_t, float*, const LaneCoefficients<kLanes>&,
                            LaneState<kLanes>*);

// The baseline instruction set of the build (SSE2 on x86-64).
template <int kPasses>
void ResonateBase(const float* in, int64_t count, float* out,
                  const LaneCoefficients<ResonatorBank::kBaseLanes>& coef,
                  LaneState<ResonatorBank::kBaseLanes>* state) {
  ResonateLanes<ResonatorBank::kBaseLanes, kPasses>(in, count, out, coef, state);
}

#ifdef TONEMILL_AVX512_KERNEL
// The same arithmetic compiled for AVX-512, chosen at run time where the processor has it.
// The operations and their order are those of the baseline kernel, so are the results.
template <int kPasses>
__attribute__((target("avx512f,prefer-vector-width=512"))) void ResonateWide(
    const float* in, int64_t count, float* out, const LaneCoefficients<ResonatorBank::kWideLanes>& coef,
    LaneState<ResonatorBank::kWideLanes>* state) {
  ResonateLanes<ResonatorBank::kWideLanes, kPasses>(in, count, out, coef, state);
}
#endif

template <int kLanes>
LaneKernel<kLanes> KernelFor(int passes);

template <>
LaneKernel<ResonatorBank::kBaseLanes> KernelFor<ResonatorBank::kBaseLanes>(int passes) {
  switch (passes) {
    case 1:
      return &ResonateBase<1>;
    case 2:
      return &ResonateBase<2>;
    case 3:
      return &ResonateBase<3>;
    case 4:
      return &ResonateBase<4>;
    default:
      return nullptr;
  }
}

template <>
LaneKernel<ResonatorBank::kWideLanes> KernelFor<ResonatorBank::kWideLanes>(int passes) {
#ifdef TONEMILL_AVX512_KERNEL
  switch (passes) {
    case 1:
      return &ResonateWide<1>;
    case 2:
      return &ResonateWide<2>;
    case 3:
      return &ResonateWide<3>;
    case 4:
      return &ResonateWide<4>;
    default:
      return nullptr;
  }
#else
  return nullptr;
#endif
}

// The filtered signal of all lanes for the samples [start, end), interleaved, with the
// columns read out as soon as every sample they look at is there.
template <int kLanes>
class SlidingWindow {
 public:
  SlidingWindow(const ResonatorGrid& grid_, const std::vector<ResonatorBand>& bands_, int lanes_,
                Spectrogram* out_, int first_band_)
      : grid(grid_), bands(bands_), lanes(lanes_), out(out_), first_band(first_band_) {
    for (int k = 0; k < lanes; ++k) max_period = std::max(max_period, bands[k].period);
    capacity = kChunkSamples + 2 * max_period + 4;
    buffer.assign(static_cast<size_t>(capacity) * kLanes, 0.0f);
  }

  // Room for at least one more sample, and the place where the next `*count` may go.
  float* Reserve(int64_t* count) {
    if (end - start == capacity) Advance();
    *count = std::min(*count, start + capacity - end);
    return buffer.data() + (end - start) * kLanes;
  }
  void Commit(int64_t count) { end += count; }
  int64_t End() const { return end; }

  // Reads out every column whose samples are all filtered.
  void ReadReady() {
    while (next_column < grid.num_times) {
      const int64_t centre = grid.Centre(next_column);
      if (std::min(centre + max_period, grid.num_samples - 1) >= end) return;
      for (int k = 0; k < lanes; ++k) {
        out->amplitudes[first_band + k][next_column] =
            grid.Envelope(buffer.data() + k, start, kLanes, centre, bands[k].period);
      }
      ++next_column;
    }
  }

 private:
  // Reads out what it can, then drops the samples that no remaining column looks at.
  void Advance() {
    ReadReady();
    int64_t keep_from = end;
    if (next_column < grid.num_times) {
      keep_from = std::max<int64_t>(0, grid.Centre(next_column) - max_period - 1);
    }
    keep_from = std::min(std::max(keep_from, start), end);
    const int64_t kept = end - keep_from;
    std::memmove(buffer.data(), buffer.data() + (keep_from - start) * kLanes, kept * kLanes * sizeof(float));
    start = keep_from;
    // The window always spans more than the two periods a column looks at, so a column is
    // ready once the window is full; growing is only a guard against a stall.
    if (end - start == capacity) {
      capacity += kChunkSamples;
      buffer.resize(static_cast<size_t>(capacity) * kLanes, 0.0f);
    }
  }

  const ResonatorGrid& grid;
  const std::vector<ResonatorBand>& bands;
  int lanes;
  Spectrogram* out;
  int first_band;
  int64_t max_period = 1;
  int64_t capacity = 0;
  std::vector<float> buffer;
  int64_t start = 0;  // sample held at buffer[0]
  int64_t end = 0;    // one past the last filtered sample
  int next_column = 0;
};

template <int kLanes>
bool FillLanes(int first_band, const std::vector<float>& samples, double sample_rate, Spectrogram* out,
               const Spectrogram* q_map) {
  const LaneKernel<kLanes> kernel = KernelFor<kLanes>(out->filter_passes);
  if (kernel == nullptr) return false;
  const int lanes = std::min(kLanes, out->num_freqs - first_band);
  if (lanes <= 0) return true;
  const int64_t n = std::llabs(ResonatorGrid::ResonatorBufferLength(samples.size()));
  if (out->num_times < 2 || n < 3) {
    for (int k = 0; k < lanes; ++k) {
      std::vector<float>& row = out->amplitudes[first_band + k];
      std::fill(row.begin(), row.end(), 0.0f);
    }
    return true;
  }

  const ResonatorGrid grid(*out, n, sample_rate);
  std::vector<ResonatorBand> bands;
  bands.reserve(kLanes);
  for (int k = 0; k < lanes; ++k) bands.emplace_back(first_band + k, *out, q_map, sample_rate);

  LaneCoefficients<kLanes> coef{};
  LaneState<kLanes> state{};
  for (int k = 0; k < kLanes; ++k) coef.one_plus_alpha[k] = 1.0f;  // idle lanes stay finite
  for (int k = 0; k < lanes; ++k) coef.two_c[k] = 2.0f * bands[k].c;

  SlidingWindow<kLanes> window(grid, bands, lanes, out, first_band);
  for (int t = ResonatorGrid::first_filter_frame - 1; t < grid.num_times; ++t) {
    const int64_t e = grid.SegmentEnd(t);
    if (window.End() > e) continue;
    for (int k = 0; k < lanes; ++k) {
      const float alpha = bands[k].Alpha(t);
      coef.alpha[k] = alpha;
      coef.one_minus_alpha[k] = 1.0f - alpha;
      coef.one_plus_alpha[k] = 1.0f + alpha;
    }
    while (window.End() <= e) {
      int64_t count = e + 1 - window.End();
      float* dest = window.Reserve(&count);
      kernel(samples.data() + window.End(), count, dest, coef, &state);
      window.Commit(count);
    }
  }
  // Samples that no segment reached stay zero, as in a freshly zeroed work buffer.
  while (window.End() < n) {
    int64_t count = n - window.End();
    float* dest = window.Reserve(&count);
    std::fill(dest, dest + count * kLanes, 0.0f);
    window.Commit(count);
  }
  window.ReadReady();
  return true;
}

bool WideLanesAvailable() {
#ifdef TONEMILL_AVX512_KERNEL
  static const bool available = __builtin_cpu_supports("avx512f");
  return available;
#else
  return false;
#endif
}

}  // namespace

int ResonatorBank::Lanes() { return WideLanesAvailable() ? kWideLanes : kBaseLanes; }

bool ResonatorBank::Fill(int first_band, const std::vector<float>& samples, double sample_rate,
                         Spectrogram* out, const Spectrogram* q_map, int lanes) {
  if (lanes == kWideLanes && WideLanesAvailable()) {
    return FillLanes<kWideLanes>(first_band, samples, sample_rate, out, q_map);
  }
  if (lanes == kBaseLanes) return FillLanes<kBaseLanes>(first_band, samples, sample_rate, out, q_map);
  return false;
}
