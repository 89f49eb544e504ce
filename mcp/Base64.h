#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace velmora::mcp {

// Standard base64 (RFC 4648) with padding, as MCP's image content carries data.
std::string base64(const std::vector<uint8_t>& bytes);

}  // namespace velmora::mcp
