#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <X11/Xlib.h>

namespace velmora::native::freedesktop {

// The X display named by DISPLAY, or none. Only an X11 session is supported:
// without DISPLAY (a Wayland-only session, a console, a service) every operation
// that needs the desktop fails the way its contract allows.
std::optional<std::string> x11DisplayName();

// Whether two DISPLAY values name the same X display, whatever their screen
// numbers (":0" and ":0.1", "unix:0" and ":0" do). Unparsable names are equal
// only to themselves.
bool sameX11Display(const std::string& a, const std::string& b);

// One connection to an X server. Xlib's default handlers end the process on a
// protocol error or a lost connection; a connection opened here reports them
// instead: protocol errors are ignored (the call's own result tells failure) and
// a lost connection marks it broken.
class X11Display {
  public:
    // Null when the server cannot be reached.
    static std::unique_ptr<X11Display> open(const std::string& name);
    ~X11Display();

    X11Display(const X11Display&) = delete;
    X11Display& operator=(const X11Display&) = delete;

    // The open display; null once the connection has been lost.
    ::Display* get() const { return broken_ ? nullptr : display_; }
    const std::string& name() const { return name_; }

  private:
    X11Display(::Display* display, std::string name);
    static void onConnectionLost(::Display* display, void* self);

    ::Display* display_;
    std::string name_;
    std::atomic<bool> broken_{false};
};

// The provider's connection for the calling thread's requests, opened on first
// use and reopened after it was lost. Callers hold the lock while they use it.
class X11Connection {
  public:
    X11Connection() = default;  // touches nothing

    std::unique_lock<std::mutex> lock() { return std::unique_lock(mutex_); }
    // The open display, or null when there is none. Requires the lock.
    ::Display* display();
    // Called with the display, under the lock, each time a connection opens
    // (before display() returns it for the first time).
    void onOpen(std::function<void(::Display*)> hook) { openHooks_.push_back(std::move(hook)); }

  private:
    std::mutex mutex_;
    std::unique_ptr<X11Display> connection_;
    std::vector<std::function<void(::Display*)>> openHooks_;
};

}  // namespace velmora::native::freedesktop
