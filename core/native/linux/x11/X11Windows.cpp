#include "core/native/linux/x11/X11Windows.h"

#include <X11/Xatom.h>
#include <X11/Xlib-xcb.h>
#include <X11/Xutil.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace velmora::native::freedesktop {

namespace {

// The 32-bit items of a window property of the given type (Xlib hands them out
// as longs), or an empty list.
std::vector<unsigned long> longProperty(::Display* display, Window window, const char* name,
                                        Atom type) {
    Atom property = XInternAtom(display, name, False);
    Atom actualType = None;
    int actualFormat = 0;
    unsigned long count = 0;
    unsigned long remaining = 0;
    unsigned char* data = nullptr;
    std::vector<unsigned long> items;
    if (XGetWindowProperty(display, window, property, 0, 1L << 16, False, type, &actualType,
                           &actualFormat, &count, &remaining, &data) == Success &&
        data != nullptr && actualType == type && actualFormat == 32) {
        auto* values = reinterpret_cast<unsigned long*>(data);
        items.assign(values, values + count);
    }
    if (data != nullptr) {
        XFree(data);
    }
    return items;
}

int32_t windowProcessId(::Display* display, Window window) {
    auto pid = longProperty(display, window, "_NET_WM_PID", XA_CARDINAL);
    return pid.empty() ? 0 : static_cast<int32_t>(pid.front());
}

std::vector<Window> childrenOf(::Display* display, Window window) {
    Window root = 0;
    Window parent = 0;
    Window* children = nullptr;
    unsigned int count = 0;
    std::vector<Window> list;
    if (XQueryTree(display, window, &root, &parent, &children, &count) != 0 &&
        children != nullptr) {
        list.assign(children, children + count);
    }
    if (children != nullptr) {
        XFree(children);
    }
    return list;
}

std::optional<Window> parentOf(::Display* display, Window window) {
    Window root = 0;
    Window parent = 0;
    Window* children = nullptr;
    unsigned int count = 0;
    if (XQueryTree(display, window, &root, &parent, &children, &count) == 0) {
        return std::nullopt;
    }
    if (children != nullptr) {
        XFree(children);
    }
    if (parent == 0 || parent == root) {
        return std::nullopt;
    }
    return parent;
}

bool isClientWindow(::Display* display, Window window) {
    XClassHint hint{};
    if (XGetClassHint(display, window, &hint) != 0) {
        XFree(hint.res_name);
        XFree(hint.res_class);
        return true;
    }
    return windowProcessId(display, window) != 0;
}

}  // namespace

