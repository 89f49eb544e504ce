#pragma once

#include <string>
#include <string_view>
#include <vector>

// The Unicode services the agent's text rules stand on, answered from the
// platform's own Unicode data: ICU on Linux, CoreFoundation on Apple platforms.
// Exactly one implementation is built (core/text/icu/ or core/text/apple/), so
// the rules above it read alike on every system.
//
// Every text passed in is well-formed UTF-8: the rules in core/text/Text.h see
// to that before they call down here.

namespace velmora::unicode {

// Full Unicode lower-casing, the same for every locale.
std::string lowercase(std::string_view text);

// Whether the two texts are canonically equivalent: "é" as one code point and
// "e" followed by U+0301 COMBINING ACUTE ACCENT are the same text.
bool canonicallyEqual(std::string_view a, std::string_view b);

// Whether `needle` occurs in `haystack` as the platform's string search finds
// it: canonically equivalent sequences match, and a match never ends in front
// of a mark that belongs to the haystack's character there (so "e" is not found
// in "é", whichever way either is written). `needle` is not empty.
bool canonicallyContains(std::string_view haystack, std::string_view needle);

// Whether the code point belongs to the platform's whitespace set: the Unicode
// space separators (general category Zs) and U+0009 CHARACTER TABULATION. Line
// and paragraph separators, newlines and format characters are not in it.
bool isWhitespace(char32_t codePoint);

// The text split into user-perceived characters (composed character sequences),
// each as its UTF-16 code units, in order.
std::vector<std::u16string> composedCharacters(std::string_view text);

}  // namespace velmora::unicode
