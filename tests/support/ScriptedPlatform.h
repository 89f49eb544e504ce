#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "core/native/Platform.h"

// A platform layer made of scripts, in virtual time, for the native driver's unit
// tests. Everything the driver asks for is answered from what the test set up, and
// everything the driver does is recorded in order.
//
// Time: the clock starts at 0 and moves only when the driver sleeps, waits with the
// run loop running, or waits on a semaphore (in whole nanoseconds, so that 12 polls
// of 0.05 s end exactly at 0.6 s).
// A semaphore wait that nothing signals in time advances the clock by its full
// time-out. Completions scripted to arrive late are delivered when virtual time
// reaches them: during a wait, a sleep, or runPendingDeliveries().

namespace velmora::native {

// When an asynchronous completion is called.
struct Delivery {
    enum class When {
        immediately,      // inside the call that started the work
        onAnotherThread,  // on a thread of its own, at once (virtual time does not move)
        after,            // `delay` virtual seconds after the call
        never,            // held, never called
    };
    When when = When::immediately;
    double delay = 0;

    static Delivery immediately() { return {When::immediately, 0}; }
    static Delivery onAnotherThread() { return {When::onAnotherThread, 0}; }
    static Delivery after(double seconds) { return {When::after, seconds}; }
    static Delivery never() { return {When::never, 0}; }
};

class ScriptedPlatform : public Platform {
  public:
    ScriptedPlatform();
    ~ScriptedPlatform() override;

    ScriptedPlatform(const ScriptedPlatform&) = delete;
    ScriptedPlatform& operator=(const ScriptedPlatform&) = delete;

    // Accessibility tree --------------------------------------------------------

    // A new element; `name` labels it in read logs.
    AXElement element(const std::string& name);
    static std::string nameOf(const AXElement& element);

    // What reading `attribute` of `element` answers. Unscripted attributes answer
    // kAXErrorAttributeUnsupported.
    void setRead(const AXElement& element, const std::string& attribute, AttributeRead read);
    void setText(const AXElement& element, const std::string& attribute, std::string text);
    void setChildren(const AXElement& element, std::vector<AXElement> children);
    void setWindows(const AXElement& element, std::vector<AXElement> windows);
    // AXPosition and AXSize as boxed point and size.
    void setFrame(const AXElement& element, Rect frame);

    // The element AXUIElementCreateApplication answers for a process; a process
    // without one gets a fresh element with no attributes.
    void setApplicationElement(int32_t processId, AXElement element);
    const std::vector<int32_t>& applicationElementRequests() const { return appElementRequests_; }

    // An application that stops answering (stopped, or busy for good): while not
    // answering, every read waits in virtual time for the messaging time-out in
    // force, then fails with kAXErrorCannotComplete. The time-out in force is the
    // last one set on any element, or `providerTimeout` when none is (or 0 was).
    // Timeline: "timeout <element> <seconds>" for each setting, "unanswered
    // <element>.<attribute> <seconds waited>" for each such read.
    // With `afterReads`, the change comes after that many more reads.
    void setAnswering(bool answering, double providerTimeout = 6.0, int afterReads = 0);
    struct TimeoutSetting {
        std::string element;
        double seconds = 0;
        double at = 0;  // virtual time of the call
    };
    const std::vector<TimeoutSetting>& messagingTimeouts() const { return timeoutSettings_; }

    // An untrusted process (AXIsProcessTrusted false) has every read answer
    // kAXErrorAPIDisabled, as the system does.
    void setTrusted(bool trusted) { trusted_ = trusted; }

    // Reads counted per attribute, overall and per element, and logged in order as
    // "<element>.<attribute>".
    int readCount(const std::string& attribute) const;
    int readCount(const AXElement& element, const std::string& attribute) const;
    int readCount(const AXElement& element) const;
    const std::vector<std::string>& readLog() const { return readLog_; }
    // Requests, one line each: "<element> <attribute>,<attribute>..." for a read of
    // several attributes at once (each also counted and logged as a read above),
    // "<element> <attribute>[<index>+<maxValues>]" for a slice of a list.
    const std::vector<std::string>& requestLog() const { return requestLog_; }

