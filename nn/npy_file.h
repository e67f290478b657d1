#pragma once

#include <cstdint>
#include <string>
#include <vector>

// NumPy's .npy format for float arrays, the exchange format with the training code: a magic
// string, a version, a little-endian header length, a Python-literal header with 'descr',
// 'fortran_order' and 'shape', then the data. Reads '<f4' and '<f8' (narrowed to float) in
// C order; writes '<f4'. Every length is checked before it is trusted, and errors name the file.
class NpyFile {
 public:
  // The largest file accepted.
  static constexpr uint64_t kMaxFileBytes = 1ull << 31;

  static bool Read(const std::string& path, std::vector<int64_t>* shape, std::vector<float>* values,
                   std::string* error);
  // The same on bytes already in memory; `path` only names them in messages.
  static bool Parse(const std::vector<uint8_t>& bytes, const std::string& path, std::vector<int64_t>* shape,
                    std::vector<float>* values, std::string* error);
  static bool Write(const std::string& path, const std::vector<int64_t>& shape,
                    const std::vector<float>& values, std::string* error);
};
