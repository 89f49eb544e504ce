#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/model/Geometry.h"
#include "core/native/Platform.h"

// Helpers for tests that drive real applications through the platform layer on
// the desktop that scripts/desktop provides.

namespace velmora::e2e {

using native::AXElement;
using native::Platform;

// The size of the X screen, read straight from the server; zeros without one.
std::pair<int, int> screenSize();

// The process (_NET_WM_PID) owning the window that holds the X input focus, or
// the nearest ancestor that names one; 0 when none does.
int32_t inputFocusProcessId();

// How many keycodes the server's keyboard mapping binds to any keysym.
int mappedKeycodes();

// Whether the test runs on an X11 desktop (DISPLAY is set).
bool onDesktop();
inline constexpr const char* kNeedsDesktop =
    "this test needs a desktop: run it as scripts/desktop ctest --test-dir BUILD -L e2e";

// Polls `condition` every 50 ms until it holds or `seconds` have passed;
// whether it held.
bool waitUntil(const std::function<bool()>& condition, double seconds);

// An element with what the tests look at.
struct Node {
    AXElement element;
    std::string role;
    std::optional<std::string> title;
    std::optional<Rect> frame;
};

std::optional<std::string> textAttribute(Platform& platform, const AXElement& element,
                                         const char* name);
std::optional<Rect> frameOf(Platform& platform, const AXElement& element);
std::vector<AXElement> elementsAttribute(Platform& platform, const AXElement& element,
                                         const char* name);
Node nodeOf(Platform& platform, const AXElement& element);

// The element and its descendants through "AXChildren", in pre-order, at most
// `limit` of them.
std::vector<Node> subtree(Platform& platform, const AXElement& root, size_t limit = 5000);
// The first node of the subtree with this role and, when given, this title.
std::optional<Node> findNode(Platform& platform, const AXElement& root, const std::string& role,
                             const std::optional<std::string>& title = std::nullopt);

Point centre(const Rect& frame);

// Input, composed as the native driver composes it.
void click(Platform& platform, Point point, int clicks = 1);
void typeText(Platform& platform, const std::u16string& text);  // one event pair per unit run
void pressKey(Platform& platform, uint16_t virtualKey, uint64_t flags = 0);
void scroll(Platform& platform, Point at, int32_t dy, int32_t dx = 0);

// Applications launched by a test, ended (by process id) when it is destroyed.
class LaunchedApplications {
  public:
    explicit LaunchedApplications(Platform& platform) : platform_(platform) {}
    ~LaunchedApplications();

    // Launches the installed application with this id through openApplication,
    // waits until it runs and shows a window on the accessibility desktop, and
    // returns its process id (0 on failure, with a test failure recorded).
    int32_t launch(const std::string& applicationId);
    // The application element of a launched process.
    AXElement application(int32_t processId) { return platform_.applicationElement(processId); }

  private:
    Platform& platform_;
    std::vector<int32_t> processIds_;
};

// Characters of a UTF-8 text as UTF-16 units.
std::u16string utf16(const std::string& utf8);

}  // namespace velmora::e2e
