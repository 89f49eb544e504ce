#pragma once

#include "core/native/Platform.h"
#include "core/native/linux/atspi/AtspiAccessibility.h"
#include "core/native/linux/desktop/DesktopWorkspace.h"
#include "core/native/linux/x11/X11Connection.h"
#include "core/native/linux/x11/X11Input.h"

namespace velmora::native::freedesktop {

// The platform layer on a Linux X11 desktop: accessibility over AT-SPI 2,
// input, focus and capture over Xlib with XTest and RandR, applications over
// GIO desktop entries and /proc. Wayland sessions are not supported: without
// DISPLAY, accessibility reads fail, no application is in front, events cannot
// be created, launching and capture report an error and permissions read false.
//
// Application identifiers are desktop-entry ids (ApplicationIdentity.h).
// Creating the provider touches nothing; the X display and the accessibility bus
// are connected on first use.
//
// Before it reads an application's tree or launches one, the provider makes sure
// the session's accessibility is switched on (AccessibilityStatus.h), as an
// assistive technology does, since toolkits build their trees only then. It
// never switches it off.
class LinuxPlatform final : public Platform {
  public:
    // Accessibility reads as atspiReadsFromEnvironment() says.
    LinuxPlatform();
    explicit LinuxPlatform(AtspiReads reads);
    ~LinuxPlatform() override;

    AXElement applicationElement(int32_t processId) override;
    AttributeRead copyAttribute(const AXElement& element, const std::string& name) override;
    std::vector<AttributeRead> copyAttributes(const AXElement& element,
                                              const std::vector<std::string>& names) override;
    bool isSameElement(const AXElement& a, const AXElement& b) override;
    AttributeRead copyAttributeValues(const AXElement& element, const std::string& name,
                                      int64_t index, int64_t maxValues) override;
    int32_t setMessagingTimeout(const AXElement& element, double seconds) override;
    bool isProcessTrusted() override;

    std::optional<std::string> frontmostApplicationBundleId() override;
    std::vector<RunningApplication> runningApplications(const std::string& bundleId) override;
    std::optional<std::string> applicationLocation(const std::string& bundleId) override;
    std::optional<std::string> bundleExecutableLocation(const std::string& bundleLocation) override;
    void openApplication(const std::string& location, bool activates,
                         std::function<void(std::optional<std::string> error)> completion) override;
    void activateApplication(int32_t processId, uint32_t options) override;

    void forceActivateApplication(const std::string& bundleId, int32_t processId) override;

    void warpPointer(Point point) override;
    std::shared_ptr<EventSource> createEventSource(int32_t stateId) override;
    EventRef createMouseEvent(const EventSource* source, uint32_t type, Point point,
                              uint32_t button) override;
    EventRef createKeyboardEvent(const EventSource* source, uint16_t virtualKey,
                                 bool keyDown) override;
    EventRef createScrollWheelEvent(const EventSource* source, uint32_t units, uint32_t wheelCount,
                                    int32_t wheel1, int32_t wheel2, int32_t wheel3) override;
    void setIntegerField(InputEvent& event, uint32_t field, int64_t value) override;
    void setUnicodeString(InputEvent& event, const std::u16string& units) override;
    void setFlags(InputEvent& event, uint64_t flags) override;
    void postEvent(uint32_t tap, InputEvent& event) override;
    void postEvents(uint32_t tap, const std::vector<InputEvent*>& events) override;

    void shareableDisplays(std::function<void(std::optional<std::vector<Display>> displays,
                                              std::optional<std::string> error)>
                               completion) override;
    void captureImage(
        const Display& display, int64_t width, int64_t height,
        std::function<void(ImageRef image, std::optional<std::string> error)> completion) override;
    std::optional<std::vector<uint8_t>> encodePNG(const CapturedImage& image) override;
    bool preflightScreenCaptureAccess() override;
    bool requestScreenCaptureAccess() override;

    FileContents readFile(const std::string& path) override;
    void writeFile(const std::string& path, const std::vector<uint8_t>& bytes) override;

    void sleep(double seconds) override;
    void waitRunningLoop(double seconds) override;
    double monotonicSeconds() override;
    std::shared_ptr<Semaphore> makeSemaphore() override;

  private:
    // Switches the session's accessibility on unless this process did already.
    void ensureAccessibilityOn();

    bool accessibilityOn_ = false;
    X11Connection x11_;
    AtspiAccessibility accessibility_;
    DesktopWorkspace workspace_;
    X11Input input_;
};

}  // namespace velmora::native::freedesktop
