// The Unicode services over ICU, the Unicode library of every Linux system.

#include <memory>
#include <optional>

#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include "core/text/UnicodeServices.h"

namespace velmora::unicode {

namespace {

icu::UnicodeString fromUtf8(std::string_view text) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), text.size()));
}

std::string toUtf8(const icu::UnicodeString& text) {
    std::string out;
    text.toUTF8String(out);
    return out;
}

// The canonical decomposition (NFD): canonically equivalent texts have the same
// one. None only if ICU's normalisation data cannot be loaded.
std::optional<icu::UnicodeString> decomposed(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
    if (U_FAILURE(status) || nfd == nullptr) {
        return std::nullopt;
    }
    icu::UnicodeString result = nfd->normalize(fromUtf8(text), status);
    if (U_FAILURE(status)) {
        return std::nullopt;
    }
    return result;
}

bool isCharacterBoundary(const icu::UnicodeString& text, int32_t offset) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> breaks(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status) || !breaks) {
        return true;
    }
    breaks->setText(text);
    return breaks->isBoundary(offset);
}

// Whether a match that ends at `end` stops between two characters of the
// haystack rather than inside one. A following mark (grapheme extender) always
// belongs to the character before it; after a joiner, a virama or a Hangul jamo
// the character may go on, so there the text's own character boundaries decide.
bool endsBetweenCharacters(const icu::UnicodeString& haystack, int32_t end) {
    if (end >= haystack.length()) {
        return true;
    }
    const UChar32 next = haystack.char32At(end);
    if (u_hasBinaryProperty(next, UCHAR_GRAPHEME_EXTEND)) {
        return false;
    }
    const UChar32 last = haystack.char32At(haystack.moveIndex32(end, -1));
    constexpr UChar32 kCombiningGraphemeJoiner = 0x034F;
    constexpr UChar32 kZeroWidthJoiner = 0x200D;
    constexpr uint8_t kViramaCombiningClass = 9;
    const bool mayContinue = next == kCombiningGraphemeJoiner || last == kCombiningGraphemeJoiner ||
                             last == kZeroWidthJoiner || (last >= 0x1100 && last <= 0x11FF) ||
                             u_getCombiningClass(last) == kViramaCombiningClass;
    return !mayContinue || isCharacterBoundary(haystack, end);
}

}  // namespace

std::string lowercase(std::string_view text) {
    icu::UnicodeString unicode = fromUtf8(text);
    unicode.toLower(icu::Locale::getRoot());
    return toUtf8(unicode);
}

bool canonicallyEqual(std::string_view a, std::string_view b) {
    const auto left = decomposed(a);
    const auto right = decomposed(b);
    if (!left || !right) {
        return a == b;
    }
    return *left == *right;
}

bool canonicallyContains(std::string_view haystack, std::string_view needle) {
    const auto text = decomposed(haystack);
    const auto wanted = decomposed(needle);
    if (!text || !wanted) {
        return haystack.find(needle) != std::string_view::npos;
    }
    for (int32_t at = text->indexOf(*wanted); at >= 0; at = text->indexOf(*wanted, at + 1)) {
        if (endsBetweenCharacters(*text, at + wanted->length())) {
            return true;
        }
    }
    return false;
}

bool isWhitespace(char32_t codePoint) {
    const auto c = static_cast<UChar32>(codePoint);
    return c == 0x09 || u_charType(c) == U_SPACE_SEPARATOR;
}

std::vector<std::u16string> composedCharacters(std::string_view text) {
    const icu::UnicodeString unicode = fromUtf8(text);
    auto unitsOf = [&unicode](int32_t start, int32_t end) {
        std::u16string units;
        units.reserve(static_cast<size_t>(end - start));
        for (int32_t i = start; i < end; ++i) {
            units.push_back(unicode.charAt(i));
        }
        return units;
    };

    std::vector<std::u16string> characters;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> breaks(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status) || !breaks) {
        // Without break data every code point is its own character.
        for (int32_t i = 0; i < unicode.length(); i = unicode.moveIndex32(i, 1)) {
            characters.push_back(unitsOf(i, unicode.moveIndex32(i, 1)));
        }
        return characters;
    }
    breaks->setText(unicode);
    int32_t start = breaks->first();
    for (int32_t end = breaks->next(); end != icu::BreakIterator::DONE;
         start = end, end = breaks->next()) {
        characters.push_back(unitsOf(start, end));
    }
    return characters;
}

}  // namespace velmora::unicode
