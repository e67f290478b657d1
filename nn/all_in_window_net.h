#pragma once

#include "nn/conv_layer.h"
#include "nn/conv_layer_norm.h"
#include "nn/fft_conv_layer.h"
#include "nn/max_pool.h"
#include "nn/slice.h"
#include "nn/sum.h"
#include "nn/tensor.h"

// The note network. Input {1, 352, 720}: 4 spectrogram bands per key, lowest first, by 720
// columns of 10 ms, amplitudes as they stand. Output {2, 88, 138}: row k is key k and each
// column 40 ms of the window's centre; channel 0 is the onset probability. Two pools bring
// the window to one row per key; then residual blocks of a frequency pass and a time pass.
// The convolutions borrow the global tables of note_net_weights.h, which must be filled
// before a network is made. One object serves one thread at a time.
class AllInWindowNet {
 public:
  // Note finding passes 720, 12, 7, 7: the first and last 84 frames are context only.
  AllInWindowNet(int window_frames, int frames_per_group, int left_margin_groups, int right_margin_groups);

  // Run(input, 1): windows run in parallel already.
  Tensor Process(const Tensor& input);
  Tensor Run(const Tensor& input, int num_threads);

  float epsilon = 1e-5f;
  ConvLayerNorm conv_1;
  ConvLayer conv_2;
  MaxPool first_pool;
  ConvLayer conv_3;
  ConvLayer conv_4;
  Sum first_sum;
  MaxPool second_pool;
  ConvLayer conv_5;
  ConvLayer conv_6;
  Sum second_sum;
  FFTConvLayer conv_7;
  ConvLayer conv_8;
  Sum third_sum;
  FFTConvLayer conv_9;
  FFTConvLayer conv_10;
  Sum fourth_sum;
  FFTConvLayer conv_11;
  FFTConvLayer conv_12;
  Sum fifth_sum;
  ConvLayer conv_13;
  Slice crop;
};
