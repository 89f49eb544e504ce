#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Reading and writing UTF-8 by hand: the byte-level rules every text rule and
// the request decoder share. Ill-formed input is read by maximal subparts (one
// replacement character per ill-formed sequence), as ICU and CoreFoundation do.

namespace velmora {

inline constexpr char32_t kReplacementCharacter = 0xFFFD;

// One code point read from UTF-8: its value and how many bytes it took. An
// ill-formed sequence reads as U+FFFD with `wellFormed` false; `length` is then
// the bytes of its maximal subpart (never 0).
struct Utf8Character {
    char32_t codePoint = 0;
    size_t length = 0;
    bool wellFormed = false;
};

// The character that starts at `at`, which must be inside `text`.
Utf8Character readUtf8(std::string_view text, size_t at);

bool isAscii(std::string_view text);
bool isWellFormedUtf8(std::string_view text);

// The text with every ill-formed sequence replaced by U+FFFD.
std::string wellFormedUtf8(std::string_view text);

// Appends a Unicode scalar value (not a surrogate, at most U+10FFFF) as UTF-8.
void appendUtf8(std::string& out, char32_t codePoint);

}  // namespace velmora
