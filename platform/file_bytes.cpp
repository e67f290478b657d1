#include "platform/file_bytes.h"

#include <fstream>

bool ReadFileBytes(const std::string& path, uint64_t max_bytes, std::vector<uint8_t>* bytes, std::string* problem) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  if (!in) {
    *problem = "cannot be opened (missing or unreadable)";
    return false;
  }
  const std::streamoff size = in.tellg();
  if (size < 0 || static_cast<uint64_t>(size) > max_bytes) {
    *problem = "unreadable size or larger than " + std::to_string(max_bytes) + " bytes";
    return false;
  }
  bytes->assign(static_cast<size_t>(size), 0);
  in.seekg(0);
  if (size > 0 && !in.read(reinterpret_cast<char*>(bytes->data()), size)) {
    *problem = "read failed";
    return false;
  }
  return true;
}
