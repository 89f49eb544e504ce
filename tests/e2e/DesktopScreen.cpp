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

}  // namespace velmora::e2e
