#include "core/text/Utf8.h"

namespace velmora {

namespace {

bool inRange(unsigned char byte, unsigned char low, unsigned char high) {
    return byte >= low && byte <= high;
}

}  // namespace

Utf8Character readUtf8(std::string_view text, size_t at) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    if (lead < 0x80) {
        return {lead, 1, true};
    }
    // The second byte's range depends on the lead (no overlong forms, no
    // surrogates, nothing above U+10FFFF); later bytes are plain continuations.
    size_t length = 0;
    unsigned char secondLow = 0x80;
    unsigned char secondHigh = 0xBF;
    char32_t value = 0;
    if (inRange(lead, 0xC2, 0xDF)) {
        length = 2;
        value = lead & 0x1F;
    } else if (inRange(lead, 0xE0, 0xEF)) {
        length = 3;
        value = lead & 0x0F;
        if (lead == 0xE0) {
            secondLow = 0xA0;
        } else if (lead == 0xED) {
            secondHigh = 0x9F;
        }
    } else if (inRange(lead, 0xF0, 0xF4)) {
        length = 4;
        value = lead & 0x07;
        if (lead == 0xF0) {
            secondLow = 0x90;
        } else if (lead == 0xF4) {
            secondHigh = 0x8F;
        }
    } else {
        return {kReplacementCharacter, 1, false};
    }
    for (size_t i = 1; i < length; ++i) {
        const bool fits =
            at + i < text.size() && (i == 1 ? inRange(byte(at + i), secondLow, secondHigh)
                                            : inRange(byte(at + i), 0x80, 0xBF));
        if (!fits) {
            return {kReplacementCharacter, i, false};
        }
        value = (value << 6) | (byte(at + i) & 0x3F);
    }
    return {value, length, true};
}

bool isAscii(std::string_view text) {
    for (char c : text) {
        if (static_cast<unsigned char>(c) >= 0x80) {
            return false;
        }
    }
    return true;
}

bool isWellFormedUtf8(std::string_view text) {
    for (size_t at = 0; at < text.size();) {
        if (static_cast<unsigned char>(text[at]) < 0x80) {
            ++at;
            continue;
        }
        const Utf8Character character = readUtf8(text, at);
        if (!character.wellFormed) {
            return false;
        }
        at += character.length;
    }
    return true;
}

std::string wellFormedUtf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t at = 0; at < text.size();) {
        const Utf8Character character = readUtf8(text, at);
        if (character.wellFormed) {
            out.append(text.substr(at, character.length));
        } else {
            appendUtf8(out, kReplacementCharacter);
        }
        at += character.length;
    }
    return out;
}

void appendUtf8(std::string& out, char32_t codePoint) {
    if (codePoint < 0x80) {
        out += static_cast<char>(codePoint);
    } else if (codePoint < 0x800) {
        out += static_cast<char>(0xC0 | (codePoint >> 6));
        out += static_cast<char>(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        out += static_cast<char>(0xE0 | (codePoint >> 12));
        out += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (codePoint & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (codePoint >> 18));
        out += static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (codePoint & 0x3F));
    }
}

}  // namespace velmora
