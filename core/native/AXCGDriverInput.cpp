#include <memory>
#include <string>
#include <vector>

#include "core/model/DriverError.h"
#include "core/native/AXCGDriver.h"
#include "core/native/Fatal.h"
#include "core/native/KeyCodes.h"
#include "core/text/Text.h"

namespace velmora::native {

void AXCGDriver::click(Point point, bool doubleClick) {
    platform_.warpPointer(point);
    const int clicks = doubleClick ? 2 : 1;
    std::vector<EventRef> events;
    for (int n = 1; n <= clicks; ++n) {
        // An event that cannot be created is skipped; the rest of the sequence goes on.
        for (uint32_t type : {kCGEventLeftMouseDown, kCGEventLeftMouseUp}) {
            EventRef event = platform_.createMouseEvent(nullptr, type, point, kCGMouseButtonLeft);
            if (!event) {
                continue;
            }
            platform_.setIntegerField(*event, kCGMouseEventClickState, n);
            events.push_back(std::move(event));
        }
    }
    // Made first, then posted as one burst: an application that counts a double
    // click by its own clock gets the second press however slowly this process runs.
    std::vector<InputEvent*> burst;
    for (const EventRef& event : events) {
        burst.push_back(event.get());
    }
    platform_.postEvents(kCGHIDEventTap, burst);
    // The settling waits let the workspace catch up too: a click or a chord may
    // bring another application forward, and the frontmost reads that follow the
    // action (its structural state, the next input's check) must see it.
    platform_.waitRunningLoop(kClickSettle);
}

void AXCGDriver::typeText(const std::string& text) {
    // A missing source is not an error: the events are then made without one.
    const std::shared_ptr<EventSource> source =
        platform_.createEventSource(kCGEventSourceStateCombinedSessionState);
    // One event pair per user-perceived character; ill-formed UTF-8 types U+FFFD.
    for (const std::u16string& units : userCharacters(text)) {
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
        // Nothing is read between two characters: a plain pause.
        platform_.sleep(kCharacterSettle);
    }
    platform_.waitRunningLoop(kTypeSettle);
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
    platform_.waitRunningLoop(kKeysSettle);
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
