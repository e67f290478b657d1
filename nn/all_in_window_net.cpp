#include "nn/all_in_window_net.h"

#include <tuple>

#include "nn/note_net_weights.h"

namespace {

using N = Squash::Nonlinearities;

}  // namespace

#define TONEMILL_BATCH_NORM_TABLES(N)                                                                  \
  conv_##N##_batch_norm_running_mean, conv_##N##_batch_norm_running_var, conv_##N##_batch_norm_weight, \
      conv_##N##_batch_norm_bias, conv_##N##_conv_weight, conv_##N##_conv_bias

AllInWindowNet::AllInWindowNet(int window_frames, int frames_per_group, int left_margin_groups,
                               int right_margin_groups)
    : conv_1(conv_1_layer_norm_scaling_weight, conv_1_layer_norm_scaling_bias, conv_1_conv_weight,
             conv_1_conv_bias, N::Relu, true),
      conv_2(TONEMILL_BATCH_NORM_TABLES(2), N::Relu, true),
      first_pool({3, 3}, {2, 2}, {1, 1}, N::None),
      conv_3(TONEMILL_BATCH_NORM_TABLES(3), N::Relu, true),
      conv_4(TONEMILL_BATCH_NORM_TABLES(4), N::None, true),
      first_sum(N::Relu),
      second_pool({2, 2}, {2, 2}, {0, 0}, N::None),
      conv_5(TONEMILL_BATCH_NORM_TABLES(5), N::Relu, true),
      conv_6(TONEMILL_BATCH_NORM_TABLES(6), N::None, true),
      second_sum(N::Relu),
      conv_7(TONEMILL_BATCH_NORM_TABLES(7), N::Relu, true),
      conv_8(TONEMILL_BATCH_NORM_TABLES(8), N::None, true),
      third_sum(N::Relu),
      conv_9(TONEMILL_BATCH_NORM_TABLES(9), N::Relu, true),
      conv_10(TONEMILL_BATCH_NORM_TABLES(10), N::None, true),
      fourth_sum(N::Relu),
      conv_11(TONEMILL_BATCH_NORM_TABLES(11), N::Relu, true),
      conv_12(TONEMILL_BATCH_NORM_TABLES(12), N::None, true),
      fifth_sum(N::Relu),
      conv_13(TONEMILL_BATCH_NORM_TABLES(13), N::Sigmoid, true),
      crop({std::make_tuple(0, -1, 1), std::make_tuple(0, -1, 1),
            std::make_tuple(3 * left_margin_groups,
                            3 * (window_frames / frames_per_group - right_margin_groups), 1)}) {}

#undef TONEMILL_BATCH_NORM_TABLES

Tensor AllInWindowNet::Process(const Tensor& input) { return Run(input, 1); }

Tensor AllInWindowNet::Run(const Tensor& input, int num_threads) {
  const int t = num_threads;
  Tensor x = conv_1({&input}, t);
  x = conv_2({&x}, t);
  Tensor skip = first_pool({&x}, t);
  x = conv_3({&skip}, t);
  x = conv_4({&x}, t);
  x = first_sum({&skip, &x}, t);  // the 25 pooled channels tiled over 50
  skip = second_pool({&x}, t);
  x = conv_5({&skip}, t);
  x = conv_6({&x}, t);
  skip = second_sum({&skip, &x}, t);
  x = conv_7({&skip}, t);
  x = conv_8({&x}, t);
  skip = third_sum({&skip, &x}, t);
  x = conv_9({&skip}, t);
  x = conv_10({&x}, t);
  skip = fourth_sum({&skip, &x}, t);
  x = conv_11({&skip}, t);
  x = conv_12({&x}, t);
  x = fifth_sum({&skip, &x}, t);
  x = conv_13({&x}, t);
  return crop({&x}, t);
}
