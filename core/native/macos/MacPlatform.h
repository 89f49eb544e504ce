#pragma once

#include "core/native/Platform.h"

namespace velmora::native {

// The platform layer over Apple's APIs: ApplicationServices for accessibility,
// CoreGraphics for events and the capture permission, AppKit for the workspace
// and PNG encoding, ScreenCaptureKit for capture, Foundation and libdispatch for
// processes, files and time. Each operation makes the one call it names and
// reports what came back; the driver above holds every rule.
//
// The operations are defined next to the framework they use: accessibility and
// events in plain C++ (MacAccessibility.cpp, MacEvents.cpp), the Objective-C APIs
// in Objective-C++ compiled with automatic reference counting (MacWorkspace.mm,
// MacProcesses.mm, MacCapture.mm, MacFiles.mm, MacTime.mm).
class MacPlatform final : public Platform {
  public:
    // Accessibility
    AXElement applicationElement(int32_t processId) override;
    AttributeRead copyAttribute(const AXElement& element, const std::string& name) override;
    int32_t setMessagingTimeout(const AXElement& element, double seconds) override;
    bool isSameElement(const AXElement& a, const AXElement& b) override;
    bool isProcessTrusted() override;

    // Workspace
    std::optional<std::string> frontmostApplicationBundleId() override;
    std::vector<RunningApplication> runningApplications(const std::string& bundleId) override;
    std::optional<std::string> applicationLocation(const std::string& bundleId) override;
    std::optional<std::string> bundleExecutableLocation(const std::string& bundleLocation) override;
    void openApplication(const std::string& location, bool activates,
                         std::function<void(std::optional<std::string> error)> completion) override;
    void activateApplication(int32_t processId, uint32_t options) override;

    // Forced activation: osascript, as a child process (MacProcesses.mm)
    void forceActivateApplication(const std::string& bundleId, int32_t processId) override;

    // Events
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

    // Capture
    void shareableDisplays(std::function<void(std::optional<std::vector<Display>> displays,
                                              std::optional<std::string> error)>
                               completion) override;
    void captureImage(
        const Display& display, int64_t width, int64_t height,
        std::function<void(ImageRef image, std::optional<std::string> error)> completion) override;
    std::optional<std::vector<uint8_t>> encodePNG(const CapturedImage& image) override;
    bool preflightScreenCaptureAccess() override;
    bool requestScreenCaptureAccess() override;

    // Files
    FileContents readFile(const std::string& path) override;
    void writeFile(const std::string& path, const std::vector<uint8_t>& bytes) override;

    // Time
    void sleep(double seconds) override;
    void waitRunningLoop(double seconds) override;
    double monotonicSeconds() override;
    std::shared_ptr<Semaphore> makeSemaphore() override;
};

}  // namespace velmora::native
