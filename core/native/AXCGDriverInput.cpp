#include <memory>
#include <string>

#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/unistr.h>

#include "core/model/DriverError.h"
#include "core/native/AXCGDriver.h"
#include "core/native/Fatal.h"
#include "core/native/KeyCodes.h"

namespace velmora::native {

namespace {

// The text split into user-perceived characters (grapheme clusters), each as its
// UTF-16 code units. Invalid UTF-8 becomes U+FFFD, as the conversion does.
std::vector<std::u16string> graphemeClusters(const std::string& text) {
    const icu::UnicodeString unicode =
        icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), text.size()));
    auto unitsOf = [&unicode](int32_t start, int32_t end) {
        std::u16string units;
        units.reserve(static_cast<size_t>(end - start));
        for (int32_t i = start; i < end; ++i) {
            units.push_back(unicode.charAt(i));
        }
        return units;
    };

    std::vector<std::u16string> clusters;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> breaks(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status) || !breaks) {
        // Without break data every code point is its own character.
        for (int32_t i = 0; i < unicode.length(); i = unicode.moveIndex32(i, 1)) {
            clusters.push_back(unitsOf(i, unicode.moveIndex32(i, 1)));
        }
        return clusters;
    }
    breaks->setText(unicode);
    int32_t start = breaks->first();
    for (int32_t end = breaks->next(); end != icu::BreakIterator::DONE;
         start = end, end = breaks->next()) {
        clusters.push_back(unitsOf(start, end));
    }
    return clusters;
}

}  // namespace

void AXCGDriver::click(Point point, bool doubleClick) {
    platform_.warpPointer(point);
    const int clicks = doubleClick ? 2 : 1;
    for (int n = 1; n <= clicks; ++n) {
        // An event that cannot be created is skipped; the rest of the sequence goes on.
        for (uint32_t type : {kCGEventLeftMouseDown, kCGEventLeftMouseUp}) {
            EventRef event = platform_.createMouseEvent(nullptr, type, point, kCGMouseButtonLeft);
            if (!event) {
                continue;
            }
            platform_.setIntegerField(*event, kCGMouseEventClickState, n);
            platform_.postEvent(kCGHIDEventTap, *event);
        }
    }
    platform_.sleep(kClickSettle);
}

void AXCGDriver::typeText(const std::string& text) {
    // A missing source is not an error: the events are then made without one.
    const std::shared_ptr<EventSource> source =
        platform_.createEventSource(kCGEventSourceStateCombinedSessionState);
    for (const std::u16string& units : graphemeClusters(text)) {
        // The Unicode string carries the character, so virtual key 0 and no flags
        // type it whatever the keyboard layout.
        EventRef down = platform_.createKeyboardEvent(source.get(), 0, true);
        if (!down) {
            throw DriverError::osFailure("cgevent keyboard alloc");
        }
        EventRef up = platform_.createKeyboardEvent(source.get(), 0, false);
        if (!up) {
            throw DriverError::osFailure("cgevent keyboard alloc");
        }
        platform_.setUnicodeString(*down, units);
        platform_.setUnicodeString(*up, units);
        platform_.postEvent(kCGSessionEventTap, *down);
        platform_.postEvent(kCGSessionEventTap, *up);
        platform_.sleep(kCharacterSettle);
    }
    platform_.sleep(kTypeSettle);
}

void AXCGDriver::pressKeys(const std::vector<std::string>& keys) {
    for (const std::string& text : keys) {
        const std::optional<Chord> chord = parseChord(text);
        if (!chord) {
            continue;
        }
        const std::optional<uint16_t> code = keyCode(chord->key);
        if (!code) {
            throw DriverError::osFailure("unknown key: " + chord->key);
        }
        // Modifiers travel only as flags on the key's own events.
        EventRef down = platform_.createKeyboardEvent(nullptr, *code, true);
        if (!down) {
            throw DriverError::osFailure("cgevent key alloc");
        }
        EventRef up = platform_.createKeyboardEvent(nullptr, *code, false);
        if (!up) {
            throw DriverError::osFailure("cgevent key alloc");
        }
        platform_.setFlags(*down, chord->flags);
        platform_.setFlags(*up, chord->flags);
        platform_.postEvent(kCGHIDEventTap, *down);
        platform_.postEvent(kCGHIDEventTap, *up);
    }
    platform_.sleep(kKeysSettle);
}

void AXCGDriver::scroll(const ScrollSpec& spec) {
    if (spec.at) {
        platform_.warpPointer(*spec.at);
    }
    const int32_t vertical = checkedInt32(spec.dy, "scroll dy");
    const int32_t horizontal = checkedInt32(spec.dx, "scroll dx");
    EventRef event = platform_.createScrollWheelEvent(nullptr, kCGScrollEventUnitPixel, 2, vertical,
                                                      horizontal, 0);
    if (!event) {
        throw DriverError::osFailure("cgevent scroll alloc");
    }
    platform_.postEvent(kCGHIDEventTap, *event);
}

}  // namespace velmora::native
