#include "nn/fft_conv.h"

#include <kiss_fftr.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <new>

namespace {

// A kiss_fftr state that frees itself.
class RealFft {
 public:
  RealFft(int size, bool inverse)
      : state(size >= 2 && size % 2 == 0 ? kiss_fftr_alloc(size, inverse, nullptr, nullptr) : nullptr) {}
  ~RealFft() { kiss_fftr_free(state); }
  RealFft(const RealFft&) = delete;
  RealFft& operator=(const RealFft&) = delete;
  kiss_fftr_cfg state;
};

void ReportOutOfMemory() { std::cout << "Out of memory." << std::endl; }

constexpr int kVectorBins = 8;
typedef float Vec8 __attribute__((vector_size(32)));
typedef float UnalignedVec8 __attribute__((vector_size(32), aligned(4), may_alias));

// bins complex values into `padded` real parts followed by `padded` imaginary parts.
void Split(const kiss_fft_cpx* in, int bins, int padded, float* out) {
  for (int k = 0; k < bins; ++k) {
    out[k] = in[k].r;
    out[padded + k] = in[k].i;
  }
}

// kBlocks * 8 bins [k, k + 8 * kBlocks) of AccumulateSpectra; independent sums per block
// hide the latency of the additions.
template <int kBlocks>
inline __attribute__((always_inline)) void SpectraBlock(const float* x, const float* w, int inputs,
                                                        int padded, int k, float* acc) {
  Vec8 re[kBlocks], im[kBlocks];
  for (int b = 0; b < kBlocks; ++b) re[b] = im[b] = Vec8{};
  const float* xi = x + k;
  const float* wi = w + k;
  for (int i = 0; i < inputs; ++i, xi += 2 * padded, wi += 2 * padded) {
    for (int b = 0; b < kBlocks; ++b) {
      const Vec8 xr = *reinterpret_cast<const UnalignedVec8*>(xi + 8 * b);
      const Vec8 xm = *reinterpret_cast<const UnalignedVec8*>(xi + padded + 8 * b);
      const Vec8 wr = *reinterpret_cast<const UnalignedVec8*>(wi + 8 * b);
      const Vec8 wm = *reinterpret_cast<const UnalignedVec8*>(wi + padded + 8 * b);
      re[b] += xr * wr - xm * wm;
      im[b] += xr * wm + xm * wr;
    }
  }
  for (int b = 0; b < kBlocks; ++b) {
    *reinterpret_cast<UnalignedVec8*>(acc + k + 8 * b) = re[b];
    *reinterpret_cast<UnalignedVec8*>(acc + padded + k + 8 * b) = im[b];
  }
}

// acc = the sum over input channels i, in ascending order, of x_i * w_i per bin, complex
// and in float: acc += (x.r * w.r - x.i * w.i, x.r * w.i + x.i * w.r). The spectra of the
// inputs lie one after the other, and so do the kernels'. All are split [real bins]
// [imaginary bins], `padded` bins each, a multiple of eight. Each lane is one bin.
#if defined(__x86_64__) && defined(__GNUC__)
__attribute__((target_clones("avx2", "default")))
#endif
void AccumulateSpectra(const float* x, const float* w, int inputs, int padded, float* acc) {
  int k = 0;
  for (; k + 4 * kVectorBins <= padded; k += 4 * kVectorBins) SpectraBlock<4>(x, w, inputs, padded, k, acc);
  for (; k < padded; k += kVectorBins) SpectraBlock<1>(x, w, inputs, padded, k, acc);
}

}  // namespace

int NextPowerOfTwo(int x) {
  if (x <= 1) return 1;
  return static_cast<int>(std::lround(std::pow(2.0, std::ceil(std::log(x) * 1.4426950408889634))));
}

void ZeroReals(float* buffer, int count) {
  if (count > 0) std::fill(buffer, buffer + count, 0.0f);
}

void ZeroFft(kiss_fft_cpx* buffer, int count) {
  if (count > 0) std::fill(buffer, buffer + count, kiss_fft_cpx{0.0f, 0.0f});
}

