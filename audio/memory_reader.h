#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace nqr {

// A read cursor over bytes in memory, behind the read/seek callbacks of the codec libraries.
// Reads and seeks are clamped to the buffer.
class MemoryReader {
 public:
  explicit MemoryReader(const std::vector<std::uint8_t>& bytes_) : bytes(bytes_) {}

  std::size_t Read(void* out, std::size_t count) {
    const std::size_t n = std::min(count, bytes.size() - position);
    if (n > 0) std::memcpy(out, bytes.data() + position, n);
    position += n;
    return n;
  }
  // whence as in fseek. Returns false, and stays put, for a target outside the buffer.
  bool Seek(std::int64_t offset, int whence) {
    std::int64_t target = offset;
    if (whence == SEEK_CUR) target += static_cast<std::int64_t>(position);
    if (whence == SEEK_END) target += static_cast<std::int64_t>(bytes.size());
    if (target < 0 || target > static_cast<std::int64_t>(bytes.size())) return false;
    position = static_cast<std::size_t>(target);
    return true;
  }
  std::size_t Tell() const { return position; }
  std::size_t Size() const { return bytes.size(); }
  bool AtEnd() const { return position >= bytes.size(); }
  const std::uint8_t* Data() const { return bytes.data(); }

 private:
  const std::vector<std::uint8_t>& bytes;
  std::size_t position = 0;
};

}  // namespace nqr
