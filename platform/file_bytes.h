#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Reads a whole file into memory, refusing one larger than `max_bytes`. On failure returns
// false and sets `problem` to what went wrong ("cannot be opened", ...), without the path.
bool ReadFileBytes(const std::string& path, uint64_t max_bytes, std::vector<uint8_t>* bytes, std::string* problem);
