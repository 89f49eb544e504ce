#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace velmora::native {

// SHA-256 of the bytes as 64 lower-case hexadecimal digits.
std::string sha256Hex(const uint8_t* data, size_t size);

}  // namespace velmora::native