void DeleteWeightFfts(kiss_fft_cpx*** ffts, int outputs, int inputs) {
  if (!ffts) return;
  for (int o = 0; o < outputs; ++o) {
    if (!ffts[o]) continue;
    for (int i = 0; i < inputs; ++i) delete[] ffts[o][i];
    delete[] ffts[o];
  }
  delete[] ffts;
}

FFTConv::FFTConv(const ConvWeights& weights_, const std::vector<float>& bias_, Squash::Nonlinearities squash_,
                 bool same_)
    : Layer(squash_), weights(weights_), bias(bias_), same(same_) {
  const int outputs = static_cast<int>(weights.size());
  const int inputs = outputs > 0 ? static_cast<int>(weights[0].size()) : 0;
  const int rows = inputs > 0 ? static_cast<int>(weights[0][0].size()) : 0;
  const int columns = rows > 0 ? static_cast<int>(weights[0][0][0].size()) : 0;
  shape = {outputs, inputs, rows, columns};
}

FFTConv::FFTConv(FFTConv&& other) noexcept
    : Layer(other.squash),
      shape(std::move(other.shape)),
      weights(other.weights),
      bias(other.bias),
      same(other.same),
      fft_size(other.fft_size),
      kernel_offset(other.kernel_offset),
      input_offset(other.input_offset),
      kernel_length(other.kernel_length),
      along_rows(other.along_rows),
      weight_ffts(other.weight_ffts),
      fft_outputs(other.fft_outputs),
      fft_inputs(other.fft_inputs),
      lines(other.lines),
      line_length(other.line_length),
      padded_bins(other.padded_bins),
      split_weight_ffts(std::move(other.split_weight_ffts)),
      input_ffts(std::move(other.input_ffts)) {
  other.weight_ffts = nullptr;
}

FFTConv::~FFTConv() { ReleaseTransforms(); }

void FFTConv::ReleaseTransforms() {
  DeleteWeightFfts(weight_ffts, fft_outputs, fft_inputs);
  weight_ffts = nullptr;
  fft_outputs = 0;
  fft_inputs = 0;
}

std::vector<int> FFTConv::OutputShape(const std::vector<const Tensor*>& inputs) {
  const Tensor& input = *inputs[0];
  const int rows = input.shape[1];
  const int columns = input.shape[2];
  ReleaseTransforms();
  input_ffts.clear();
  split_weight_ffts.clear();
  lines = 0;
  line_length = 0;
  fft_size = 0;
  if (shape[2] == 1) {
    along_rows = false;
    kernel_length = shape[3];
    line_length = columns;
    lines = rows;
  } else if (shape[3] == 1) {
    along_rows = true;
    kernel_length = shape[2];
    line_length = rows;
    lines = columns;
  } else {
    std::cout << "FFTConv serves one-dimensional kernels only." << std::endl;
  }
  if (line_length > 0 && kernel_length > 0) {
    fft_size = NextPowerOfTwo(kernel_length / 2 * 2 + line_length);
    kernel_offset = (fft_size - kernel_length) / 2;
    padded_bins = (fft_size / 2 + 1 + kVectorBins - 1) / kVectorBins * kVectorBins;
    input_offset = (fft_size - line_length) / 2;
    if (TransformKernels()) TransformInput(input);
  }
  if (same) return {shape[0], rows, columns};
  return {shape[0], std::max(0, rows + 1 - shape[2]), std::max(0, columns + 1 - shape[3])};
}

