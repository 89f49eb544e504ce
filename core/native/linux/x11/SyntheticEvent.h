#pragma once

#include <cstdint>
#include <string>

#include "core/native/Platform.h"

namespace velmora::native::freedesktop {

// An input event as the driver composed it: a plain value, recorded at creation
// and changed by the field setters, that X11Input performs when it is posted.
struct SyntheticEvent final : InputEvent {
    enum class Kind { mouse, keyboard, scroll };

    Kind kind = Kind::mouse;
    // mouse
    uint32_t mouseType = 0;  // CGEventType
    Point point;
    uint32_t mouseButton = 0;  // CGMouseButton
    int64_t clickState = 0;    // kCGMouseEventClickState; X counts clicks itself
    // keyboard
    uint16_t virtualKey = 0;
    bool keyDown = false;
    std::u16string unicodeText;  // when set, the event types this text
    uint64_t flags = 0;          // CGEventFlags
    // scroll
    uint32_t scrollUnits = 0;  // CGScrollEventUnit
    int32_t wheelVertical = 0;
    int32_t wheelHorizontal = 0;
};

}  // namespace velmora::native::freedesktop