std::vector<WindowFacts> windowFactsOf(::Display* display, const std::vector<Window>& windows) {
    // Through the display's own XCB connection, every question about every
    // window goes out before the first answer is awaited: one round trip to the
    // server in all, where Xlib's calls would wait for four per window, and
    // every request scans the desktop's windows more than once. Errors (a
    // window that has gone) come back with their answer, not to Xlib's handler.
    xcb_connection_t* connection = XGetXCBConnection(display);
    const auto processIdAtom = static_cast<xcb_atom_t>(XInternAtom(display, "_NET_WM_PID", False));
    const auto applicationIdAtom =
        static_cast<xcb_atom_t>(XInternAtom(display, "_GTK_APPLICATION_ID", False));
    const auto utf8 = static_cast<xcb_atom_t>(XInternAtom(display, "UTF8_STRING", False));
    constexpr uint32_t kLongest = 1u << 16;  // in 32-bit units, as the Xlib reads asked
    struct Questions {
        xcb_get_property_cookie_t processId;
        xcb_get_property_cookie_t windowClass;
        xcb_get_property_cookie_t applicationId;
        xcb_get_window_attributes_cookie_t attributes;
    };
    std::vector<Questions> questions;
    questions.reserve(windows.size());
    for (Window window : windows) {
        const auto id = static_cast<xcb_window_t>(window);
        questions.push_back(Questions{
            xcb_get_property(connection, 0, id, processIdAtom, XCB_ATOM_CARDINAL, 0, kLongest),
            xcb_get_property(connection, 0, id, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, kLongest),
            xcb_get_property(connection, 0, id, applicationIdAtom, utf8, 0, kLongest),
            xcb_get_window_attributes(connection, id)});
    }

    // An answer of the asked type and format, as its bytes; none otherwise.
    auto property = [&](xcb_get_property_cookie_t cookie, xcb_atom_t type,
                        uint8_t format) -> std::optional<std::string> {
        xcb_generic_error_t* error = nullptr;
        xcb_get_property_reply_t* reply = xcb_get_property_reply(connection, cookie, &error);
        std::free(error);
        std::optional<std::string> bytes;
        if (reply != nullptr && reply->type == type && reply->format == format) {
            bytes.emplace(static_cast<const char*>(xcb_get_property_value(reply)),
                          static_cast<size_t>(xcb_get_property_value_length(reply)));
        }
        std::free(reply);
        return bytes;
    };

    std::vector<WindowFacts> facts;
    facts.reserve(windows.size());
    for (size_t i = 0; i < windows.size(); ++i) {
        WindowFacts window;
        window.window = windows[i];
        auto processId = property(questions[i].processId, XCB_ATOM_CARDINAL, 32);
        if (processId && processId->size() >= sizeof(uint32_t)) {
            uint32_t value = 0;
            std::memcpy(&value, processId->data(), sizeof value);
            window.processId = static_cast<int32_t>(value);
        }
        // WM_CLASS holds the instance name, a NUL, then the class name; each
        // ends at its first NUL, and a missing class is empty (as Xlib reads it).
        if (auto classes = property(questions[i].windowClass, XCB_ATOM_STRING, 8)) {
            const size_t nameEnd = std::min(classes->find('\0'), classes->size());
            window.windowClasses.push_back(classes->substr(0, nameEnd));
            const std::string rest = nameEnd < classes->size() ? classes->substr(nameEnd + 1) : "";
            window.windowClasses.push_back(rest.substr(0, std::min(rest.find('\0'), rest.size())));
        }
        window.gtkApplicationId = property(questions[i].applicationId, utf8, 8).value_or("");
        xcb_generic_error_t* error = nullptr;
        xcb_get_window_attributes_reply_t* attributes =
            xcb_get_window_attributes_reply(connection, questions[i].attributes, &error);
        std::free(error);
        window.viewable = attributes != nullptr && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
        std::free(attributes);
        facts.push_back(std::move(window));
    }
    return facts;
}

WindowFacts windowFacts(::Display* display, Window window) {
    return windowFactsOf(display, {window}).front();
}

bool hasWindowManager(::Display* display) {
    Window root = DefaultRootWindow(display);
    auto check = longProperty(display, root, "_NET_SUPPORTING_WM_CHECK", XA_WINDOW);
    if (check.empty() || check.front() == 0) {
        return false;
    }
    // A window manager that has gone leaves a stale property behind; the check
    // window itself must still name itself.
    auto self = longProperty(display, check.front(), "_NET_SUPPORTING_WM_CHECK", XA_WINDOW);
    return !self.empty() && self.front() == check.front();
}

std::vector<WindowFacts> topLevelWindows(::Display* display) {
    Window root = DefaultRootWindow(display);
    std::vector<Window> windows;
    if (hasWindowManager(display)) {
        for (auto window : longProperty(display, root, "_NET_CLIENT_LIST", XA_WINDOW)) {
            windows.push_back(window);
        }
    }
    if (windows.empty()) {
        for (auto child : childrenOf(display, root)) {
            if (isClientWindow(display, child)) {
                windows.push_back(child);
                continue;
            }
            // A window manager's frame: the client is one level down.
            for (auto grandchild : childrenOf(display, child)) {
                if (isClientWindow(display, grandchild)) {
                    windows.push_back(grandchild);
                }
            }
        }
    }
    return windowFactsOf(display, windows);
}

std::optional<Window> frontmostWindow(::Display* display) {
    if (hasWindowManager(display)) {
        auto active =
            longProperty(display, DefaultRootWindow(display), "_NET_ACTIVE_WINDOW", XA_WINDOW);
        if (active.empty() || active.front() == 0) {
            return std::nullopt;
        }
        Window window = active.front();
        return windowProcessId(display, window) != 0 ? std::optional(window) : std::nullopt;
    }
    Window focus = 0;
    int revertTo = 0;
    XGetInputFocus(display, &focus, &revertTo);
    std::optional<Window> window;
    if (focus != None && focus != PointerRoot) {
        window = focus;
    }
    while (window) {
        if (windowProcessId(display, *window) != 0) {
            return window;
        }
        window = parentOf(display, *window);
    }
    return std::nullopt;
}

std::optional<int32_t> frontmostProcessId(::Display* display) {
    auto window = frontmostWindow(display);
    if (!window) {
        return std::nullopt;
    }
    return windowProcessId(display, *window);
}

