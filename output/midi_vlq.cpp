#include "output/midi_vlq.h"

namespace midi_vlq {

bool Encode(uint32_t value, std::vector<uint8_t>* out) {
  if (value > kMax) return false;
  uint8_t groups[4];
  int count = 0;
  do {
    groups[count++] = value & 0x7F;
    value >>= 7;
  } while (value > 0);
  for (int i = count - 1; i >= 0; --i) out->push_back(static_cast<uint8_t>(groups[i] | (i > 0 ? 0x80 : 0)));
  return true;
}

bool Decode(const uint8_t* data, size_t size, size_t* pos, uint32_t* value) {
  uint32_t result = 0;
  for (int i = 0; i < 4; ++i) {
    if (*pos >= size) return false;
    const uint8_t byte = data[(*pos)++];
    result = (result << 7) | (byte & 0x7F);
    if (!(byte & 0x80)) {
      *value = result;
      return true;
    }
  }
  return false;
}

}  // namespace midi_vlq
