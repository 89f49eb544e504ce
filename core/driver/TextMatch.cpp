#include "core/driver/TextMatch.h"

#include <unicode/locid.h>
#include <unicode/unistr.h>

namespace velmora {

namespace {

bool isAscii(std::string_view text) {
    for (unsigned char c : text) {
        if (c >= 0x80) {
            return false;
        }
    }
    return true;
}

bool isValidUtf8(std::string_view text) {
    auto unicode = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), text.size()));
    std::string back;
    unicode.toUTF8String(back);
    return back == text;
}

}  // namespace

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
    if (!isValidUtf8(text)) {
        return std::string(text);
    }
    auto unicode = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), text.size()));
    unicode.toLower(icu::Locale::getRoot());
    std::string result;
    unicode.toUTF8String(result);
    return result;
}

bool containsText(std::string_view haystack, std::string_view needle) {
    return !needle.empty() && haystack.find(needle) != std::string_view::npos;
}

bool containsFolded(std::string_view haystack, std::string_view needle) {
    return containsText(lowercased(haystack), lowercased(needle));
}

std::string trimBlanks(std::string_view text) {
    auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && isBlank(text[begin])) {
        ++begin;
    }
    while (end > begin && isBlank(text[end - 1])) {
        --end;
    }
    return std::string(text.substr(begin, end - begin));
}

bool matchesSelector(const ElementInfo& element, const ElementSelector& selector) {
    if (selector.role && element.role != *selector.role) {
        return false;
    }
    if (selector.title && !containsFolded(element.title.value_or(""), *selector.title)) {
        return false;
    }
    if (selector.identifier && element.identifier != selector.identifier) {
        return false;
    }
    if (selector.valueContains &&
        !containsFolded(element.value.value_or(""), *selector.valueContains)) {
        return false;
    }
    return true;
}

std::vector<ElementInfo> filterBySelector(const std::vector<ElementInfo>& elements,
                                          const ElementSelector& selector) {
    std::vector<ElementInfo> matches;
    for (const auto& element : elements) {
        if (matchesSelector(element, selector)) {
            matches.push_back(element);
        }
    }
    return matches;
}

std::vector<ElementInfo> selectIndex(std::vector<ElementInfo> matches,
                                     std::optional<int64_t> index) {
    if (index && *index >= 0 && static_cast<uint64_t>(*index) < matches.size()) {
        return {std::move(matches[static_cast<size_t>(*index)])};
    }
    return matches;
}

}  // namespace velmora
