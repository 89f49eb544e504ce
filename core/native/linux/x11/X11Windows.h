#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <X11/Xlib.h>

// Reading and raising top-level windows: who owns a window, which window is in
// front, and bringing a process's window forward.

namespace velmora::native::freedesktop {

// A client's top-level window and what it says about its owner.
struct WindowFacts {
    Window window = 0;
    int32_t processId = 0;                   // _NET_WM_PID, 0 when not set
    std::vector<std::string> windowClasses;  // WM_CLASS instance and class names
    std::string gtkApplicationId;            // _GTK_APPLICATION_ID, or empty
    bool viewable = false;                   // mapped (shown)
};

// The clients' top-level windows: the window manager's client list when one is
// running, else the root window's children and, below frames, their children
// that carry a process id. Root-window order (bottom to top) otherwise.
std::vector<WindowFacts> topLevelWindows(::Display* display);

// The facts of one window.
WindowFacts windowFacts(::Display* display, Window window);

// The facts of each window, in the same order, all asked for at once.
std::vector<WindowFacts> windowFactsOf(::Display* display, const std::vector<Window>& windows);

// Whether an EWMH window manager is running (_NET_SUPPORTING_WM_CHECK).
bool hasWindowManager(::Display* display);

// The frontmost window that names its process: the window manager's
// _NET_ACTIVE_WINDOW, or without a window manager the window holding the input
// focus (or its nearest ancestor with _NET_WM_PID). None when there is none.
std::optional<Window> frontmostWindow(::Display* display);

// The process owning the frontmost window: the window manager's
// _NET_ACTIVE_WINDOW, or without a window manager the window holding the input
// focus (or its nearest ancestor with _NET_WM_PID). None when there is no such
// window or it does not name its process.
std::optional<int32_t> frontmostProcessId(::Display* display);

// Asks for the process's top-level window to be brought forward, as an
// application asks for one of its own windows: a _NET_ACTIVE_WINDOW request
// with the application source and the window's own user time (_NET_WM_USER_TIME,
// the user's last interaction with it), which a window manager that prevents
// focus stealing refuses when the user has worked in another window since
// (marking the window as wanting attention instead). Without a window manager there is nobody to
// ask: the window is raised and given the input focus directly. Returns whether the process has a
// window.
bool activateProcessWindow(::Display* display, int32_t processId);

// Brings the process's top-level window forward even where the window manager
// resists a plain request: a _NET_ACTIVE_WINDOW request with the pager source
// and a current server timestamp - the user's own request, which managers that
// prevent focus stealing still obey - and then XRaiseWindow and XSetInputFocus
// with that timestamp, for a manager that refuses even that. Returns whether
// the process has a window.
bool forceProcessWindow(::Display* display, int32_t processId);

// The X server's current time: a zero-length change of a property on a window
// of our own, whose notification carries the server's timestamp. Blocks for
// that one round trip; CurrentTime when the window cannot be made.
Time currentServerTime(::Display* display);

}  // namespace velmora::native::freedesktop