    // Workspace -----------------------------------------------------------------

    // The system's frontmost application.
    void setFrontmost(std::optional<std::string> bundleId);
    // After `polls` more reads of the frontmost application, it becomes `bundleId`.
    void setFrontmostAfterPolls(int polls, std::optional<std::string> bundleId);
    int frontmostPolls() const { return frontmostPolls_; }

    // As AppKit does, answer the frontmost application and the running applications
    // as they were when the run loop last ran (a run-loop wait, with or without a
    // semaphore), not as the system has them now. Off by default.
    void setWorkspaceRefreshedByRunLoop(bool refreshed);
    // For each frontmost read, how many attribute reads had happened before it.
    const std::vector<size_t>& attributeReadsBeforeFrontmostPolls() const {
        return readsBeforePolls_;
    }

    void addRunningApp(const std::string& bundleId, RunningApplication app);
    void addInstalledApp(const std::string& bundleId, std::string location);
    void setBundleExecutable(const std::string& bundleLocation, std::string executable);
    int runningLookups() const { return runningLookups_; }
    const std::vector<std::string>& installedLookups() const { return installedLookups_; }

    // How openApplication answers: with `error` (none is success), when `delivery` says.
    void setOpenAnswer(std::optional<std::string> error, Delivery delivery);
    struct OpenCall {
        std::string location;
        bool activates = false;
    };
    const std::vector<OpenCall>& opens() const { return opens_; }
    // Runs inside openApplication, before its answer, as the launch's effect on the
    // system (an application starting, coming forward).
    void onOpen(std::function<void()> effect) { onOpen_ = std::move(effect); }

    struct Activation {
        int32_t processId = 0;
        uint32_t options = 0;
    };
    const std::vector<Activation>& activations() const { return activations_; }

    // Runs inside forceActivateApplication, as the forced activation's effect on
    // the desktop.
    void onForcedActivation(std::function<void()> effect) {
        onForcedActivation_ = std::move(effect);
    }
    struct ForcedActivation {
        std::string bundleId;
        int32_t processId = 0;
    };
    const std::vector<ForcedActivation>& forcedActivations() const { return forcedActivations_; }

    // Events --------------------------------------------------------------------

    enum class EventKind { mouse, keyboard, scrollWheel };

    // One posted event with everything set on it.
    struct PostedEvent {
        EventKind kind = EventKind::mouse;
        uint32_t tap = 0;
        std::optional<int32_t> sourceState;  // the state its source was made with; none without
        // mouse
        uint32_t mouseType = 0;
        Point point;
        uint32_t button = 0;
        // keyboard
        uint16_t keyCode = 0;
        bool keyDown = false;
        std::optional<std::u16string> unicode;
        // scroll wheel
        uint32_t units = 0;
        uint32_t wheelCount = 0;
        int32_t wheel1 = 0;
        int32_t wheel2 = 0;
        int32_t wheel3 = 0;
        // set on any event
        std::optional<uint64_t> flags;
        std::map<uint32_t, int64_t> integerFields;

        std::optional<int64_t> clickState() const;
    };
    const std::vector<PostedEvent>& posted() const { return posted_; }
    const std::vector<Point>& warps() const { return warps_; }

    // The `ordinal`-th (from 0) creation of an event of `kind` answers null.
    void failEventCreation(EventKind kind, int ordinal);
    void failEventSourceCreation(bool fail) { failEventSource_ = fail; }
    int eventsCreated() const { return *created_; }
    int eventsReleased() const { return *released_; }
    const std::vector<int32_t>& eventSourceRequests() const { return sourceRequests_; }

    // Capture -------------------------------------------------------------------

    // A display of the shareable content; `name` identifies it in capture calls.
    static Display display(const std::string& name, int64_t width, int64_t height);
    static std::string nameOf(const Display& display);
    ImageRef image(const std::string& name);
    static std::string nameOf(const CapturedImage& image);

