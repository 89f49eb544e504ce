// Kept apart: Xlib's macros (None, Status, Bool) clash with GoogleTest's names.
#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include "tests/e2e/DisplayApplications.h"

namespace velmora::e2e {

namespace {

// A property of 32-bit items (which Xlib hands out as longs).
std::vector<unsigned long> longsProperty(::Display* display, Window window, const char* name,
                                         Atom type) {
    Atom property = XInternAtom(display, name, True);
    std::vector<unsigned long> items;
    if (property == 0) {
        return items;
    }
    Atom actualType = 0;
    int format = 0;
    unsigned long count = 0;
    unsigned long remaining = 0;
    unsigned char* data = nullptr;
    if (XGetWindowProperty(display, window, property, 0, 4096, False, type, &actualType, &format,
                           &count, &remaining, &data) == Success &&
        data != nullptr && format == 32) {
        auto* values = reinterpret_cast<unsigned long*>(data);
        items.assign(values, values + count);
    }
    if (data != nullptr) {
        XFree(data);
    }
    return items;
}

int ignoreErrors(::Display*, XErrorEvent*) {
    return 0;  // a window may go away between listing and reading it
}

// The process ids of the window manager's clients: all of them, or only those
// whose windows are shown.
std::vector<pid_t> clientProcessIds(bool shownOnly) {
    std::vector<pid_t> ids;
    ::Display* display = XOpenDisplay(nullptr);
    if (display == nullptr) {
        return ids;
    }
    auto previous = XSetErrorHandler(ignoreErrors);
    for (unsigned long window :
         longsProperty(display, DefaultRootWindow(display), "_NET_CLIENT_LIST", XA_WINDOW)) {
        XWindowAttributes attributes{};
        if (shownOnly && (XGetWindowAttributes(display, window, &attributes) == 0 ||
                          attributes.map_state != IsViewable)) {
            continue;
        }
        for (unsigned long id : longsProperty(display, window, "_NET_WM_PID", XA_CARDINAL)) {
            ids.push_back(static_cast<pid_t>(id));
        }
    }
    XSync(display, False);
    XSetErrorHandler(previous);
    XCloseDisplay(display);
    return ids;
}

}  // namespace

std::vector<pid_t> windowOwnerProcessIds() {
    return clientProcessIds(false);
}

std::vector<pid_t> shownWindowOwnerProcessIds() {
    return clientProcessIds(true);
}

}  // namespace velmora::e2e
