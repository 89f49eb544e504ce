#include "core/native/linux/x11/X11Connection.h"

#include <cstdlib>

namespace velmora::native::freedesktop {

namespace {

int ignoreProtocolError(::Display*, XErrorEvent*) {
    return 0;
}

// Called first when a connection is lost; the per-connection exit handler then
// marks it broken instead of ending the process. Nothing is printed: standard
// error is not ours to write to.
int quietConnectionLoss(::Display*) {
    return 0;
}

void installHandlers() {
    static std::once_flag once;
    std::call_once(once, [] {
        XSetErrorHandler(ignoreProtocolError);
        XSetIOErrorHandler(quietConnectionLoss);
    });
}

}  // namespace

std::optional<std::string> x11DisplayName() {
    const char* name = std::getenv("DISPLAY");
    if (name == nullptr || *name == '\0') {
        return std::nullopt;
    }
    return std::string(name);
}

namespace {

// "host:N" of "host:N.S", with the local host spelled "".
std::string displayWithoutScreen(const std::string& name) {
    auto colon = name.rfind(':');
    if (colon == std::string::npos) {
        return name;
    }
    std::string host = name.substr(0, colon);
    std::string number = name.substr(colon + 1);
    auto dot = number.find('.');
    if (dot != std::string::npos) {
        number.resize(dot);
    }
    if (host == "unix") {
        host.clear();
    }
    return host + ":" + number;
}

}  // namespace

bool sameX11Display(const std::string& a, const std::string& b) {
    return displayWithoutScreen(a) == displayWithoutScreen(b);
}

std::unique_ptr<X11Display> X11Display::open(const std::string& name) {
    installHandlers();
    ::Display* display = XOpenDisplay(name.c_str());
    if (display == nullptr) {
        return nullptr;
    }
    return std::unique_ptr<X11Display>(new X11Display(display, name));
}

X11Display::X11Display(::Display* display, std::string name)
    : display_(display), name_(std::move(name)) {
    XSetIOErrorExitHandler(display_, &X11Display::onConnectionLost, this);
}

X11Display::~X11Display() {
    XCloseDisplay(display_);
}

void X11Display::onConnectionLost(::Display*, void* self) {
    static_cast<X11Display*>(self)->broken_ = true;
}

::Display* X11Connection::display() {
    if (connection_ != nullptr && connection_->get() != nullptr) {
        return connection_->get();
    }
    auto name = x11DisplayName();
    if (!name) {
        return nullptr;
    }
    connection_ = X11Display::open(*name);
    if (connection_ == nullptr) {
        return nullptr;
    }
    for (const auto& hook : openHooks_) {
        if (::Display* display = connection_->get()) {
            hook(display);
        }
    }
    return connection_->get();
}

}  // namespace velmora::native::freedesktop
