#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/driver/UIDriver.h"
#include "core/native/Platform.h"

namespace velmora::native {

// The native driver: the accessibility tree, synthesised input, application
// launching and activation, screen capture and executable fingerprints, over
// the platform layer. Every rule lives here; the platform only makes the calls.
//
// The driver holds its two settings and, for the rest of the process, the
// applications that stopped answering accessibility reads; everything else it
// asks the platform afresh. Time (the current time and every wait) is the
// platform's.
//
// An application that stops answering costs one time-out per process, not one
// per read: a read that fails with kAXErrorCannotComplete after waiting at
// least kSilentAfter marks its application silent, and the rest of that walk
// fails at once without asking it. A later walk of a silent application first
// sets the application element's messaging time-out to kProbeTimeout and makes
// its first read with it: if that read, too, goes unanswered for the probe's
// time, every other read of the walk fails at once; if the application answers,
// it is no longer silent, its time-out is the provider's own again, and the walk
// reads it normally. Failed reads give what any failed read gives.
class AXCGDriver : public UIDriver {
  public:
    // Polling interval while waiting for an application to come to the front.
    static constexpr double kFrontmostPollInterval = 0.05;
    // How long focus waits after a plain activation before forcing it.
    static constexpr double kActivationWait = 0.6;
    // How long launch waits for the workspace's answer.
    static constexpr double kLaunchWait = 10.0;
    // Recursion limit of a tree walk: the application element is depth 0.
    static constexpr int kMaxDepth = 60;
    static constexpr const char* kUnknownRole = "AXUnknown";

    // A failed read that waited this long was not answered: the application is
    // silent. Shorter than the providers' own time-outs (2.5 s on Linux, 6 s on
    // macOS), longer than any application takes to answer with an error.
    static constexpr double kSilentAfter = 2.0;
    // How long the first read of a silent application waits for an answer.
    static constexpr double kProbeTimeout = 0.25;

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

    // What a tree walk reads of each element: everything a query reports, or the
    // role alone (the structural state).
    enum class WalkReads { everything, structure };

  private:
    // Application control.
    RunningApplication runningApp(const std::string& bundleId);
    bool waitFrontmost(const std::string& bundleId, double timeoutSeconds);
    void forceActivate(const std::string& bundleId, int32_t processId);

    // Accessibility reads. None of them reports an error: a failed read is absent.
    // Every read of one application's walk goes through ask(), which keeps the
    // silent-application rule.
    struct ReadSession {
        int32_t processId = 0;
        AXElement application;
        bool probing = false;  // the next read is the probe of a silent application
        bool silent = false;   // the rest of this walk fails at once
    };
    void beginReading(int32_t processId, const AXElement& application);
    template <typename Request>
    auto ask(Request request) -> decltype(request());
    static const AttributeRead& firstRead(const AttributeRead& read);
    static const AttributeRead& firstRead(const std::vector<AttributeRead>& reads);
    AttributeRead read(const AXElement& element, const std::string& name);
    std::vector<AttributeRead> readAll(const AXElement& element,
                                       const std::vector<std::string>& names);
    std::vector<AXElement> attributeElements(const AXElement& element, const std::string& name);
    // The first `count` children, asked for as a slice of the list.
    std::vector<AXElement> firstChildren(const AXElement& element, int64_t count);

    // One walk of the application's tree, windows included, as a query makes it.
    std::vector<ElementInfo> snapshot(const std::string& bundleId, WalkReads reads);
    // A child the walk recorded, with its subtree: out[first, end).
    struct WalkedChild {
        AXElement element;
        size_t first = 0;
        size_t end = 0;
    };
    // Records `element` and its subtree; with `walkedChildren`, also where each
    // child's subtree went.
    void walk(const AXElement& element, int depth, std::vector<ElementInfo>& out, int64_t& budget,
              WalkReads reads, std::vector<WalkedChild>* walkedChildren = nullptr);

    Platform& platform_;
    int64_t nodeBudget_;
    double focusTimeout_;
    std::set<int32_t> silentApplications_;  // by process id, for the rest of the process
    ReadSession session_;
};

}  // namespace velmora::native
