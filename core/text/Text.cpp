#include "core/text/Text.h"

#include <algorithm>

#include "core/text/UnicodeServices.h"
#include "core/text/Utf8.h"

namespace velmora {

std::string lowercased(std::string_view text) {
    if (isAscii(text)) {
        std::string result(text);
        for (char& c : result) {
            if (c >= 'A' && c <= 'Z') {
                c = static_cast<char>(c - 'A' + 'a');
            }
        }
        return result;
    }
    if (!isWellFormedUtf8(text)) {
        return std::string(text);
    }
    return unicode::lowercase(text);
}

bool isWhitespace(char32_t codePoint) {
    // The space and the tab are the only members below U+0080.
    if (codePoint < 0x80) {
        return codePoint == U' ' || codePoint == U'\t';
    }
    return unicode::isWhitespace(codePoint);
}

std::string trimmedOfWhitespace(std::string_view text) {
    size_t begin = text.size();
    size_t end = 0;
    for (size_t at = 0; at < text.size();) {
        const Utf8Character character = readUtf8(text, at);
        // An ill-formed sequence is not whitespace: trimming stops there.
        if (!character.wellFormed || !isWhitespace(character.codePoint)) {
            begin = std::min(begin, at);
            end = at + character.length;
        }
        at += character.length;
    }
    return begin < end ? std::string(text.substr(begin, end - begin)) : std::string();
}

bool sameText(std::string_view a, std::string_view b) {
    if (a == b) {
        return true;
    }
    if ((isAscii(a) && isAscii(b)) || !isWellFormedUtf8(a) || !isWellFormedUtf8(b)) {
        return false;
    }
    return unicode::canonicallyEqual(a, b);
}

bool containsText(std::string_view haystack, std::string_view needle) {
    if (needle.empty()) {
        return false;
    }
    if ((isAscii(haystack) && isAscii(needle)) || !isWellFormedUtf8(haystack) ||
        !isWellFormedUtf8(needle)) {
        return haystack.find(needle) != std::string_view::npos;
    }
    return unicode::canonicallyContains(haystack, needle);
}

bool containsFolded(std::string_view haystack, std::string_view needle) {
    return containsText(lowercased(haystack), lowercased(needle));
}

std::vector<std::u16string> userCharacters(std::string_view text) {
    if (isWellFormedUtf8(text)) {
        return unicode::composedCharacters(text);
    }
    return unicode::composedCharacters(wellFormedUtf8(text));
}

}  // namespace velmora
