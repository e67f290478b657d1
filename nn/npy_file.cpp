#include "nn/npy_file.h"

#include <cstring>
#include <fstream>
#include <limits>

#include "platform/file_bytes.h"

namespace {

const char kMagic[] = "\x93NUMPY";
constexpr size_t kMagicLength = 6;

std::string Problem(const std::string& path, const std::string& what) {
  return "Array file " + path + ": " + what;
}

// The value text after 'key': in the header dictionary, or empty when the key is absent.
std::string HeaderValue(const std::string& header, const std::string& key) {
  for (const char quote : {'\'', '"'}) {
    const std::string quoted = std::string(1, quote) + key + quote;
    const size_t at = header.find(quoted);
    if (at == std::string::npos) continue;
    const size_t colon = header.find(':', at + quoted.size());
    if (colon == std::string::npos) return std::string();
    size_t begin = colon + 1;
    while (begin < header.size() && header[begin] == ' ') ++begin;
    if (begin >= header.size()) return std::string();
    size_t end = begin;
    if (header[begin] == '(') {
      end = header.find(')', begin);
      return end == std::string::npos ? std::string() : header.substr(begin, end - begin + 1);
    }
    if (header[begin] == '\'' || header[begin] == '"') {
      end = header.find(header[begin], begin + 1);
      return end == std::string::npos ? std::string() : header.substr(begin + 1, end - begin - 1);
    }
    while (end < header.size() && header[end] != ',' && header[end] != '}') ++end;
    std::string value = header.substr(begin, end - begin);
    while (!value.empty() && value.back() == ' ') value.pop_back();
    return value;
  }
  return std::string();
}

// "(352, 720)" or "(5,)" or "()" into dimensions; false on anything else.
bool ParseShape(const std::string& text, std::vector<int64_t>* shape) {
  shape->clear();
  if (text.size() < 2 || text.front() != '(' || text.back() != ')') return false;
  size_t i = 1;
  while (i < text.size() - 1) {
    while (i < text.size() - 1 && (text[i] == ' ' || text[i] == ',')) ++i;
    if (i >= text.size() - 1) break;
    int64_t value = 0;
    size_t digits = 0;
    while (i < text.size() - 1 && text[i] >= '0' && text[i] <= '9') {
      if (value > (int64_t{1} << 40)) return false;
      value = value * 10 + (text[i] - '0');
      ++i;
      ++digits;
    }
    if (digits == 0) return false;
    while (i < text.size() - 1 && text[i] == 'L') ++i;
    shape->push_back(value);
  }
  return true;
}

}  // namespace

bool NpyFile::Read(const std::string& path, std::vector<int64_t>* shape, std::vector<float>* values,
                   std::string* error) {
  std::vector<uint8_t> bytes;
  std::string problem;
  if (!ReadFileBytes(path, kMaxFileBytes, &bytes, &problem)) {
    *error = Problem(path, problem);
    return false;
  }
  return Parse(bytes, path, shape, values, error);
}