namespace {

// EWMH source indications of a _NET_ACTIVE_WINDOW request.
constexpr long kSourceApplication = 1;
constexpr long kSourcePager = 2;

// The process's window to bring forward: its newest shown one, else its newest.
std::optional<WindowFacts> windowToActivate(::Display* display, int32_t processId) {
    std::optional<WindowFacts> target;
    for (auto& facts : topLevelWindows(display)) {
        if (facts.processId == processId && (!target || facts.viewable || !target->viewable)) {
            target = facts;
        }
    }
    return target;
}

// The time of the user's last interaction with the window, as its client keeps
// it in _NET_WM_USER_TIME (on the window _NET_WM_USER_TIME_WINDOW names, when
// it names one); CurrentTime when it keeps none.
Time userTime(::Display* display, Window window) {
    auto indirect = longProperty(display, window, "_NET_WM_USER_TIME_WINDOW", XA_WINDOW);
    Window holder = indirect.empty() || indirect.front() == 0 ? window : indirect.front();
    auto time = longProperty(display, holder, "_NET_WM_USER_TIME", XA_CARDINAL);
    return time.empty() ? CurrentTime : static_cast<Time>(time.front());
}

void requestActiveWindow(::Display* display, Window window, long source, Time timestamp) {
    Window root = DefaultRootWindow(display);
    auto active = longProperty(display, root, "_NET_ACTIVE_WINDOW", XA_WINDOW);
    XEvent event{};
    event.xclient.type = ClientMessage;
    event.xclient.window = window;
    event.xclient.message_type = XInternAtom(display, "_NET_ACTIVE_WINDOW", False);
    event.xclient.format = 32;
    event.xclient.data.l[0] = source;
    event.xclient.data.l[1] = static_cast<long>(timestamp);
    // The requestor's currently active window: the one being left.
    event.xclient.data.l[2] = active.empty() ? 0 : static_cast<long>(active.front());
    XSendEvent(display, root, False, SubstructureRedirectMask | SubstructureNotifyMask, &event);
}

void raiseAndFocus(::Display* display, const WindowFacts& target, Time timestamp) {
    XRaiseWindow(display, target.window);
    if (target.viewable) {
        // A window that is not shown cannot take the focus (BadMatch).
        XSetInputFocus(display, target.window, RevertToParent, timestamp);
    }
}

}  // namespace

Time currentServerTime(::Display* display) {
    Window root = DefaultRootWindow(display);
    XSetWindowAttributes attributes{};
    attributes.event_mask = PropertyChangeMask;
    Window window = XCreateWindow(display, root, -1, -1, 1, 1, 0, 0, InputOnly, CopyFromParent,
                                  CWEventMask, &attributes);
    if (window == None) {
        return CurrentTime;
    }
    Atom property = XInternAtom(display, "_VELMORA_TIMESTAMP", False);
    XChangeProperty(display, window, property, XA_STRING, 8, PropModeAppend, nullptr, 0);
    // The server always answers a property change on a window that selected it,
    // so this wait ends after one round trip (or when the connection is lost).
    XEvent event{};
    XWindowEvent(display, window, PropertyChangeMask, &event);
    XDestroyWindow(display, window);
    return event.type == PropertyNotify ? event.xproperty.time : CurrentTime;
}

bool activateProcessWindow(::Display* display, int32_t processId) {
    auto target = windowToActivate(display, processId);
    if (!target) {
        return false;
    }
    if (hasWindowManager(display)) {
        // As the application asks for its own window: with the time of the user's
        // last interaction with it, so that a manager preventing focus stealing
        // refuses when the user has worked in another window since.
        requestActiveWindow(display, target->window, kSourceApplication,
                            userTime(display, target->window));
    } else {
        raiseAndFocus(display, *target, CurrentTime);
    }
    XSync(display, False);
    return true;
}

bool forceProcessWindow(::Display* display, int32_t processId) {
    auto target = windowToActivate(display, processId);
    if (!target) {
        return false;
    }
    const Time now = currentServerTime(display);
    if (hasWindowManager(display)) {
        requestActiveWindow(display, target->window, kSourcePager, now);
    }
    // The manager handles the request in its own time, and no answer tells
    // whether it obeyed; rather than wait and look, the window is raised and
    // focused now as well. Where the manager obeyed this changes nothing; where it
    // refused, the server does it anyway (the focus change carries the current
    // time, so the server does not discard it as stale), and managers follow the
    // focus they see change.
    raiseAndFocus(display, *target, now);
    XSync(display, False);
    return true;
}

}  // namespace velmora::native::freedesktop
