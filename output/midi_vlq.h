#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Variable-length quantities of Standard MIDI Files: seven bits a byte, high bit set on every
// byte but the last, at most four bytes, so at most 0x0FFFFFFF.
namespace midi_vlq {

constexpr uint32_t kMax = 0x0FFFFFFF;

// Appends the encoding of `value`; false (and nothing appended) above kMax.
bool Encode(uint32_t value, std::vector<uint8_t>* out);
// Reads one quantity from data[*pos..size) and advances *pos. False if the data end first or
// the quantity runs past four bytes; *pos is then left where the reading stopped.
bool Decode(const uint8_t* data, size_t size, size_t* pos, uint32_t* value);

}  // namespace midi_vlq
