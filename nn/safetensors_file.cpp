#include "nn/safetensors_file.h"

#include <cstring>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>

#include "platform/file_bytes.h"

namespace {

uint64_t DtypeBytes(const std::string& dtype) {
  if (dtype == "F64" || dtype == "I64" || dtype == "U64") return 8;
  if (dtype == "F32" || dtype == "I32" || dtype == "U32") return 4;
  if (dtype == "F16" || dtype == "BF16" || dtype == "I16" || dtype == "U16") return 2;
  if (dtype == "I8" || dtype == "U8" || dtype == "BOOL") return 1;
  return 0;
}

std::string ShapeText(const std::vector<int64_t>& shape) {
  std::string text = "[";
  for (size_t i = 0; i < shape.size(); ++i) text += (i ? ", " : "") + std::to_string(shape[i]);
  return text + "]";
}

}  // namespace

std::string SafetensorsFile::Problem(const std::string& what) const {
  return "Weights file " + path_ + ": " + what;
}

bool SafetensorsFile::Open(const std::string& path, std::string* error) {
  path_ = path;
  std::vector<uint8_t> bytes;
  std::string problem;
  if (!ReadFileBytes(path, kMaxFileBytes, &bytes, &problem)) {
    *error = Problem(problem);
    return false;
  }
  return Parse(std::move(bytes), path, error);
}

bool SafetensorsFile::Parse(std::vector<uint8_t> bytes, const std::string& path, std::string* error) {
  path_ = path;
  entries_.clear();
  metadata_.clear();
  bytes_ = std::move(bytes);
  if (bytes_.size() < 8) {
    *error = Problem("truncated: no header length");
    return false;
  }
  uint64_t header_length = 0;
  for (int i = 7; i >= 0; --i) header_length = (header_length << 8) | bytes_[i];
  if (header_length > bytes_.size() - 8) {
    *error = Problem("header length " + std::to_string(header_length) + " exceeds the file");
    return false;
  }
  data_start_ = 8 + header_length;
  const uint64_t data_bytes = bytes_.size() - data_start_;

  nlohmann::json header;
  try {
    header = nlohmann::json::parse(bytes_.begin() + 8, bytes_.begin() + static_cast<std::ptrdiff_t>(data_start_));
  } catch (const nlohmann::json::exception& e) {
    *error = Problem(std::string("header is not valid JSON: ") + e.what());
    return false;
  }
  if (!header.is_object()) {
    *error = Problem("header is not a JSON object");
    return false;
  }
  for (auto it = header.begin(); it != header.end(); ++it) {
    const std::string& name = it.key();
    const nlohmann::json& value = it.value();
    if (name == "__metadata__") {
      if (!value.is_object()) {
        *error = Problem("__metadata__ is not an object");
        return false;
      }
      for (auto m = value.begin(); m != value.end(); ++m)
        if (m.value().is_string()) metadata_[m.key()] = m.value().get<std::string>();
      continue;
    }
    const std::string where = "tensor " + name + ": ";
    if (!value.is_object() || !value.contains("dtype") || !value.contains("shape") ||
        !value.contains("data_offsets") || !value["dtype"].is_string() || !value["shape"].is_array() ||
        !value["data_offsets"].is_array() || value["data_offsets"].size() != 2) {
      *error = Problem(where + "entry lacks dtype, shape or a pair of data_offsets");
      return false;
    }
    Entry entry;
    entry.dtype = value["dtype"].get<std::string>();
    const uint64_t element_bytes = DtypeBytes(entry.dtype);
    if (element_bytes == 0) {
      *error = Problem(where + "unknown dtype " + entry.dtype);
      return false;
    }
    uint64_t elements = 1;
    for (const auto& dim : value["shape"]) {
      if (!dim.is_number_unsigned() || dim.get<uint64_t>() > (1ull << 40)) {
        *error = Problem(where + "bad shape");
        return false;
      }
      const uint64_t d = dim.get<uint64_t>();
      if (d != 0 && elements > std::numeric_limits<uint64_t>::max() / element_bytes / d) {
        *error = Problem(where + "shape overflows");
        return false;
      }
      elements *= d;
      entry.shape.push_back(static_cast<int64_t>(d));
    }
    const auto& offsets = value["data_offsets"];
    if (!offsets[0].is_number_unsigned() || !offsets[1].is_number_unsigned()) {
      *error = Problem(where + "bad data_offsets");
      return false;
    }
    entry.begin = offsets[0].get<uint64_t>();
    entry.end = offsets[1].get<uint64_t>();
    if (entry.begin > entry.end || entry.end > data_bytes) {
      *error = Problem(where + "data_offsets [" + std::to_string(entry.begin) + ", " +
                       std::to_string(entry.end) + "] lie outside the " + std::to_string(data_bytes) +
                       " data bytes (truncated file?)");
      return false;
    }
    if (entry.end - entry.begin != elements * element_bytes) {
      *error = Problem(where + "byte range does not match shape " + ShapeText(entry.shape));
      return false;
    }
    entries_[name] = std::move(entry);
  }
  return true;
}

