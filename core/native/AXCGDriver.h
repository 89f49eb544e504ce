#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/driver/UIDriver.h"
#include "core/native/Platform.h"

namespace velmora::native {

// The native driver: the accessibility tree, synthesised input, application
// launching and activation, screen capture and executable fingerprints, over
// the platform layer. Every rule lives here; the platform only makes the calls.
//
// The driver holds its two settings and nothing else: every operation asks the
// platform afresh. Time (the current time and every wait) is the platform's.
class AXCGDriver : public UIDriver {
  public:
    // Polling interval while waiting for an application to come to the front.
    static constexpr double kFrontmostPollInterval = 0.05;
    // How long focus waits after a plain activation before forcing it.
    static constexpr double kActivationWait = 0.6;
    // How long launch waits for the workspace's answer.
    static constexpr double kLaunchWait = 10.0;
    // The child that forces activation through AppleScript.
    static constexpr const char* kOsascriptPath = "/usr/bin/osascript";

    // Recursion limit of a tree walk: the application element is depth 0.
    static constexpr int kMaxDepth = 60;
    static constexpr const char* kUnknownRole = "AXUnknown";

    // Settling waits after input, in seconds.
    static constexpr double kClickSettle = 0.4;
    static constexpr double kCharacterSettle = 0.012;
    static constexpr double kTypeSettle = 0.3;
    static constexpr double kKeysSettle = 0.4;

    // Longest wait for the screen capture.
    static constexpr double kCaptureWait = 8.0;

    // Touches nothing: the platform is first used by an operation.
    AXCGDriver(Platform& platform, int64_t nodeBudget, double focusTimeout);

    // The largest number of elements one query may record, windows included.
    int64_t nodeBudget() const { return nodeBudget_; }
    // How long focus waits after forcing activation, in seconds.
    double focusTimeout() const { return focusTimeout_; }

    std::optional<std::string> frontmostBundleId() override;
    std::string binarySha256(const std::string& bundleId) override;
    void launch(const std::string& bundleId) override;
    bool focus(const std::string& bundleId) override;
    void click(Point point, bool doubleClick) override;
    void typeText(const std::string& text) override;
    void pressKeys(const std::vector<std::string>& keys) override;
    void scroll(const ScrollSpec& spec) override;
    std::vector<ElementInfo> query(const std::string& bundleId,
                                   const std::optional<ElementSelector>& selector,
                                   bool includeValues) override;
    StructuralState structuralState(const std::string& bundleId) override;
    void screenshot(const std::string& bundleId, const std::string& path) override;

    // The AppleScript that activates an application; the identifier goes in unescaped.
    static std::string activationScript(const std::string& bundleId);

  private:
    // Application control.
    RunningApplication runningApp(const std::string& bundleId);
    bool waitFrontmost(const std::string& bundleId, double timeoutSeconds);
    void forceActivate(const std::string& bundleId);

    // Accessibility reads. None of them reports an error: a failed read is absent.
    void walk(const AXElement& element, int depth, std::vector<ElementInfo>& out, int64_t& budget);
    std::optional<std::string> stringAttr(const AXElement& element, const std::string& name);
    std::optional<Rect> frame(const AXElement& element);
    std::vector<AXElement> attributeElements(const AXElement& element, const std::string& name);

    Platform& platform_;
    int64_t nodeBudget_;
    double focusTimeout_;
};

}  // namespace velmora::native
