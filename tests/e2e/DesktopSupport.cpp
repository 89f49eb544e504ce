#include "tests/e2e/DesktopSupport.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace velmora::e2e {

using native::AttributeValue;
using native::kAXErrorSuccess;

bool onDesktop() {
    const char* display = std::getenv("DISPLAY");
    return display != nullptr && *display != '\0';
}

bool waitUntil(const std::function<bool()>& condition, double seconds) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return condition();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

std::optional<std::string> textAttribute(Platform& platform, const AXElement& element,
                                         const char* name) {
    auto read = platform.copyAttribute(element, name);
    if (read.code != kAXErrorSuccess || !read.value ||
        read.value->type != AttributeValue::Type::text) {
        return std::nullopt;
    }
    return read.value->text;
}

std::optional<Rect> frameOf(Platform& platform, const AXElement& element) {
    auto position = platform.copyAttribute(element, "AXPosition");
    auto size = platform.copyAttribute(element, "AXSize");
    if (position.code != kAXErrorSuccess || size.code != kAXErrorSuccess || !position.value ||
        !size.value || position.value->type != AttributeValue::Type::boxed ||
        size.value->type != AttributeValue::Type::boxed ||
        position.value->boxed.type != native::kAXValueCGPointType ||
        size.value->boxed.type != native::kAXValueCGSizeType) {
        return std::nullopt;
    }
    return Rect{.x = position.value->boxed.point.x,
                .y = position.value->boxed.point.y,
                .width = size.value->boxed.size.width,
                .height = size.value->boxed.size.height};
}

std::vector<AXElement> elementsAttribute(Platform& platform, const AXElement& element,
                                         const char* name) {
    auto read = platform.copyAttribute(element, name);
    if (read.code != kAXErrorSuccess || !read.value ||
        read.value->type != AttributeValue::Type::elementList) {
        return {};
    }
    return read.value->elements;
}

Node nodeOf(Platform& platform, const AXElement& element) {
    return Node{.element = element,
                .role = textAttribute(platform, element, "AXRole").value_or("AXUnknown"),
                .title = textAttribute(platform, element, "AXTitle"),
                .frame = frameOf(platform, element)};
}

namespace {

void collect(Platform& platform, const AXElement& element, size_t limit, int depth,
             std::vector<Node>& into) {
    if (into.size() >= limit || depth > 60) {
        return;
    }
    into.push_back(nodeOf(platform, element));
    for (const auto& child : elementsAttribute(platform, element, "AXChildren")) {
        collect(platform, child, limit, depth + 1, into);
    }
}

bool processExists(int32_t processId) {
    struct stat status {};
    return stat(("/proc/" + std::to_string(processId)).c_str(), &status) == 0;
}

}  // namespace

std::vector<Node> subtree(Platform& platform, const AXElement& root, size_t limit) {
    std::vector<Node> nodes;
    collect(platform, root, limit, 0, nodes);
    return nodes;
}

std::optional<Node> findNode(Platform& platform, const AXElement& root, const std::string& role,
                             const std::optional<std::string>& title) {
    for (auto& node : subtree(platform, root)) {
        if (node.role == role && (!title || node.title == title)) {
            return node;
        }
    }
    return std::nullopt;
}

Point centre(const Rect& frame) {
    return Point{.x = frame.x + frame.width / 2, .y = frame.y + frame.height / 2};
}

void click(Platform& platform, Point point, int clicks) {
    platform.warpPointer(point);
    std::vector<native::EventRef> events;
    for (int n = 1; n <= clicks; ++n) {
        for (uint32_t type : {native::kCGEventLeftMouseDown, native::kCGEventLeftMouseUp}) {
            auto event =
                platform.createMouseEvent(nullptr, type, point, native::kCGMouseButtonLeft);
            ASSERT_NE(event, nullptr);
            platform.setIntegerField(*event, native::kCGMouseEventClickState, n);
            events.push_back(std::move(event));
        }
    }
    std::vector<native::InputEvent*> burst;
    for (const auto& event : events) {
        burst.push_back(event.get());
    }
    platform.postEvents(native::kCGHIDEventTap, burst);
}

void typeText(Platform& platform, const std::u16string& text) {
    auto source = platform.createEventSource(native::kCGEventSourceStateCombinedSessionState);
    for (size_t i = 0; i < text.size();) {
        size_t length = (text[i] >= 0xD800 && text[i] <= 0xDBFF && i + 1 < text.size()) ? 2 : 1;
        std::u16string character = text.substr(i, length);
        i += length;
        auto down = platform.createKeyboardEvent(source.get(), 0, true);
        auto up = platform.createKeyboardEvent(source.get(), 0, false);
        ASSERT_NE(down, nullptr);
        ASSERT_NE(up, nullptr);
        platform.setUnicodeString(*down, character);
        platform.setUnicodeString(*up, character);
        platform.postEvent(native::kCGSessionEventTap, *down);
        platform.postEvent(native::kCGSessionEventTap, *up);
        platform.sleep(0.012);
    }
}