bool SafetensorsFile::ReadFloats(const std::string& name, const std::vector<int64_t>& shape,
                                 std::vector<float>* values, std::string* error) const {
  const auto it = entries_.find(name);
  if (it == entries_.end()) {
    *error = Problem("tensor " + name + " is missing");
    return false;
  }
  const Entry& entry = it->second;
  if (entry.dtype != "F32") {
    *error = Problem("tensor " + name + " has dtype " + entry.dtype + ", expected F32");
    return false;
  }
  if (entry.shape != shape) {
    *error = Problem("tensor " + name + " has shape " + ShapeText(entry.shape) + ", expected " + ShapeText(shape));
    return false;
  }
  const size_t count = static_cast<size_t>((entry.end - entry.begin) / 4);
  values->resize(count);
  const uint8_t* p = bytes_.data() + data_start_ + entry.begin;
  for (size_t i = 0; i < count; ++i, p += 4) {
    const uint32_t bits = static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
                          static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
    std::memcpy(&(*values)[i], &bits, 4);
  }
  return true;
}

std::string SafetensorsFile::Metadata(const std::string& key, const std::string& fallback) const {
  const auto it = metadata_.find(key);
  return it == metadata_.end() ? fallback : it->second;
}

bool SafetensorsFile::Write(const std::string& path, const std::map<std::string, FloatTensor>& tensors,
                            const std::map<std::string, std::string>& metadata, std::string* error) {
  nlohmann::json header = nlohmann::json::object();
  if (!metadata.empty()) header["__metadata__"] = metadata;
  uint64_t offset = 0;
  for (const auto& [name, tensor] : tensors) {
    const uint64_t bytes = tensor.values.size() * 4;
    header[name] = {{"dtype", "F32"}, {"shape", tensor.shape}, {"data_offsets", {offset, offset + bytes}}};
    offset += bytes;
  }
  std::string text = header.dump();
  // Pad the header with spaces so that the data starts on an 8-byte boundary.
  while ((text.size() + 8) % 8 != 0) text.push_back(' ');
  std::vector<uint8_t> out(8);
  uint64_t length = text.size();
  for (int i = 0; i < 8; ++i) out[i] = static_cast<uint8_t>(length >> (8 * i));
  out.insert(out.end(), text.begin(), text.end());
  out.reserve(out.size() + offset);
  for (const auto& entry : tensors)
    for (float v : entry.second.values) {
      uint32_t bits = 0;
      std::memcpy(&bits, &v, 4);
      for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(bits >> (8 * i)));
    }
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!file || !file.write(reinterpret_cast<const char*>(out.data()), static_cast<std::streamsize>(out.size()))) {
    *error = "Weights file " + path + ": cannot be written";
    return false;
  }
  return true;
}
