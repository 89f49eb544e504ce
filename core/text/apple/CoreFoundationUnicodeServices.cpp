// The Unicode services over CoreFoundation, so that the agent needs no Unicode
// library of its own on Apple platforms: the answers are the system's own.

#include <CoreFoundation/CoreFoundation.h>

#include <string>

#include "core/text/UnicodeServices.h"

namespace velmora::unicode {

namespace {

// Releases a CoreFoundation object that was created or copied (the Create and
// Copy rule) when it goes out of scope.
template <typename Ref>
class Owned {
  public:
    explicit Owned(Ref ref) : ref_(ref) {}
    ~Owned() {
        if (ref_ != nullptr) {
            CFRelease(ref_);
        }
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;

    Ref get() const { return ref_; }
    explicit operator bool() const { return ref_ != nullptr; }

  private:
    Ref ref_;
};

// Null only when the bytes are not UTF-8, which the callers rule out.
Owned<CFStringRef> makeString(std::string_view text) {
    return Owned<CFStringRef>(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false));
}

std::string utf8Of(CFStringRef string) {
    const CFRange whole = CFRangeMake(0, CFStringGetLength(string));
    CFIndex size = 0;
    CFStringGetBytes(string, whole, kCFStringEncodingUTF8, 0, false, nullptr, 0, &size);
    std::string out(static_cast<size_t>(size), '\0');
    CFStringGetBytes(string, whole, kCFStringEncodingUTF8, 0, false,
                     reinterpret_cast<UInt8*>(out.data()), size, &size);
    out.resize(static_cast<size_t>(size));
    return out;
}

}  // namespace

std::string lowercase(std::string_view text) {
    Owned<CFStringRef> string = makeString(text);
    if (!string) {
        return std::string(text);
    }
    Owned<CFMutableStringRef> lower(
        CFStringCreateMutableCopy(kCFAllocatorDefault, 0, string.get()));
    if (!lower) {
        return std::string(text);
    }
    // No locale: the canonical, locale-independent mapping.
    CFStringLowercase(lower.get(), nullptr);
    return utf8Of(lower.get());
}

bool canonicallyEqual(std::string_view a, std::string_view b) {
    Owned<CFStringRef> left = makeString(a);
    Owned<CFStringRef> right = makeString(b);
    if (!left || !right) {
        return a == b;
    }
    return CFStringCompare(left.get(), right.get(), kCFCompareNonliteral) == kCFCompareEqualTo;
}

bool canonicallyContains(std::string_view haystack, std::string_view needle) {
    Owned<CFStringRef> text = makeString(haystack);
    Owned<CFStringRef> wanted = makeString(needle);
    if (!text || !wanted) {
        return haystack.find(needle) != std::string_view::npos;
    }
    return CFStringFind(text.get(), wanted.get(), kCFCompareNonliteral).location != kCFNotFound;
}

bool isWhitespace(char32_t codePoint) {
    // A predefined set is owned by CoreFoundation and never released.
    const CFCharacterSetRef whitespace = CFCharacterSetGetPredefined(kCFCharacterSetWhitespace);
    return CFCharacterSetIsLongCharacterMember(whitespace, static_cast<UTF32Char>(codePoint));
}

std::vector<std::u16string> composedCharacters(std::string_view text) {
    std::vector<std::u16string> characters;
    Owned<CFStringRef> string = makeString(text);
    if (!string) {
        return characters;
    }
    const CFIndex length = CFStringGetLength(string.get());
    for (CFIndex at = 0; at < length;) {
        CFRange range = CFStringGetRangeOfComposedCharactersAtIndex(string.get(), at);
        if (range.location != at || range.length < 1) {
            range = CFRangeMake(at, 1);  // never expected; keeps the walk moving
        }
        std::u16string units(static_cast<size_t>(range.length), u'\0');
        CFStringGetCharacters(string.get(), range, reinterpret_cast<UniChar*>(units.data()));
        characters.push_back(std::move(units));
        at = range.location + range.length;
    }
    return characters;
}

}  // namespace velmora::unicode
