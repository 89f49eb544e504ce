#include "core/native/linux/LinuxPlatform.h"

#include <cerrno>
#include <chrono>
#include <cmath>
#include <ctime>

#include "core/native/SystemPlatform.h"
#include "core/native/linux/ConditionSemaphore.h"
#include "core/native/linux/PngEncoder.h"
#include "core/native/linux/PosixFiles.h"
#include "core/native/linux/atspi/AccessibilityStatus.h"
#include "core/native/linux/x11/SyntheticEvent.h"
#include "core/native/linux/x11/X11Capture.h"
#include "core/native/linux/x11/X11Windows.h"

namespace velmora::native {

std::unique_ptr<Platform> makeSystemPlatform() {
    return std::make_unique<freedesktop::LinuxPlatform>();
}

}  // namespace velmora::native

namespace velmora::native::freedesktop {

namespace {

// X has no event sources; the object only tells the caller that input can be
// sent.
class XTestEventSource final : public EventSource {};

SyntheticEvent* syntheticEvent(InputEvent& event) {
    return dynamic_cast<SyntheticEvent*>(&event);
}

}  // namespace

LinuxPlatform::LinuxPlatform() : LinuxPlatform(atspiReadsFromEnvironment()) {}

LinuxPlatform::LinuxPlatform(AtspiReads reads)
    : accessibility_(reads), workspace_(x11_), input_(x11_) {}

LinuxPlatform::~LinuxPlatform() = default;

// Accessibility ----------------------------------------------------------------

void LinuxPlatform::ensureAccessibilityOn() {
    // Without an X display there is no desktop session whose switch to set.
    if (accessibilityOn_ || !x11DisplayName()) {
        return;
    }
    accessibilityOn_ = switchAccessibilityOn() != AccessibilitySwitch::unreachable;
}

AXElement LinuxPlatform::applicationElement(int32_t processId) {
    ensureAccessibilityOn();
    return accessibility_.applicationElement(processId);
}

AttributeRead LinuxPlatform::copyAttribute(const AXElement& element, const std::string& name) {
    return accessibility_.copyAttribute(element, name);
}

std::vector<AttributeRead> LinuxPlatform::copyAttributes(const AXElement& element,
                                                         const std::vector<std::string>& names) {
    return accessibility_.copyAttributes(element, names);
}

AttributeRead LinuxPlatform::copyAttributeValues(const AXElement& element, const std::string& name,
                                                 int64_t index, int64_t maxValues) {
    return accessibility_.copyAttributeValues(element, name, index, maxValues);
}

bool LinuxPlatform::isSameElement(const AXElement& a, const AXElement& b) {
    return accessibility_.isSameElement(a, b);
}

int32_t LinuxPlatform::setMessagingTimeout(const AXElement& element, double seconds) {
    return accessibility_.setMessagingTimeout(element, seconds);
}

bool LinuxPlatform::isProcessTrusted() {
    return accessibility_.isReachable();
}

// Workspace --------------------------------------------------------------------

std::optional<std::string> LinuxPlatform::frontmostApplicationBundleId() {
    return workspace_.frontmostApplicationId();
}

std::vector<RunningApplication> LinuxPlatform::runningApplications(const std::string& bundleId) {
    return workspace_.runningApplications(bundleId);
}

std::optional<std::string> LinuxPlatform::applicationLocation(const std::string& bundleId) {
    return workspace_.applicationLocation(bundleId);
}

std::optional<std::string> LinuxPlatform::bundleExecutableLocation(
    const std::string& bundleLocation) {
    return workspace_.bundleExecutableLocation(bundleLocation);
}

void LinuxPlatform::openApplication(
    const std::string& location, bool /*activates*/,
    std::function<void(std::optional<std::string> error)> completion) {
    // Window managers give a newly mapped window the focus; bringing an
    // application to the front is the driver's focus step either way.
    ensureAccessibilityOn();
    workspace_.openApplication(location, completion);
}

void LinuxPlatform::activateApplication(int32_t processId, uint32_t /*options*/) {
    workspace_.activateApplication(processId);
}

void LinuxPlatform::forceActivateApplication(const std::string& /*bundleId*/, int32_t processId) {
    // There is no AppleScript here: the window manager's own strong activation
    // takes its place.
    auto lock = x11_.lock();
    if (::Display* display = x11_.display()) {
        forceProcessWindow(display, processId);
    }
}

// Events ---------------------------------------------------------------------------

void LinuxPlatform::warpPointer(Point point) {
    input_.warpPointer(point);
}

std::shared_ptr<EventSource> LinuxPlatform::createEventSource(int32_t /*stateId*/) {
    if (!input_.available()) {
        return nullptr;
    }
    return std::make_shared<XTestEventSource>();
}

EventRef LinuxPlatform::createMouseEvent(const EventSource* /*source*/, uint32_t type, Point point,
                                         uint32_t button) {
    if (!input_.available()) {
        return nullptr;
    }
    auto event = std::make_unique<SyntheticEvent>();
    event->kind = SyntheticEvent::Kind::mouse;
    event->mouseType = type;
    event->point = point;
    event->mouseButton = button;
    return event;
}

EventRef LinuxPlatform::createKeyboardEvent(const EventSource* /*source*/, uint16_t virtualKey,
                                            bool keyDown) {
    if (!input_.available()) {
        return nullptr;
    }
    auto event = std::make_unique<SyntheticEvent>();
    event->kind = SyntheticEvent::Kind::keyboard;
    event->virtualKey = virtualKey;
    event->keyDown = keyDown;
    return event;
}

EventRef LinuxPlatform::createScrollWheelEvent(const EventSource* /*source*/, uint32_t units,
                                               uint32_t wheelCount, int32_t wheel1, int32_t wheel2,
                                               int32_t /*wheel3*/) {
    if (!input_.available()) {
        return nullptr;
    }
    auto event = std::make_unique<SyntheticEvent>();
    event->kind = SyntheticEvent::Kind::scroll;
    event->scrollUnits = units;
    event->wheelVertical = wheelCount >= 1 ? wheel1 : 0;
    event->wheelHorizontal = wheelCount >= 2 ? wheel2 : 0;
    return event;
}

void LinuxPlatform::setIntegerField(InputEvent& event, uint32_t field, int64_t value) {
    if (auto* synthetic = syntheticEvent(event); synthetic && field == kCGMouseEventClickState) {
        synthetic->clickState = value;
    }
}

void LinuxPlatform::setUnicodeString(InputEvent& event, const std::u16string& units) {
    if (auto* synthetic = syntheticEvent(event)) {
        synthetic->unicodeText = units;
    }
}

void LinuxPlatform::setFlags(InputEvent& event, uint64_t flags) {
    if (auto* synthetic = syntheticEvent(event)) {
        synthetic->flags = flags;
    }
}

void LinuxPlatform::postEvent(uint32_t /*tap*/, InputEvent& event) {
    // X has one input stream: both taps post into it.
    if (auto* synthetic = syntheticEvent(event)) {
        input_.post({synthetic});
    }
}

void LinuxPlatform::postEvents(uint32_t /*tap*/, const std::vector<InputEvent*>& events) {
    std::vector<const SyntheticEvent*> synthetic;
    for (InputEvent* event : events) {
        if (auto* one = syntheticEvent(*event)) {
            synthetic.push_back(one);
        }
    }
    input_.post(synthetic);
}

// Capture ----------------------------------------------------------------------------

void LinuxPlatform::shareableDisplays(
    std::function<void(std::optional<std::vector<Display>> displays,
                       std::optional<std::string> error)>
        completion) {
    // The X server always answers with screens or an error, never with neither.
    requestDisplays([completion = std::move(completion)](std::vector<Display> displays,
                                                         std::optional<std::string> error) {
        if (error) {
            completion(std::nullopt, std::move(error));
        } else {
            completion(std::move(displays), std::nullopt);
        }
    });
}

void LinuxPlatform::captureImage(
    const Display& display, int64_t width, int64_t height,
    std::function<void(ImageRef image, std::optional<std::string> error)> completion) {
    requestImage(display, width, height, std::move(completion));
}

std::optional<std::vector<uint8_t>> LinuxPlatform::encodePNG(const CapturedImage& image) {
    const auto* rgb = dynamic_cast<const RgbImage*>(&image);
    if (rgb == nullptr) {
        return std::nullopt;
    }
    return encodePng(*rgb);
}

bool LinuxPlatform::preflightScreenCaptureAccess() {
    return canReadScreen(x11_);
}

bool LinuxPlatform::requestScreenCaptureAccess() {
    // X has no capture permission to ask for: the screen is readable or not.
    return canReadScreen(x11_);
}

// Files --------------------------------------------------------------------------------

FileContents LinuxPlatform::readFile(const std::string& path) {
    return readWholeFile(path);
}

void LinuxPlatform::writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    writeWholeFile(path, bytes);
}

// Time -----------------------------------------------------------------------------------

void LinuxPlatform::sleep(double seconds) {
    if (!(seconds > 0)) {
        return;
    }
    double whole = std::floor(seconds);
    timespec remaining{.tv_sec = static_cast<time_t>(whole),
                       .tv_nsec = static_cast<long>((seconds - whole) * 1e9)};
    while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
    }
}

void LinuxPlatform::waitRunningLoop(double seconds) {
    // Every workspace read asks the X server, AT-SPI or /proc afresh; there is no
    // cached state for a loop to refresh.
    sleep(seconds);
}

double LinuxPlatform::monotonicSeconds() {
    auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double>(now).count();
}

std::shared_ptr<Semaphore> LinuxPlatform::makeSemaphore() {
    return std::make_shared<ConditionSemaphore>();
}

}  // namespace velmora::native::freedesktop
