#include "core/model/JsonEncoding.h"

#include <cstdint>

#include "core/model/Json.h"
#include "core/text/Utf8.h"

namespace velmora {

namespace {

enum class Encoding { utf8, utf16be, utf16le, utf32be, utf32le };

struct Detected {
    Encoding encoding;
    size_t markLength;
};

Detected detect(std::string_view bytes) {
    const auto at = [&](size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const size_t n = bytes.size();
    if (n >= 4 && at(0) == 0x00 && at(1) == 0x00 && at(2) == 0xFE && at(3) == 0xFF) {
        return {Encoding::utf32be, 4};
    }
    if (n >= 4 && at(0) == 0xFF && at(1) == 0xFE && at(2) == 0x00 && at(3) == 0x00) {
        return {Encoding::utf32le, 4};
    }
    if (n >= 2 && at(0) == 0xFE && at(1) == 0xFF) {
        return {Encoding::utf16be, 2};
    }
    if (n >= 2 && at(0) == 0xFF && at(1) == 0xFE) {
        return {Encoding::utf16le, 2};
    }
    if (n >= 4) {
        if (at(0) == 0 && at(1) == 0 && at(2) == 0) {
            return {Encoding::utf32be, 0};
        }
        if (at(1) == 0 && at(2) == 0 && at(3) == 0) {
            return {Encoding::utf32le, 0};
        }
        if (at(0) == 0 && at(2) == 0) {
            return {Encoding::utf16be, 0};
        }
        if (at(1) == 0 && at(3) == 0) {
            return {Encoding::utf16le, 0};
        }
    } else if (n >= 2) {
        if (at(0) == 0) {
            return {Encoding::utf16be, 0};
        }
        if (at(1) == 0) {
            return {Encoding::utf16le, 0};
        }
    }
    return {Encoding::utf8, 0};
}

const char* nameOf(Encoding encoding) {
    switch (encoding) {
        case Encoding::utf16be:
            return "UTF-16BE";
        case Encoding::utf16le:
            return "UTF-16LE";
        case Encoding::utf32be:
            return "UTF-32BE";
        case Encoding::utf32le:
            return "UTF-32LE";
        default:
            return "UTF-8";
    }
}

// The failure at the end of what has been converted so far, placed as the
// parser places its own: line from 1, column of the failing character.
[[noreturn]] void fail(Encoding encoding, const std::string& reason, const std::string& decoded) {
    size_t line = 1;
    size_t lineStart = 0;
    for (size_t i = 0; i < decoded.size(); ++i) {
        if (decoded[i] == '\n') {
            ++line;
            lineStart = i + 1;
        }
    }
    throw DecodeError("invalid JSON: " + std::string(nameOf(encoding)) + " text " + reason +
                      " at line " + std::to_string(line) + ", column " +
                      std::to_string(decoded.size() - lineStart + 1));
}

uint32_t unit(std::string_view bytes, size_t at, size_t width, bool bigEndian) {
    uint32_t value = 0;
    for (size_t i = 0; i < width; ++i) {
        const auto byte = static_cast<unsigned char>(bytes[at + (bigEndian ? i : width - 1 - i)]);
        value = (value << 8) | byte;
    }
    return value;
}

void convertUtf16(std::string_view bytes, Encoding encoding, std::string& out) {
    const bool bigEndian = encoding == Encoding::utf16be;
    const size_t whole = bytes.size() / 2 * 2;
    for (size_t at = 0; at < whole; at += 2) {
        const uint32_t first = unit(bytes, at, 2, bigEndian);
        if (first >= 0xDC00 && first <= 0xDFFF) {
            fail(encoding, "has an unpaired low surrogate", out);
        }
        if (first >= 0xD800 && first <= 0xDBFF) {
            const uint32_t second = at + 2 < whole ? unit(bytes, at + 2, 2, bigEndian) : 0;
            if (second < 0xDC00 || second > 0xDFFF) {
                fail(encoding, "has an unpaired high surrogate", out);
            }
            appendUtf8(out, 0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00));
            at += 2;
            continue;
        }
        appendUtf8(out, first);
    }
    if (whole != bytes.size()) {
        fail(encoding, "ends inside a 2-byte code unit", out);
    }
}

void convertUtf32(std::string_view bytes, Encoding encoding, std::string& out) {
    const bool bigEndian = encoding == Encoding::utf32be;
    const size_t whole = bytes.size() / 4 * 4;
    for (size_t at = 0; at < whole; at += 4) {
        const uint32_t value = unit(bytes, at, 4, bigEndian);
        if (value > 0x10FFFF) {
            fail(encoding, "has a value beyond U+10FFFF", out);
        }
        if (value >= 0xD800 && value <= 0xDFFF) {
            fail(encoding, "has a surrogate code point", out);
        }
        appendUtf8(out, value);
    }
    if (whole != bytes.size()) {
        fail(encoding, "ends inside a 4-byte code unit", out);
    }
}

}  // namespace

std::string_view jsonTextAsUtf8(std::string_view bytes, std::string& storage) {
    const Detected detected = detect(bytes);
    if (detected.encoding == Encoding::utf8) {
        return bytes;
    }
    const std::string_view text = bytes.substr(detected.markLength);
    storage.clear();
    if (detected.encoding == Encoding::utf16be || detected.encoding == Encoding::utf16le) {
        storage.reserve(text.size() / 2);
        convertUtf16(text, detected.encoding, storage);
    } else {
        storage.reserve(text.size() / 4);
        convertUtf32(text, detected.encoding, storage);
    }
    return storage;
}

}  // namespace velmora
