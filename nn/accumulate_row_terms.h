#pragma once

// The hot loop of the direct convolution. For every x in [x_begin, x_end):
//   out[x] = bias + w[0] * rows[0][x + offsets[0]] + w[1] * rows[1][x + offsets[1]] + ...
// summed in float in term order. Each SIMD lane holds one output cell and adds the terms in
// exactly that order, so the result is the same as the plain loop, lane for lane. Every
// index x + offsets[t] must lie inside rows[t].
void AccumulateRowTerms(const float* w, const float* const* rows, const int* offsets, int terms, float bias,
                        int x_begin, int x_end, float* out);
