// Kept apart: Xlib's macros (None, Status, Bool) clash with GoogleTest's names.
#include <X11/Xlib.h>

#include "tests/e2e/DesktopSupport.h"

namespace velmora::e2e {

std::pair<int, int> screenSize() {
    ::Display* display = XOpenDisplay(nullptr);
    if (display == nullptr) {
        return {0, 0};
    }
    std::pair<int, int> size{DisplayWidth(display, DefaultScreen(display)),
                             DisplayHeight(display, DefaultScreen(display))};
    XCloseDisplay(display);
    return size;
}

int mappedKeycodes() {
    ::Display* display = XOpenDisplay(nullptr);
    if (display == nullptr) {
        return -1;
    }
    int first = 0;
    int last = 0;
    XDisplayKeycodes(display, &first, &last);
    int perKeycode = 0;
    KeySym* keysyms =
        XGetKeyboardMapping(display, static_cast<KeyCode>(first), last - first + 1, &perKeycode);
    int mapped = 0;
    for (int code = 0; keysyms != nullptr && code <= last - first; ++code) {
        for (int level = 0; level < perKeycode; ++level) {
            if (keysyms[code * perKeycode + level] != NoSymbol) {
                ++mapped;
                break;
            }
        }
    }
    if (keysyms != nullptr) {
        XFree(keysyms);
    }
    XCloseDisplay(display);
    return mapped;
}

}  // namespace velmora::e2e