bool NpyFile::Parse(const std::vector<uint8_t>& bytes, const std::string& path, std::vector<int64_t>* shape,
                    std::vector<float>* values, std::string* error) {
  if (bytes.size() < kMagicLength + 4 || std::memcmp(bytes.data(), kMagic, kMagicLength) != 0) {
    *error = Problem(path, "not a .npy file (no magic string)");
    return false;
  }
  const int major = bytes[6];
  size_t header_start = 10;
  uint64_t header_length = bytes[8] | static_cast<uint64_t>(bytes[9]) << 8;
  if (major >= 2) {
    if (bytes.size() < 12) {
      *error = Problem(path, "truncated header length");
      return false;
    }
    header_start = 12;
    header_length =
        header_length | static_cast<uint64_t>(bytes[10]) << 16 | static_cast<uint64_t>(bytes[11]) << 24;
  }
  if (header_length > bytes.size() - header_start) {
    *error = Problem(path, "header length " + std::to_string(header_length) + " exceeds the file");
    return false;
  }
  const std::string header(bytes.begin() + header_start, bytes.begin() + header_start + header_length);
  const std::string descr = HeaderValue(header, "descr");
  size_t element_bytes = 0;
  if (descr == "<f4") {
    element_bytes = 4;
  } else if (descr == "<f8") {
    element_bytes = 8;
  } else {
    *error = Problem(path, "element type '" + descr + "' is not little-endian float32 or float64");
    return false;
  }
  if (HeaderValue(header, "fortran_order") != "False") {
    *error = Problem(path, "only C-ordered arrays are read");
    return false;
  }
  if (!ParseShape(HeaderValue(header, "shape"), shape)) {
    *error = Problem(path, "unreadable shape");
    return false;
  }
  uint64_t count = 1;
  for (int64_t d : *shape) {
    if (d != 0 && count > std::numeric_limits<uint64_t>::max() / element_bytes / static_cast<uint64_t>(d)) {
      *error = Problem(path, "shape overflows");
      return false;
    }
    count *= static_cast<uint64_t>(d);
  }
  const uint64_t data_bytes = bytes.size() - header_start - header_length;
  if (count * element_bytes != data_bytes) {
    *error = Problem(path, "holds " + std::to_string(data_bytes) + " data bytes, the shape needs " +
                               std::to_string(count * element_bytes));
    return false;
  }
  const uint8_t* p = bytes.data() + header_start + header_length;
  values->resize(count);
  for (uint64_t i = 0; i < count; ++i, p += element_bytes) {
    uint64_t bits = 0;
    for (size_t b = 0; b < element_bytes; ++b) bits |= static_cast<uint64_t>(p[b]) << (8 * b);
    if (element_bytes == 4) {
      const uint32_t narrow = static_cast<uint32_t>(bits);
      std::memcpy(&(*values)[i], &narrow, 4);
    } else {
      double wide = 0.0;
      std::memcpy(&wide, &bits, 8);
      (*values)[i] = static_cast<float>(wide);
    }
  }
  return true;
}

bool NpyFile::Write(const std::string& path, const std::vector<int64_t>& shape,
                    const std::vector<float>& values, std::string* error) {
  uint64_t count = 1;
  for (int64_t d : shape) count *= static_cast<uint64_t>(d < 0 ? 0 : d);
  if (count != values.size()) {
    *error = Problem(path, "the shape does not match the " + std::to_string(values.size()) + " values");
    return false;
  }
  // Python's tuple literal: "(5,)" for one dimension, "(2, 88, 138)" for more.
  std::string shape_text = "(";
  for (size_t i = 0; i < shape.size(); ++i) shape_text += (i ? ", " : "") + std::to_string(shape[i]);
  shape_text += shape.size() == 1 ? ",)" : ")";
  std::string header = "{'descr': '<f4', 'fortran_order': False, 'shape': " + shape_text + ", }";
  // Spaces and a newline pad the preamble to a multiple of 64 bytes.
  const size_t preamble = kMagicLength + 4;
  while ((preamble + header.size() + 1) % 64 != 0) header.push_back(' ');
  header.push_back('\n');
  std::string out(kMagic, kMagicLength);
  out.push_back('\x01');
  out.push_back('\x00');
  out.push_back(static_cast<char>(header.size() & 0xFF));
  out.push_back(static_cast<char>((header.size() >> 8) & 0xFF));
  out += header;
  const size_t data_start = out.size();
  out.resize(data_start + values.size() * 4);
  for (size_t i = 0; i < values.size(); ++i) {
    uint32_t bits = 0;
    std::memcpy(&bits, &values[i], 4);
    for (int b = 0; b < 4; ++b) out[data_start + i * 4 + b] = static_cast<char>((bits >> (8 * b)) & 0xFF);
  }
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!file || !file.write(out.data(), static_cast<std::streamsize>(out.size()))) {
    *error = Problem(path, "cannot be written");
    return false;
  }
  return true;
}
