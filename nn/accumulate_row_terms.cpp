#include "nn/accumulate_row_terms.h"

namespace {

// Eight floats. The unaligned alias lets rows be read at any offset; scalars broadcast
// when they meet a vector, so no helper has to return a vector.
typedef float Vec8 __attribute__((vector_size(32)));
typedef float UnalignedVec8 __attribute__((vector_size(32), aligned(4), may_alias));

}  // namespace

// Built twice where the compiler can: for AVX2 machines and for the baseline; the loader
// picks one at start-up. Both add in the same order, so they agree to the bit.
#if defined(__x86_64__) && defined(__GNUC__)
__attribute__((target_clones("avx2", "default")))
#endif
void AccumulateRowTerms(const float* w, const float* const* rows, const int* offsets, int terms, float bias,
                        int x_begin, int x_end, float* out) {
  constexpr int kBlock = 32;
  int x = x_begin;
  for (; x + kBlock <= x_end; x += kBlock) {
    Vec8 a0 = Vec8{} + bias, a1 = a0, a2 = a0, a3 = a0;
    for (int t = 0; t < terms; ++t) {
      const float weight = w[t];
      const UnalignedVec8* src = reinterpret_cast<const UnalignedVec8*>(rows[t] + (x + offsets[t]));
      a0 += weight * src[0];
      a1 += weight * src[1];
      a2 += weight * src[2];
      a3 += weight * src[3];
    }
    UnalignedVec8* dst = reinterpret_cast<UnalignedVec8*>(out + x);
    dst[0] = a0;
    dst[1] = a1;
    dst[2] = a2;
    dst[3] = a3;
  }
  for (; x + 8 <= x_end; x += 8) {
    Vec8 a = Vec8{} + bias;
    for (int t = 0; t < terms; ++t) a += w[t] * *reinterpret_cast<const UnalignedVec8*>(rows[t] + (x + offsets[t]));
    *reinterpret_cast<UnalignedVec8*>(out + x) = a;
  }
  for (; x < x_end; ++x) {
    float a = bias;
    for (int t = 0; t < terms; ++t) a += w[t] * rows[t][x + offsets[t]];
    out[x] = a;
  }
}