bool FFTConv::TransformKernels() {
  RealFft forward(fft_size, false);
  std::vector<float> real(fft_size);
  if (!forward.state) {
    ReportOutOfMemory();
    return false;
  }
  const int outputs = shape[0];
  const int inputs = shape[1];
  weight_ffts = new (std::nothrow) kiss_fft_cpx**[outputs]();
  if (!weight_ffts) {
    ReportOutOfMemory();
    return false;
  }
  fft_outputs = outputs;
  fft_inputs = inputs;
  for (int o = 0; o < outputs; ++o) {
    weight_ffts[o] = new (std::nothrow) kiss_fft_cpx*[inputs]();
    if (!weight_ffts[o]) {
      ReportOutOfMemory();
      ReleaseTransforms();
      return false;
    }
    for (int i = 0; i < inputs; ++i) {
      weight_ffts[o][i] = new (std::nothrow) kiss_fft_cpx[fft_size];
      if (!weight_ffts[o][i]) {
        ReportOutOfMemory();
        ReleaseTransforms();
        return false;
      }
      ZeroReals(real.data(), fft_size);
      const auto& kernel = weights[o][i];
      // Reversed once here, so that the product of transforms is a cross-correlation.
      for (int k = 0; k < kernel_length; ++k)
        real[fft_size - 1 - kernel_offset - k] = along_rows ? kernel[k][0] : kernel[0][k];
      ZeroFft(weight_ffts[o][i], fft_size);
      kiss_fftr(forward.state, real.data(), weight_ffts[o][i]);
    }
  }
  split_weight_ffts.assign(static_cast<size_t>(outputs) * inputs * 2 * padded_bins, 0.0f);
  for (int o = 0; o < outputs; ++o)
    for (int i = 0; i < inputs; ++i)
      Split(weight_ffts[o][i], fft_size / 2 + 1, padded_bins,
            &split_weight_ffts[(static_cast<size_t>(o) * inputs + i) * 2 * padded_bins]);
  return true;
}

void FFTConv::TransformInput(const Tensor& input) {
  RealFft forward(fft_size, false);
  if (!forward.state) {
    ReportOutOfMemory();
    ReleaseTransforms();
    return;
  }
  const int channels = std::min(shape[1], input.shape[0]);
  input_ffts.assign(static_cast<size_t>(channels) * lines * 2 * padded_bins, 0.0f);
  std::vector<float> real(fft_size, 0.0f);
  std::vector<kiss_fft_cpx> transform(fft_size);
  for (int i = 0; i < channels; ++i) {
    const auto& data = input.data[i];
    for (int line = 0; line < lines; ++line) {
      float* place = real.data() + input_offset;
      if (along_rows) {
        for (int j = 0; j < line_length; ++j) place[j] = data[j][line];
      } else {
        std::copy(data[line].begin(), data[line].begin() + line_length, place);
      }
      kiss_fftr(forward.state, real.data(), transform.data());
      Split(transform.data(), fft_size / 2 + 1, padded_bins,
            &input_ffts[(static_cast<size_t>(line) * channels + i) * 2 * padded_bins]);
    }
  }
}

void FFTConv::CalculateChannel(const std::vector<const Tensor*>& inputs, int channel, Tensor* output) {
  if (!weight_ffts || input_ffts.empty()) return;
  RealFft inverse(fft_size, true);
  if (!inverse.state) {
    ReportOutOfMemory();
    return;
  }
  const int bins = fft_size / 2 + 1;
  const int channels = std::min(shape[1], inputs[0]->shape[0]);
  std::vector<float> accumulator(2 * padded_bins);
  std::vector<kiss_fft_cpx> spectrum(fft_size);
  std::vector<float> real(fft_size);
  auto& out = output->data[channel];
  const int out_lines = along_rows ? output->shape[2] : output->shape[1];
  const int out_length = std::min(line_length, along_rows ? output->shape[1] : output->shape[2]);
  const float b = bias[channel];
  const float scale = static_cast<float>(fft_size);
  const float* kernel_spectra = &split_weight_ffts[static_cast<size_t>(channel) * shape[1] * 2 * padded_bins];
  for (int line = 0; line < std::min(lines, out_lines); ++line) {
    AccumulateSpectra(&input_ffts[static_cast<size_t>(line) * channels * 2 * padded_bins], kernel_spectra,
                      channels, padded_bins, accumulator.data());
    for (int k = 0; k < bins; ++k) spectrum[k] = kiss_fft_cpx{accumulator[k], accumulator[padded_bins + k]};
    kiss_fftri(inverse.state, spectrum.data(), real.data());
    for (float& v : real) v /= scale;
    for (int j = 0; j < out_length; ++j) {
      int n = (1 - line_length) / 2 + j - 1;
      if (n < 0) n += fft_size;
      const float value = b + real[n];
      if (along_rows) {
        out[j][line] = value;
      } else {
        out[line][j] = value;
      }
    }
  }
}
