#include "nn/accumulate_row_terms.h"

#include <cstring>

namespace {

// Eight floats; loads and stores go through memcpy, so rows need no alignment.
typedef float Vec8 __attribute__((vector_size(32)));

inline Vec8 Load(const float* p) {
  Vec8 v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

inline void Store(float* p, Vec8 v) { std::memcpy(p, &v, sizeof v); }

inline Vec8 Splat(float x) { return Vec8{x, x, x, x, x, x, x, x}; }

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
    Vec8 a0 = Splat(bias), a1 = a0, a2 = a0, a3 = a0;
    for (int t = 0; t < terms; ++t) {
      const Vec8 weight = Splat(w[t]);
      const float* src = rows[t] + (x + offsets[t]);
      a0 += weight * Load(src);
      a1 += weight * Load(src + 8);
      a2 += weight * Load(src + 16);
      a3 += weight * Load(src + 24);
    }
    Store(out + x, a0);
    Store(out + x + 8, a1);
    Store(out + x + 16, a2);
    Store(out + x + 24, a3);
  }
  for (; x + 8 <= x_end; x += 8) {
    Vec8 a = Splat(bias);
    for (int t = 0; t < terms; ++t) a += Splat(w[t]) * Load(rows[t] + (x + offsets[t]));
    Store(out + x, a);
  }
  for (; x < x_end; ++x) {
    float a = bias;
    for (int t = 0; t < terms; ++t) a += w[t] * rows[t][x + offsets[t]];
    out[x] = a;
  }
}
