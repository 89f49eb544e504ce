// Synthesised input over CoreGraphics events.

#include "core/native/macos/MacPlatform.h"

#include <CoreGraphics/CoreGraphics.h>

#include <memory>
#include <string>
#include <utility>

#include "core/native/macos/CFReference.h"

namespace velmora::native {

// The event types, fields, taps, units and flags crossing the platform layer are
// CoreGraphics' own values, handed through unchanged.
static_assert(kCGEventLeftMouseDown == ::kCGEventLeftMouseDown);
static_assert(kCGEventLeftMouseUp == ::kCGEventLeftMouseUp);
static_assert(kCGMouseButtonLeft == ::kCGMouseButtonLeft);
static_assert(kCGMouseEventClickState == ::kCGMouseEventClickState);
static_assert(kCGHIDEventTap == ::kCGHIDEventTap);
static_assert(kCGSessionEventTap == ::kCGSessionEventTap);
static_assert(kCGEventSourceStateCombinedSessionState == ::kCGEventSourceStateCombinedSessionState);
static_assert(kCGScrollEventUnitPixel == ::kCGScrollEventUnitPixel);
static_assert(kCGEventFlagMaskShift == ::kCGEventFlagMaskShift);
static_assert(kCGEventFlagMaskControl == ::kCGEventFlagMaskControl);
static_assert(kCGEventFlagMaskAlternate == ::kCGEventFlagMaskAlternate);
static_assert(kCGEventFlagMaskCommand == ::kCGEventFlagMaskCommand);
static_assert(kCGEventFlagMaskSecondaryFn == ::kCGEventFlagMaskSecondaryFn);

namespace {

// A CGEventSourceRef, owned.
class MacEventSource final : public EventSource {
  public:
    explicit MacEventSource(CFReference source) : source_(std::move(source)) {}

    CGEventSourceRef get() const {
        return static_cast<CGEventSourceRef>(const_cast<void*>(source_.get()));
    }

  private:
    CFReference source_;
};

// A CGEventRef, owned: released (CFRelease) when the event is destroyed.
class MacEvent final : public InputEvent {
  public:
    explicit MacEvent(CFReference event) : event_(std::move(event)) {}

    CGEventRef get() const { return static_cast<CGEventRef>(const_cast<void*>(event_.get())); }

  private:
    CFReference event_;
};

// The source to create events from; NULL (no source) when none is given.
CGEventSourceRef sourceOf(const EventSource* source) {
    const auto* mac = dynamic_cast<const MacEventSource*>(source);
    return mac != nullptr ? mac->get() : nullptr;
}

CGEventRef eventOf(InputEvent& event) {
    auto* mac = dynamic_cast<MacEvent*>(&event);
    return mac != nullptr ? mac->get() : nullptr;
}

// Adopts a created event (the Create rule); null stays null.
EventRef adoptEvent(CGEventRef created) {
    if (created == nullptr) {
        return nullptr;
    }
    return std::make_unique<MacEvent>(CFReference::adopt(created));
}

}  // namespace

void MacPlatform::warpPointer(Point point) {
    // CGWarpMouseCursorPosition
    CGWarpMouseCursorPosition(CGPoint{.x = point.x, .y = point.y});
}

std::shared_ptr<EventSource> MacPlatform::createEventSource(int32_t stateId) {
    // CGEventSourceCreate
    CFReference source =
        CFReference::adopt(CGEventSourceCreate(static_cast<CGEventSourceStateID>(stateId)));
    if (!source) {
        return nullptr;
    }
    return std::make_shared<MacEventSource>(std::move(source));
}

EventRef MacPlatform::createMouseEvent(const EventSource* source, uint32_t type, Point point,
                                       uint32_t button) {
    // CGEventCreateMouseEvent
    return adoptEvent(CGEventCreateMouseEvent(sourceOf(source), static_cast<CGEventType>(type),
                                              CGPoint{.x = point.x, .y = point.y},
                                              static_cast<CGMouseButton>(button)));
}

EventRef MacPlatform::createKeyboardEvent(const EventSource* source, uint16_t virtualKey,
                                          bool keyDown) {
    // CGEventCreateKeyboardEvent
    return adoptEvent(
        CGEventCreateKeyboardEvent(sourceOf(source), static_cast<CGKeyCode>(virtualKey), keyDown));
}

EventRef MacPlatform::createScrollWheelEvent(const EventSource* source, uint32_t units,
                                             uint32_t wheelCount, int32_t wheel1, int32_t wheel2,
                                             int32_t wheel3) {
    // CGEventCreateScrollWheelEvent2
    return adoptEvent(CGEventCreateScrollWheelEvent2(sourceOf(source),
                                                     static_cast<CGScrollEventUnit>(units),
                                                     wheelCount, wheel1, wheel2, wheel3));
}

void MacPlatform::setIntegerField(InputEvent& event, uint32_t field, int64_t value) {
    if (CGEventRef native = eventOf(event)) {
        // CGEventSetIntegerValueField
        CGEventSetIntegerValueField(native, static_cast<CGEventField>(field), value);
    }
}

void MacPlatform::setUnicodeString(InputEvent& event, const std::u16string& units) {
    if (CGEventRef native = eventOf(event)) {
        // CGEventKeyboardSetUnicodeString with the UTF-16 units (UniChar is 16 bits).
        static_assert(sizeof(UniChar) == sizeof(char16_t));
        CGEventKeyboardSetUnicodeString(native, static_cast<UniCharCount>(units.size()),
                                        reinterpret_cast<const UniChar*>(units.data()));
    }
}

void MacPlatform::setFlags(InputEvent& event, uint64_t flags) {
    if (CGEventRef native = eventOf(event)) {
        // CGEventSetFlags
        CGEventSetFlags(native, static_cast<CGEventFlags>(flags));
    }
}

void MacPlatform::postEvent(uint32_t tap, InputEvent& event) {
    if (CGEventRef native = eventOf(event)) {
        // CGEventPost
        CGEventPost(static_cast<CGEventTapLocation>(tap), native);
    }
}

}  // namespace velmora::native
