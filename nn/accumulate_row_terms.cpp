#include "nn/accumulate_row_terms.h"

namespace {

// Eight floats. The unaligned alias lets rows be read at any offset; scalars broadcast
// when they meet a vector, so no helper has to return a vector.
typedef float Vec8 __attribute__((vector_size(32)));
typedef float UnalignedVec8 __attribute__((vector_size(32), aligned(4), may_alias));

// Cells [x, x + 8 * kVectors). Each lane's sum depends only on its own cell, so a block may
// overlap one already written: it writes the same numbers again.
template <int kVectors>
inline __attribute__((always_inline)) void Block(const float* w, const float* const* rows, const int* offsets,
                                                 int terms, float bias, int x, float* out) {
  Vec8 acc[kVectors];
  for (int j = 0; j < kVectors; ++j) acc[j] = Vec8{} + bias;
  for (int t = 0; t < terms; ++t) {
    const float weight = w[t];
    const UnalignedVec8* src = reinterpret_cast<const UnalignedVec8*>(rows[t] + (x + offsets[t]));
    for (int j = 0; j < kVectors; ++j) acc[j] += weight * src[j];
  }
  UnalignedVec8* dst = reinterpret_cast<UnalignedVec8*>(out + x);
  for (int j = 0; j < kVectors; ++j) dst[j] = acc[j];
}

}  // namespace

// Built twice where the compiler can: for AVX2 machines and for the baseline; the loader
// picks one at start-up. Both add in the same order, so they agree to the bit.
#if defined(__x86_64__) && defined(__GNUC__)
__attribute__((target_clones("avx2", "default")))
#endif
void AccumulateRowTerms(const float* w, const float* const* rows, const int* offsets, int terms, float bias,
                        int x_begin, int x_end, float* out) {
  // Eight independent sums per term hide the latency of the additions.
  constexpr int kWide = 64;
  constexpr int kNarrow = 16;
  const int width = x_end - x_begin;
  int x = x_begin;
  if (width >= kWide) {
    for (; x + kWide <= x_end; x += kWide) Block<8>(w, rows, offsets, terms, bias, x, out);
    if (x < x_end) Block<8>(w, rows, offsets, terms, bias, x_end - kWide, out);
    return;
  }
  if (width >= kNarrow) {
    for (; x + kNarrow <= x_end; x += kNarrow) Block<2>(w, rows, offsets, terms, bias, x, out);
    if (x < x_end) Block<2>(w, rows, offsets, terms, bias, x_end - kNarrow, out);
    return;
  }
  for (; x < x_end; ++x) {
    float a = bias;
    for (int t = 0; t < terms; ++t) a += w[t] * rows[t][x + offsets[t]];
    out[x] = a;
  }
}
