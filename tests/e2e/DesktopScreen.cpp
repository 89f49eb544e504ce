// Kept apart: Xlib's macros (None, Status, Bool) clash with GoogleTest's names.
#include <X11/Xatom.h>
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

int32_t inputFocusProcessId() {
    ::Display* display = XOpenDisplay(nullptr);
    if (display == nullptr) {
        return 0;
    }
    const Atom pidAtom = XInternAtom(display, "_NET_WM_PID", False);
    Window window = 0;
    int revert = 0;
    XGetInputFocus(display, &window, &revert);
    int32_t processId = 0;
    while (processId == 0 && window != 0 && window != PointerRoot) {
        Atom type = 0;
        int format = 0;
        unsigned long count = 0;
        unsigned long after = 0;
        unsigned char* data = nullptr;
        if (XGetWindowProperty(display, window, pidAtom, 0, 1, False, XA_CARDINAL, &type, &format,
                               &count, &after, &data) == Success &&
            data != nullptr && count == 1 && format == 32) {
            processId = static_cast<int32_t>(*reinterpret_cast<unsigned long*>(data));
        }
        if (data != nullptr) {
            XFree(data);
        }
        Window root = 0;
        Window parent = 0;
        Window* children = nullptr;
        unsigned int childCount = 0;
        if (processId == 0 &&
            XQueryTree(display, window, &root, &parent, &children, &childCount) != 0) {
            if (children != nullptr) {
                XFree(children);
            }
            window = parent == root ? 0 : parent;
        } else if (processId == 0) {
            window = 0;
        }
    }
    XCloseDisplay(display);
    return processId;
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
