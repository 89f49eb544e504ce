#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/native/Platform.h"
#include "core/native/linux/RgbImage.h"
#include "core/native/linux/x11/X11Connection.h"

// Screen capture on an X11 desktop.
//
// The displays are the RandR monitors in the server's order (XRRGetMonitors),
// each as large as its monitor; a server without monitors is one display as
// large as its root window. An image is the monitor's area of the root window
// (XGetImage), scaled to the size asked for when that differs. Both requests run
// on a detached thread with a connection of its own, owning everything it uses,
// so that the caller's deadline holds and a late answer harms nobody.

namespace velmora::native::freedesktop {

// The provider's handle of a display (`Display::native`).
struct MonitorArea {
    std::string displayName;  // the X display to open
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

using DisplaysCompletion =
    std::function<void(std::vector<velmora::native::Display>, std::optional<std::string>)>;
using ImageCompletion = std::function<void(ImageRef, std::optional<std::string>)>;

void requestDisplays(DisplaysCompletion completion);
void requestImage(const velmora::native::Display& display, int64_t width, int64_t height,
                  ImageCompletion completion);

// The same, answered on the calling thread.
std::vector<velmora::native::Display> listDisplays(const std::string& displayName,
                                                   std::optional<std::string>& error);
std::shared_ptr<RgbImage> captureArea(const MonitorArea& area, int64_t width, int64_t height,
                                      std::optional<std::string>& error);

// Whether the screen's contents can be read: the display opens and a pixel of
// the root window can be fetched.
bool canReadScreen(X11Connection& x11);

}  // namespace velmora::native::freedesktop
