#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <X11/X.h>

// Translation of the macOS input values that cross the platform layer into X11
// terms. Tables only: which keys a chord names is the driver's business.

namespace velmora::native::freedesktop {

// The keysym of the key at a macOS virtual key code (ANSI layout positions:
// a=0, s=1, return=36, tab=48, space=49, delete=51 (BackSpace), escape=53,
// the arrows 123-126, home=115, end=119, page up=116, page down=121, forward
// delete=117 (Delete), the modifier keys, function keys and keypad). None for a
// code without a counterpart (fn=63).
std::optional<KeySym> keysymForVirtualKey(uint16_t virtualKey);

// The keysym that types one Unicode code point: Latin-1 characters are their
// own keysyms, line feed and carriage return are Return, tab is Tab, backspace
// is BackSpace, and every other character is 0x1000000 + code point.
KeySym keysymForCodePoint(char32_t codePoint);

// The code points of UTF-16 units; an unpaired surrogate becomes U+FFFD.
std::u32string codePointsOfUtf16(const std::u16string& units);

// The modifier keys held around a key for macOS event flags, in press order:
// shift (Shift_L), control (Control_L), option (Alt_L), command (Super_L).
// The fn flag has no X counterpart and is ignored.
std::vector<KeySym> modifierKeysyms(uint64_t flags);

// Scroll wheels have no pixel resolution on X: an amount becomes clicks of the
// wheel buttons. In pixel units one click is worth kPixelsPerWheelClick units
// (rounded to the nearest click); in line units one click per line. Any
// non-zero amount gives at least one click and at most kMaxWheelClicks.
inline constexpr int32_t kPixelsPerWheelClick = 40;
inline constexpr int32_t kMaxWheelClicks = 500;
int32_t wheelClicks(uint32_t units, int32_t amount);

// The X buttons of a wheel turned by `amount` in macOS's direction: a positive
// vertical amount scrolls up (button 4), a negative one down (5); a positive
// horizontal amount scrolls left (6), a negative one right (7).
unsigned int verticalWheelButton(int32_t amount);
unsigned int horizontalWheelButton(int32_t amount);

// The X button of a macOS mouse button number: left 0 -> 1, right 1 -> 3,
// centre 2 -> 2, and further buttons n -> n + 5 (past the wheel buttons).
unsigned int xButtonOf(uint32_t macButton);

}  // namespace velmora::native::freedesktop