    // How the shareable content answers: its displays, an error, or (broken
    // platform) neither.
    void setDisplays(std::vector<Display> displays, Delivery delivery = Delivery::immediately());
    void setDisplaysError(std::string error, Delivery delivery = Delivery::immediately());
    void setDisplaysNeither(Delivery delivery = Delivery::immediately());
    // How a capture answers: an image, an error, or (broken platform) neither.
    void setCaptureImage(ImageRef image, Delivery delivery = Delivery::immediately());
    void setCaptureError(std::string error, Delivery delivery = Delivery::immediately());
    void setCaptureNeither(Delivery delivery = Delivery::immediately());

    struct CaptureCall {
        std::string display;
        int64_t width = 0;
        int64_t height = 0;
    };
    std::vector<CaptureCall> captures() const;
    int shareableContentRequests() const;

    // PNG bytes for any image, or none for an encoding failure.
    void setPngEncoding(std::optional<std::vector<uint8_t>> bytes) { png_ = std::move(bytes); }
    const std::vector<std::string>& encodedImages() const { return encodedImages_; }

    void setScreenCaptureAccess(bool preflight, bool request);
    int preflightCalls() const { return preflightCalls_; }
    int requestCalls() const { return requestCalls_; }

    // Files ---------------------------------------------------------------------

    void addFile(const std::string& path, std::vector<uint8_t> bytes);
    // Reading `path` throws PlatformError with `error`; unknown paths throw too.
    void setReadError(const std::string& path, std::string error);
    // Every write throws PlatformError with `error` (none: writes succeed).
    void setWriteError(std::optional<std::string> error) { writeError_ = std::move(error); }
    const std::vector<std::string>& reads() const { return reads_; }
    const std::vector<std::pair<std::string, std::vector<uint8_t>>>& writes() const {
        return writes_;
    }

    // Time ----------------------------------------------------------------------

    double now() const;
    // Plain sleeps, and waits with the run loop running, in order.
    const std::vector<double>& sleeps() const { return sleeps_; }
    const std::vector<double>& runLoopWaits() const { return runLoopWaits_; }
    struct SemaphoreWait {
        double timeout = 0;
        bool signalled = false;
        double elapsed = 0;    // virtual seconds the wait took
        bool runLoop = false;  // waitRunningLoop rather than wait
    };
    std::vector<SemaphoreWait> semaphoreWaits() const;
    // Semaphores made so far, in order: whether each is still alive (someone still
    // owns it) and how often it was signalled.
    size_t semaphoresMade() const;
    bool semaphoreAlive(size_t index) const;
    int semaphoreSignals(size_t index) const;

    // Delivers every completion still due, advancing virtual time to each in turn,
    // and waits for completions running on other threads.
    void runPendingDeliveries();
    size_t pendingDeliveries() const;
    size_t heldCompletions() const;

    // What happened, in order, one line per step: warps, posts, sleeps ("sleep
    // 0.4"), run-loop waits ("run loop 0.4"), semaphore waits ("wait 10 signalled",
    // "run-loop wait 10 timed out"), activations, child processes, opens and captures.
    std::vector<std::string> timeline() const;

    // Platform ------------------------------------------------------------------

    AXElement applicationElement(int32_t processId) override;
    AttributeRead copyAttribute(const AXElement& element, const std::string& name) override;
    std::vector<AttributeRead> copyAttributes(const AXElement& element,
                                              const std::vector<std::string>& names) override;
    AttributeRead copyAttributeValues(const AXElement& element, const std::string& name,
                                      int64_t index, int64_t maxValues) override;
    int32_t setMessagingTimeout(const AXElement& element, double seconds) override;
    // Each scripted element is one object, however it is reached.
    bool isSameElement(const AXElement& a, const AXElement& b) override { return a == b; }
    bool isProcessTrusted() override { return trusted_; }

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
    // Noted as "burst of N", then each event as postEvent notes it.
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
    double monotonicSeconds() override { return now(); }
    std::shared_ptr<Semaphore> makeSemaphore() override;

    // Shared with semaphores and completion threads, which may outlive a call.
    struct Sync {
        std::mutex mutex;
        std::condition_variable changed;
        int threadsInFlight = 0;
    };

  private:
    class ScriptedSemaphore;
    struct SemaphoreStats;
    struct Pending {
        int64_t dueNanos = 0;
        uint64_t order = 0;
        std::function<void()> run;
    };

