#include "mcp/Base64.h"

namespace velmora::mcp {

std::string base64(const std::vector<uint8_t>& bytes) {
    static const char kDigits[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        uint32_t group = (bytes[i] << 16) | (bytes[i + 1] << 8) | bytes[i + 2];
        for (int shift = 18; shift >= 0; shift -= 6) {
            text += kDigits[(group >> shift) & 63];
        }
    }
    size_t rest = bytes.size() - i;
    if (rest > 0) {
        uint32_t group = bytes[i] << 16;
        if (rest == 2) {
            group |= bytes[i + 1] << 8;
        }
        text += kDigits[(group >> 18) & 63];
        text += kDigits[(group >> 12) & 63];
        text += rest == 2 ? kDigits[(group >> 6) & 63] : '=';
        text += '=';
    }
    return text;
}

}  // namespace velmora::mcp
