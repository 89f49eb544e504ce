#pragma once

#include <string>
#include <string_view>
#include <vector>

// The text rules the whole agent shares: the lease gate and the app policy,
// the assertions, and every driver's selector matching. They follow the
// platform's own string semantics, so that a request reads alike on every
// system: texts that are canonically equivalent are the same text, lower-casing
// is full Unicode lower-casing, and whitespace is the platform's whitespace set.
//
// Texts are UTF-8. Where a text is not well-formed UTF-8 (nothing the request
// decoder lets through, but a platform string may be), the rules fall back to
// its bytes rather than guess.

namespace velmora {

// Full Unicode lower-casing, the same for every locale. Text that is not
// well-formed UTF-8 is returned byte for byte.
std::string lowercased(std::string_view text);

// Whether the code point is in the whitespace set: every Unicode space separator
// (general category Zs: the space, the no-break space, the em space, the
// ideographic space, ...) and the tab. Not line feed, next line, the line and
// paragraph separators, nor format characters such as the zero-width space.
bool isWhitespace(char32_t codePoint);

// The text trimmed of the whitespace set at both ends.
std::string trimmedOfWhitespace(std::string_view text);

// Whether two texts are the same text: canonically equivalent.
bool sameText(std::string_view a, std::string_view b);

// The platform's substring search: whether `needle` occurs in `haystack`, with
// canonically equivalent texts matching and a match never ending inside one of
// the haystack's characters. An empty needle is never found.
bool containsText(std::string_view haystack, std::string_view needle);

// containsText of both sides lower-cased.
bool containsFolded(std::string_view haystack, std::string_view needle);

// The text split into user-perceived characters, each as its UTF-16 code units.
// An ill-formed UTF-8 sequence becomes U+FFFD.
std::vector<std::u16string> userCharacters(std::string_view text);

}  // namespace velmora