    void deliver(Delivery delivery, std::function<void()> run);
    bool runNextDueBy(int64_t limitNanos);
    void advanceTo(int64_t nanos);
    bool waitOn(ScriptedSemaphore& semaphore, double timeoutSeconds, bool runLoop);
    void runLoopRan();
    void note(std::string line);
    EventRef makeEvent(EventKind kind, const EventSource* source);
    void joinThreads();

    // accessibility
    std::vector<AXElement> elements_;
    std::map<const AccessibleObject*, std::map<std::string, AttributeRead>> attributes_;
    std::map<int32_t, AXElement> appElements_;
    std::vector<int32_t> appElementRequests_;
    bool trusted_ = true;
    bool answering_ = true;
    std::optional<std::pair<int, bool>> answeringChange_;  // reads left, then answering
    double providerTimeout_ = 6.0;
    double timeoutInForce_ = 0;
    std::vector<TimeoutSetting> timeoutSettings_;
    std::map<std::string, int> readsByAttribute_;
    std::map<std::pair<const AccessibleObject*, std::string>, int> readsByElement_;
    std::vector<std::string> readLog_;
    std::vector<std::string> requestLog_;

    // workspace
    std::optional<std::string> frontmost_;
    std::optional<std::pair<int, std::optional<std::string>>> frontmostChange_;
    int frontmostPolls_ = 0;
    std::vector<size_t> readsBeforePolls_;
    std::map<std::string, std::vector<RunningApplication>> running_;
    std::map<std::string, std::string> installed_;
    std::map<std::string, std::string> executables_;
    int runningLookups_ = 0;
    std::vector<std::string> installedLookups_;
    std::optional<std::string> openError_;
    Delivery openDelivery_;
    std::vector<OpenCall> opens_;
    std::function<void()> onOpen_;
    bool refreshedByRunLoop_ = false;
    std::optional<std::string> seenFrontmost_;
    std::map<std::string, std::vector<RunningApplication>> seenRunning_;
    std::vector<Activation> activations_;

    // forced activations
    std::function<void()> onForcedActivation_;
    std::vector<ForcedActivation> forcedActivations_;

    // events
    std::vector<PostedEvent> posted_;
    std::vector<Point> warps_;
    std::map<EventKind, std::vector<int>> eventFailures_;
    std::map<EventKind, int> creations_;
    bool failEventSource_ = false;
    std::vector<int32_t> sourceRequests_;
    std::shared_ptr<int> created_ = std::make_shared<int>(0);
    std::shared_ptr<int> released_ = std::make_shared<int>(0);

    // capture (touched from completion threads: guarded by mutex_)
    std::optional<std::vector<Display>> displays_ = std::vector<Display>{};
    std::optional<std::string> displaysError_;
    Delivery displaysDelivery_;
    ImageRef captureImage_;
    std::optional<std::string> captureError_;
    Delivery captureDelivery_;
    std::vector<CaptureCall> captures_;
    int shareableRequests_ = 0;
    std::optional<std::vector<uint8_t>> png_;
    std::vector<std::string> encodedImages_;
    bool preflight_ = false;
    bool request_ = false;
    int preflightCalls_ = 0;
    int requestCalls_ = 0;

    // files
    std::map<std::string, std::vector<uint8_t>> files_;
    std::map<std::string, std::string> readErrors_;
    std::optional<std::string> writeError_;
    std::vector<std::string> reads_;
    std::vector<std::pair<std::string, std::vector<uint8_t>>> writes_;

    // time and delivery (guarded by mutex_)
    mutable std::mutex mutex_;
    int64_t nanos_ = 0;
    std::vector<double> sleeps_;
    std::vector<double> runLoopWaits_;
    std::vector<SemaphoreWait> waits_;
    std::vector<std::weak_ptr<Semaphore>> semaphores_;
    std::vector<std::shared_ptr<SemaphoreStats>> semaphoreStats_;
    std::vector<Pending> pending_;
    uint64_t pendingOrder_ = 0;
    std::vector<std::function<void()>> held_;
    std::vector<std::thread> threads_;
    std::vector<std::string> timeline_;
    std::shared_ptr<Sync> sync_ = std::make_shared<Sync>();
};

}  // namespace velmora::native
