#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// Reader and writer of the safetensors layout: an 8-byte little-endian header length, a JSON
// header mapping each tensor name to {"dtype", "shape", "data_offsets": [begin, end]} (offsets
// relative to the end of the header) with an optional "__metadata__" object of strings, then
// the raw little-endian data. Every length and offset is checked before it is trusted; errors
// name the file and, where one is involved, the tensor.
class SafetensorsFile {
 public:
  struct Entry {
    std::string dtype;
    std::vector<int64_t> shape;
    uint64_t begin = 0;  // byte range within the data section
    uint64_t end = 0;
  };

  // The largest file accepted; weight files are a few megabytes.
  static constexpr uint64_t kMaxFileBytes = 1ull << 30;

  // Reads and validates the whole file. False with `error` set on any problem.
  bool Open(const std::string& path, std::string* error);
  // The same on bytes already in memory; `path` only names them in messages.
  bool Parse(std::vector<uint8_t> bytes, const std::string& path, std::string* error);

  bool Has(const std::string& name) const { return entries_.count(name) > 0; }
  // Copies tensor `name`, which must be F32 with exactly `shape`.
  bool ReadFloats(const std::string& name, const std::vector<int64_t>& shape, std::vector<float>* values,
                  std::string* error) const;
  // A value of "__metadata__", or `fallback` when absent.
  std::string Metadata(const std::string& key, const std::string& fallback = std::string()) const;
  const std::map<std::string, Entry>& Entries() const { return entries_; }
  const std::string& Path() const { return path_; }

  // One F32 tensor to write: shape and row-major values.
  struct FloatTensor {
    std::vector<int64_t> shape;
    std::vector<float> values;
  };
  static bool Write(const std::string& path, const std::map<std::string, FloatTensor>& tensors,
                    const std::map<std::string, std::string>& metadata, std::string* error);

 private:
  std::string Problem(const std::string& what) const;

  std::string path_;
  std::vector<uint8_t> bytes_;
  uint64_t data_start_ = 0;
  std::map<std::string, Entry> entries_;
  std::map<std::string, std::string> metadata_;
};
