#include "core/native/linux/x11/KeyTranslation.h"

#include <cstdlib>
#include <utility>

#include <X11/XF86keysym.h>
#include <X11/keysym.h>

#include "core/native/Platform.h"

namespace velmora::native::freedesktop {

namespace {

// macOS virtual key code -> X keysym, by key position on an ANSI keyboard.
constexpr std::pair<uint16_t, KeySym> kVirtualKeys[] = {
    {0, XK_a},
    {1, XK_s},
    {2, XK_d},
    {3, XK_f},
    {4, XK_h},
    {5, XK_g},
    {6, XK_z},
    {7, XK_x},
    {8, XK_c},
    {9, XK_v},
    {10, XK_section},
    {11, XK_b},
    {12, XK_q},
    {13, XK_w},
    {14, XK_e},
    {15, XK_r},
    {16, XK_y},
    {17, XK_t},
    {18, XK_1},
    {19, XK_2},
    {20, XK_3},
    {21, XK_4},
    {22, XK_6},
    {23, XK_5},
    {24, XK_equal},
    {25, XK_9},
    {26, XK_7},
    {27, XK_minus},
    {28, XK_8},
    {29, XK_0},
    {30, XK_bracketright},
    {31, XK_o},
    {32, XK_u},
    {33, XK_bracketleft},
    {34, XK_i},
    {35, XK_p},
    {36, XK_Return},
    {37, XK_l},
    {38, XK_j},
    {39, XK_apostrophe},
    {40, XK_k},
    {41, XK_semicolon},
    {42, XK_backslash},
    {43, XK_comma},
    {44, XK_slash},
    {45, XK_n},
    {46, XK_m},
    {47, XK_period},
    {48, XK_Tab},
    {49, XK_space},
    {50, XK_grave},
    {51, XK_BackSpace},
    {52, XK_KP_Enter},
    {53, XK_Escape},
    {54, XK_Super_R},
    {55, XK_Super_L},
    {56, XK_Shift_L},
    {57, XK_Caps_Lock},
    {58, XK_Alt_L},
    {59, XK_Control_L},
    {60, XK_Shift_R},
    {61, XK_Alt_R},
    {62, XK_Control_R},
    {64, XK_F17},
    {65, XK_KP_Decimal},
    {67, XK_KP_Multiply},
    {69, XK_KP_Add},
    {71, XK_Num_Lock},
    {72, XF86XK_AudioRaiseVolume},
    {73, XF86XK_AudioLowerVolume},
    {74, XF86XK_AudioMute},
    {75, XK_KP_Divide},
    {76, XK_KP_Enter},
    {78, XK_KP_Subtract},
    {79, XK_F18},
    {80, XK_F19},
    {81, XK_KP_Equal},
    {82, XK_KP_0},
    {83, XK_KP_1},
    {84, XK_KP_2},
    {85, XK_KP_3},
    {86, XK_KP_4},
    {87, XK_KP_5},
    {88, XK_KP_6},
    {89, XK_KP_7},
    {90, XK_F20},
    {91, XK_KP_8},
    {92, XK_KP_9},
    {96, XK_F5},
    {97, XK_F6},
    {98, XK_F7},
    {99, XK_F3},
    {100, XK_F8},
    {101, XK_F9},
    {103, XK_F11},
    {105, XK_F13},
    {106, XK_F16},
    {107, XK_F14},
    {109, XK_F10},
    {110, XK_Menu},
    {111, XK_F12},
    {113, XK_F15},
    {114, XK_Insert},  // Help sits where PC keyboards have Insert
    {115, XK_Home},
    {116, XK_Prior},
    {117, XK_Delete},
    {118, XK_F4},
    {119, XK_End},
    {120, XK_F2},
    {121, XK_Next},
    {122, XK_F1},
    {123, XK_Left},
    {124, XK_Right},
    {125, XK_Down},
    {126, XK_Up},
};

constexpr char32_t kReplacementCharacter = 0xFFFD;

}  // namespace

std::optional<KeySym> keysymForVirtualKey(uint16_t virtualKey) {
    for (const auto& [code, keysym] : kVirtualKeys) {
        if (code == virtualKey) {
            return keysym;
        }
    }
    return std::nullopt;
}

KeySym keysymForCodePoint(char32_t codePoint) {
    switch (codePoint) {
        case U'\n':
        case U'\r':
            return XK_Return;
        case U'\t':
            return XK_Tab;
        case U'\b':
            return XK_BackSpace;
        case 0x1B:
            return XK_Escape;
        case 0x7F:
            return XK_Delete;
        default:
            break;
    }
    if ((codePoint >= 0x20 && codePoint <= 0x7E) || (codePoint >= 0xA0 && codePoint <= 0xFF)) {
        return codePoint;
    }
    return 0x1000000 + codePoint;
}

std::u32string codePointsOfUtf16(const std::u16string& units) {
    std::u32string codePoints;
    for (size_t i = 0; i < units.size(); ++i) {
        char16_t unit = units[i];
        if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < units.size() && units[i + 1] >= 0xDC00 &&
            units[i + 1] <= 0xDFFF) {
            codePoints +=
                static_cast<char32_t>(0x10000 + ((unit - 0xD800) << 10) + (units[i + 1] - 0xDC00));
            ++i;
        } else if (unit >= 0xD800 && unit <= 0xDFFF) {
            codePoints += kReplacementCharacter;
        } else {
            codePoints += static_cast<char32_t>(unit);
        }
    }
    return codePoints;
}

std::vector<KeySym> modifierKeysyms(uint64_t flags) {
    std::vector<KeySym> keys;
    if ((flags & kCGEventFlagMaskShift) != 0) {
        keys.push_back(XK_Shift_L);
    }
    if ((flags & kCGEventFlagMaskControl) != 0) {
        keys.push_back(XK_Control_L);
    }
    if ((flags & kCGEventFlagMaskAlternate) != 0) {
        keys.push_back(XK_Alt_L);
    }
    if ((flags & kCGEventFlagMaskCommand) != 0) {
        keys.push_back(XK_Super_L);
    }
    return keys;
}

int32_t wheelClicks(uint32_t units, int32_t amount) {
    if (amount == 0) {
        return 0;
    }
    int64_t magnitude = std::llabs(static_cast<int64_t>(amount));
    int64_t clicks = units == kCGScrollEventUnitPixel
                         ? (magnitude + kPixelsPerWheelClick / 2) / kPixelsPerWheelClick
                         : magnitude;
    if (clicks < 1) {
        clicks = 1;
    }
    if (clicks > kMaxWheelClicks) {
        clicks = kMaxWheelClicks;
    }
    return static_cast<int32_t>(clicks);
}

unsigned int verticalWheelButton(int32_t amount) {
    return amount > 0 ? Button4 : Button5;
}

unsigned int horizontalWheelButton(int32_t amount) {
    return amount > 0 ? 6 : 7;
}

unsigned int xButtonOf(uint32_t macButton) {
    switch (macButton) {
        case 0:
            return Button1;
        case 1:
            return Button3;
        case 2:
            return Button2;
        default:
            return macButton + 5;
    }
}

}  // namespace velmora::native::freedesktop