void pressKey(Platform& platform, uint16_t virtualKey, uint64_t flags) {
    auto down = platform.createKeyboardEvent(nullptr, virtualKey, true);
    auto up = platform.createKeyboardEvent(nullptr, virtualKey, false);
    ASSERT_NE(down, nullptr);
    ASSERT_NE(up, nullptr);
    platform.setFlags(*down, flags);
    platform.setFlags(*up, flags);
    platform.postEvent(native::kCGHIDEventTap, *down);
    platform.postEvent(native::kCGHIDEventTap, *up);
}

void scroll(Platform& platform, Point at, int32_t dy, int32_t dx) {
    platform.warpPointer(at);
    auto event =
        platform.createScrollWheelEvent(nullptr, native::kCGScrollEventUnitPixel, 2, dy, dx, 0);
    ASSERT_NE(event, nullptr);
    platform.postEvent(native::kCGHIDEventTap, *event);
}

LaunchedApplications::~LaunchedApplications() {
    for (int32_t processId : processIds_) {
        kill(processId, SIGTERM);
    }
    for (int32_t processId : processIds_) {
        if (!waitUntil([&] { return !processExists(processId); }, 5)) {
            kill(processId, SIGKILL);
            waitUntil([&] { return !processExists(processId); }, 5);
        }
    }
}

int32_t LaunchedApplications::launch(const std::string& applicationId) {
    auto location = platform_.applicationLocation(applicationId);
    EXPECT_TRUE(location) << applicationId << " is not installed (run scripts/setup)";
    if (!location) {
        return 0;
    }
    bool completed = false;
    std::optional<std::string> launchError;
    platform_.openApplication(*location, true, [&](std::optional<std::string> error) {
        completed = true;
        launchError = std::move(error);
    });
    EXPECT_TRUE(completed) << "the launch did not complete on the calling thread";
    EXPECT_FALSE(launchError) << *launchError;

    int32_t processId = 0;
    waitUntil(
        [&] {
            auto running = platform_.runningApplications(applicationId);
            processId = running.empty() ? 0 : running.front().processId;
            return processId != 0;
        },
        10);
    EXPECT_NE(processId, 0) << applicationId << " was launched but does not run";
    if (processId == 0) {
        return 0;
    }
    processIds_.push_back(processId);
    bool shown = waitUntil(
        [&] {
            auto windows = elementsAttribute(platform_, application(processId), "AXWindows");
            return !windows.empty() && frameOf(platform_, windows.front()).has_value();
        },
        15);
    EXPECT_TRUE(shown) << applicationId << " shows no window on the accessibility desktop"
                       << " (its role reads with code "
                       << platform_.copyAttribute(application(processId), "AXRole").code << ", "
                       << elementsAttribute(platform_, application(processId), "AXWindows").size()
                       << " windows)";
    if (!shown) {
        return 0;
    }
    // A new window reports extents before the window manager has placed it:
    // wait until its frame has stayed put for a while.
    std::optional<Rect> last;
    int unchanged = 0;
    bool placed = waitUntil(
        [&] {
            auto windows = elementsAttribute(platform_, application(processId), "AXWindows");
            auto frame = windows.empty() ? std::nullopt : frameOf(platform_, windows.front());
            unchanged = frame && frame == last ? unchanged + 1 : 0;
            last = frame;
            return unchanged >= 6;
        },
        10);
    EXPECT_TRUE(placed) << applicationId << "'s window does not settle";
    return placed ? processId : 0;
}

std::u16string utf16(const std::string& utf8) {
    std::u16string units;
    for (size_t i = 0; i < utf8.size();) {
        auto byte = static_cast<unsigned char>(utf8[i]);
        char32_t codePoint = 0;
        size_t length = 1;
        if (byte < 0x80) {
            codePoint = byte;
        } else if ((byte >> 5) == 0x6) {
            codePoint = byte & 0x1F;
            length = 2;
        } else if ((byte >> 4) == 0xE) {
            codePoint = byte & 0x0F;
            length = 3;
        } else {
            codePoint = byte & 0x07;
            length = 4;
        }
        for (size_t k = 1; k < length && i + k < utf8.size(); ++k) {
            codePoint = (codePoint << 6) | (static_cast<unsigned char>(utf8[i + k]) & 0x3F);
        }
        i += length;
        if (codePoint >= 0x10000) {
            codePoint -= 0x10000;
            units += static_cast<char16_t>(0xD800 + (codePoint >> 10));
            units += static_cast<char16_t>(0xDC00 + (codePoint & 0x3FF));
        } else {
            units += static_cast<char16_t>(codePoint);
        }
    }
    return units;
}

}  // namespace velmora::e2e
