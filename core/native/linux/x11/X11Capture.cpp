#include "core/native/linux/x11/X11Capture.h"

#include <bit>
#include <system_error>
#include <thread>

#include <X11/Xutil.h>
#include <X11/extensions/Xrandr.h>

#include "core/native/linux/SharedLibrary.h"

namespace velmora::native::freedesktop {

namespace {

struct Libxrandr {
    decltype(&::XRRQueryExtension) XRRQueryExtension = nullptr;
    decltype(&::XRRGetMonitors) XRRGetMonitors = nullptr;
    decltype(&::XRRFreeMonitors) XRRFreeMonitors = nullptr;
};

// Only capture asks RandR for the monitors; none when its client library
// cannot be loaded, and then the screen is one display.
const Libxrandr* libxrandr() {
    static SharedLibrary library("libXrandr.so.2");
    static Libxrandr table;
    static const bool found = VELMORA_LIBRARY_FUNCTION(library, table, XRRQueryExtension) &&
                              VELMORA_LIBRARY_FUNCTION(library, table, XRRGetMonitors) &&
                              VELMORA_LIBRARY_FUNCTION(library, table, XRRFreeMonitors);
    return found ? &table : nullptr;
}

const char* const kNoDisplay =
    "no X11 display: DISPLAY is not set (only X11 sessions are supported)";

std::string cannotOpen(const std::string& name) {
    return "cannot open X display " + name;
}

// Runs `work` on a detached thread; when no thread can be started, runs
// `fallback` here instead.
template <typename Work, typename Fallback>
void detach(Work work, Fallback fallback) {
    try {
        std::thread(std::move(work)).detach();
    } catch (const std::system_error& error) {
        fallback(std::string("cannot start the capture: ") + error.what());
    }
}

// One colour channel of a pixel, scaled to 8 bits.
struct Channel {
    unsigned long mask = 0;
    int shift = 0;
    int bits = 0;

    explicit Channel(unsigned long m) : mask(m) {
        if (mask != 0) {
            shift = std::countr_zero(mask);
            bits = std::popcount(mask);
        }
    }
    uint8_t of(unsigned long pixel) const {
        if (bits == 0) {
            return 0;
        }
        unsigned long value = (pixel & mask) >> shift;
        unsigned long largest = (1UL << bits) - 1;
        return static_cast<uint8_t>((value * 255 + largest / 2) / largest);
    }
};

}  // namespace

std::vector<velmora::native::Display> listDisplays(const std::string& displayName,
                                                   std::optional<std::string>& error) {
    std::vector<velmora::native::Display> displays;
    auto connection = X11Display::open(displayName);
    ::Display* display = connection != nullptr ? connection->get() : nullptr;
    if (display == nullptr) {
        error = cannotOpen(displayName);
        return displays;
    }
    Window root = DefaultRootWindow(display);
    int eventBase = 0;
    int errorBase = 0;
    int count = 0;
    XRRMonitorInfo* monitors = nullptr;
    const Libxrandr* randr = libxrandr();
    if (randr != nullptr && randr->XRRQueryExtension(display, &eventBase, &errorBase) != False) {
        monitors = randr->XRRGetMonitors(display, root, True, &count);
    }
    auto add = [&](int x, int y, int width, int height) {
        auto area = std::make_shared<MonitorArea>(MonitorArea{
            .displayName = displayName, .x = x, .y = y, .width = width, .height = height});
        displays.push_back(
            velmora::native::Display{.width = width, .height = height, .native = area});
    };
    for (int i = 0; monitors != nullptr && i < count; ++i) {
        add(monitors[i].x, monitors[i].y, monitors[i].width, monitors[i].height);
    }
    if (monitors != nullptr) {
        randr->XRRFreeMonitors(monitors);
    }
    if (displays.empty()) {
        XWindowAttributes attributes{};
        if (XGetWindowAttributes(display, root, &attributes) != 0) {
            add(0, 0, attributes.width, attributes.height);
        }
    }
    if (connection->get() == nullptr) {
        error = "lost the connection to X display " + displayName;
        displays.clear();
    }
    return displays;
}

std::shared_ptr<RgbImage> captureArea(const MonitorArea& area, int64_t width, int64_t height,
                                      std::optional<std::string>& error) {
    if (width <= 0 || height <= 0 || area.width <= 0 || area.height <= 0) {
        error = "invalid capture size " + std::to_string(width) + "x" + std::to_string(height);
        return nullptr;
    }
    auto connection = X11Display::open(area.displayName);
    ::Display* display = connection != nullptr ? connection->get() : nullptr;
    if (display == nullptr) {
        error = cannotOpen(area.displayName);
        return nullptr;
    }
    XImage* shot = XGetImage(display, DefaultRootWindow(display), area.x, area.y,
                             static_cast<unsigned int>(area.width),
                             static_cast<unsigned int>(area.height), AllPlanes, ZPixmap);
    if (shot == nullptr) {
        error = "cannot read the screen area " + std::to_string(area.width) + "x" +
                std::to_string(area.height) + "+" + std::to_string(area.x) + "+" +
                std::to_string(area.y);
        return nullptr;
    }
    const Channel red(shot->red_mask);
    const Channel green(shot->green_mask);
    const Channel blue(shot->blue_mask);

    auto image = std::make_shared<RgbImage>();
    image->width = width;
    image->height = height;
    image->pixels.resize(static_cast<size_t>(width * height * 3));
    uint8_t* out = image->pixels.data();
    // Nearest-neighbour scaling when the asked size differs from the monitor's.
    for (int64_t row = 0; row < height; ++row) {
        int sourceRow = static_cast<int>(row * area.height / height);
        for (int64_t column = 0; column < width; ++column) {
            int sourceColumn = static_cast<int>(column * area.width / width);
            unsigned long pixel = XGetPixel(shot, sourceColumn, sourceRow);
            *out++ = red.of(pixel);
            *out++ = green.of(pixel);
            *out++ = blue.of(pixel);
        }
    }
    XDestroyImage(shot);
    return image;
}

void requestDisplays(DisplaysCompletion completion) {
    auto displayName = x11DisplayName();
    if (!displayName) {
        completion({}, std::string(kNoDisplay));
        return;
    }
    auto shared = std::make_shared<DisplaysCompletion>(std::move(completion));
    detach(
        [name = *displayName, shared] {
            std::optional<std::string> error;
            auto displays = listDisplays(name, error);
            (*shared)(std::move(displays), std::move(error));
        },
        [shared](std::string error) { (*shared)({}, std::move(error)); });
}

void requestImage(const velmora::native::Display& display, int64_t width, int64_t height,
                  ImageCompletion completion) {
    auto area = std::static_pointer_cast<const MonitorArea>(display.native);
    if (area == nullptr) {
        completion(nullptr, std::string("not a display of this desktop"));
        return;
    }
    auto shared = std::make_shared<ImageCompletion>(std::move(completion));
    detach(
        [area, width, height, shared] {
            std::optional<std::string> error;
            ImageRef image = captureArea(*area, width, height, error);
            (*shared)(std::move(image), std::move(error));
        },
        [shared](std::string error) { (*shared)(nullptr, std::move(error)); });
}

bool canReadScreen(X11Connection& x11) {
    auto lock = x11.lock();
    ::Display* display = x11.display();
    if (display == nullptr) {
        return false;
    }
    XImage* pixel = XGetImage(display, DefaultRootWindow(display), 0, 0, 1, 1, AllPlanes, ZPixmap);
    if (pixel == nullptr) {
        return false;
    }
    XDestroyImage(pixel);
    return true;
}

}  // namespace velmora::native::freedesktop
