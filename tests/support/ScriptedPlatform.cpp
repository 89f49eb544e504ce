#include "tests/support/ScriptedPlatform.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>

#include "core/model/DriverError.h"

namespace velmora::native {

namespace {

constexpr double kNanosPerSecond = 1e9;

int64_t toNanos(double seconds) {
    return static_cast<int64_t>(std::llround(seconds * kNanosPerSecond));
}

std::string number(double value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

std::string pointText(Point point) {
    return number(point.x) + "," + number(point.y);
}

std::string hexFlags(uint64_t flags) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "0x%llx", static_cast<unsigned long long>(flags));
    return buffer;
}

std::string unitsText(const std::u16string& units) {
    std::string text;
    for (char16_t unit : units) {
        char buffer[16];
        std::snprintf(buffer, sizeof buffer, "%sU+%04X", text.empty() ? "" : " ",
                      static_cast<unsigned>(unit));
        text += buffer;
    }
    return text;
}

class ScriptedElement : public AccessibleObject {
  public:
    explicit ScriptedElement(std::string name) : name(std::move(name)) {}
    std::string name;
};

class ScriptedSource : public EventSource {
  public:
    explicit ScriptedSource(int32_t state) : state(state) {}
    int32_t state;
};

class ScriptedImage : public CapturedImage {
  public:
    explicit ScriptedImage(std::string name) : name(std::move(name)) {}
    std::string name;
};

// An event under construction; counts its release.
class ScriptedEvent : public InputEvent {
  public:
    ScriptedEvent(ScriptedPlatform::PostedEvent record, std::shared_ptr<int> released)
        : record(std::move(record)), released_(std::move(released)) {}
    ~ScriptedEvent() override { ++*released_; }

    ScriptedPlatform::PostedEvent record;

  private:
    std::shared_ptr<int> released_;
};

}  // namespace

struct ScriptedPlatform::SemaphoreStats {
    int signals = 0;  // guarded by Sync::mutex
};

class ScriptedPlatform::ScriptedSemaphore : public Semaphore {
  public:
    ScriptedSemaphore(ScriptedPlatform& platform, std::shared_ptr<Sync> sync,
                      std::shared_ptr<SemaphoreStats> stats)
        : platform_(platform), sync_(std::move(sync)), stats_(std::move(stats)) {}

    void signal() override {
        {
            std::lock_guard<std::mutex> lock(sync_->mutex);
            ++count_;
            ++stats_->signals;
        }
        sync_->changed.notify_all();
    }

    bool wait(double timeoutSeconds) override {
        return platform_.waitOn(*this, timeoutSeconds, false);
    }
    bool waitRunningLoop(double timeoutSeconds) override {
        return platform_.waitOn(*this, timeoutSeconds, true);
    }

    // Takes one signal if there is one.
    bool tryTake() {
        std::lock_guard<std::mutex> lock(sync_->mutex);
        if (count_ > 0) {
            --count_;
            return true;
        }
        return false;
    }

    // Blocks (for real) while completions run on other threads and none has
    // signalled; returns whether a signal is there.
    bool awaitThreads() {
        std::unique_lock<std::mutex> lock(sync_->mutex);
        sync_->changed.wait(lock, [this] { return count_ > 0 || sync_->threadsInFlight == 0; });
        return count_ > 0;
    }

    bool threadsRunning() {
        std::lock_guard<std::mutex> lock(sync_->mutex);
        return sync_->threadsInFlight > 0;
    }

  private:
    ScriptedPlatform& platform_;
    std::shared_ptr<Sync> sync_;
    std::shared_ptr<SemaphoreStats> stats_;
    int count_ = 0;  // guarded by Sync::mutex
};

std::optional<int64_t> ScriptedPlatform::PostedEvent::clickState() const {
    auto found = integerFields.find(kCGMouseEventClickState);
    if (found == integerFields.end()) {
        return std::nullopt;
    }
    return found->second;
}

ScriptedPlatform::ScriptedPlatform() = default;

ScriptedPlatform::~ScriptedPlatform() {
    joinThreads();
}

// Accessibility ----------------------------------------------------------------

AXElement ScriptedPlatform::element(const std::string& name) {
    auto made = std::make_shared<const ScriptedElement>(name);
    elements_.push_back(made);
    return made;
}

std::string ScriptedPlatform::nameOf(const AXElement& element) {
    auto* scripted = dynamic_cast<const ScriptedElement*>(element.get());
    return scripted ? scripted->name : "?";
}

void ScriptedPlatform::setRead(const AXElement& element, const std::string& attribute,
                               AttributeRead read) {
    attributes_[element.get()][attribute] = std::move(read);
}

void ScriptedPlatform::setText(const AXElement& element, const std::string& attribute,
                               std::string text) {
    setRead(element, attribute, AttributeRead::success(AttributeValue::ofText(std::move(text))));
}

void ScriptedPlatform::setChildren(const AXElement& element, std::vector<AXElement> children) {
    setRead(element, "AXChildren",
            AttributeRead::success(AttributeValue::ofElements(std::move(children))));
}

void ScriptedPlatform::setWindows(const AXElement& element, std::vector<AXElement> windows) {
    setRead(element, "AXWindows",
            AttributeRead::success(AttributeValue::ofElements(std::move(windows))));
}

void ScriptedPlatform::setFrame(const AXElement& element, Rect frame) {
    setRead(element, "AXPosition",
            AttributeRead::success(AttributeValue::ofPoint(Point{frame.x, frame.y})));
    setRead(element, "AXSize",
            AttributeRead::success(AttributeValue::ofSize(Size{frame.width, frame.height})));
}

void ScriptedPlatform::setApplicationElement(int32_t processId, AXElement element) {
    appElements_[processId] = std::move(element);
}

AXElement ScriptedPlatform::applicationElement(int32_t processId) {
    appElementRequests_.push_back(processId);
    auto found = appElements_.find(processId);
    if (found != appElements_.end()) {
        return found->second;
    }
    return element("application-" + std::to_string(processId));
}

AttributeRead ScriptedPlatform::copyAttribute(const AXElement& element, const std::string& name) {
    ++readsByAttribute_[name];
    ++readsByElement_[{element.get(), name}];
    readLog_.push_back(nameOf(element) + "." + name);
    if (!trusted_) {
        return AttributeRead::failure(kAXErrorAPIDisabled);
    }
    if (answeringChange_ && answeringChange_->first-- == 0) {
        answering_ = answeringChange_->second;
        answeringChange_.reset();
    }
    if (!answering_) {
        const double waited = timeoutInForce_ > 0 ? timeoutInForce_ : providerTimeout_;
        note("unanswered " + nameOf(element) + "." + name + " " + number(waited));
        int64_t target = 0;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            target = nanos_ + toNanos(waited);
        }
        advanceTo(target);
        return AttributeRead::failure(kAXErrorCannotComplete);
    }
    auto byElement = attributes_.find(element.get());
    if (byElement != attributes_.end()) {
        auto byName = byElement->second.find(name);
        if (byName != byElement->second.end()) {
            return byName->second;
        }
    }
    return AttributeRead::failure(kAXErrorAttributeUnsupported);
}

std::vector<AttributeRead> ScriptedPlatform::copyAttributes(const AXElement& element,
                                                            const std::vector<std::string>& names) {
    std::string line = nameOf(element) + " ";
    for (size_t i = 0; i < names.size(); ++i) {
        line += (i == 0 ? "" : ",") + names[i];
    }
    requestLog_.push_back(std::move(line));
    return Platform::copyAttributes(element, names);
}

AttributeRead ScriptedPlatform::copyAttributeValues(const AXElement& element,
                                                    const std::string& name, int64_t index,
                                                    int64_t maxValues) {
    requestLog_.push_back(nameOf(element) + " " + name + "[" + std::to_string(index) + "+" +
                          std::to_string(maxValues) + "]");
    return Platform::copyAttributeValues(element, name, index, maxValues);
}

void ScriptedPlatform::setAnswering(bool answering, double providerTimeout, int afterReads) {
    providerTimeout_ = providerTimeout;
    if (afterReads > 0) {
        answeringChange_ = std::make_pair(afterReads, answering);
    } else {
        answering_ = answering;
        answeringChange_.reset();
    }
}

int32_t ScriptedPlatform::setMessagingTimeout(const AXElement& element, double seconds) {
    timeoutSettings_.push_back(TimeoutSetting{nameOf(element), seconds, now()});
    note("timeout " + nameOf(element) + " " + number(seconds));
    timeoutInForce_ = seconds;
    return kAXErrorSuccess;
}

int ScriptedPlatform::readCount(const std::string& attribute) const {
    auto found = readsByAttribute_.find(attribute);
    return found == readsByAttribute_.end() ? 0 : found->second;
}

int ScriptedPlatform::readCount(const AXElement& element, const std::string& attribute) const {
    auto found = readsByElement_.find({element.get(), attribute});
    return found == readsByElement_.end() ? 0 : found->second;
}

int ScriptedPlatform::readCount(const AXElement& element) const {
    int total = 0;
    for (const auto& [key, count] : readsByElement_) {
        if (key.first == element.get()) {
            total += count;
        }
    }
    return total;
}

// Workspace --------------------------------------------------------------------

void ScriptedPlatform::setFrontmost(std::optional<std::string> bundleId) {
    frontmost_ = std::move(bundleId);
    frontmostChange_.reset();
}

void ScriptedPlatform::setFrontmostAfterPolls(int polls, std::optional<std::string> bundleId) {
    frontmostChange_ = std::make_pair(polls, std::move(bundleId));
}

std::optional<std::string> ScriptedPlatform::frontmostApplicationBundleId() {
    ++frontmostPolls_;
    readsBeforePolls_.push_back(readLog_.size());
    if (frontmostChange_) {
        if (frontmostChange_->first == 0) {
            frontmost_ = frontmostChange_->second;
            frontmostChange_.reset();
        } else {
            --frontmostChange_->first;
        }
    }
    const std::optional<std::string>& answer = refreshedByRunLoop_ ? seenFrontmost_ : frontmost_;
    note("frontmost -> " + answer.value_or("none"));
    return answer;
}

void ScriptedPlatform::setWorkspaceRefreshedByRunLoop(bool refreshed) {
    refreshedByRunLoop_ = refreshed;
    seenFrontmost_ = frontmost_;
    seenRunning_ = running_;
}

void ScriptedPlatform::runLoopRan() {
    if (refreshedByRunLoop_) {
        seenFrontmost_ = frontmost_;
        seenRunning_ = running_;
    }
}

void ScriptedPlatform::addRunningApp(const std::string& bundleId, RunningApplication app) {
    running_[bundleId].push_back(std::move(app));
}

void ScriptedPlatform::addInstalledApp(const std::string& bundleId, std::string location) {
    installed_[bundleId] = std::move(location);
}

void ScriptedPlatform::setBundleExecutable(const std::string& bundleLocation,
                                           std::string executable) {
    executables_[bundleLocation] = std::move(executable);
}

std::vector<RunningApplication> ScriptedPlatform::runningApplications(const std::string& bundleId) {
    ++runningLookups_;
    const auto& running = refreshedByRunLoop_ ? seenRunning_ : running_;
    auto found = running.find(bundleId);
    return found == running.end() ? std::vector<RunningApplication>{} : found->second;
}

std::optional<std::string> ScriptedPlatform::applicationLocation(const std::string& bundleId) {
    installedLookups_.push_back(bundleId);
    auto found = installed_.find(bundleId);
    if (found == installed_.end()) {
        return std::nullopt;
    }
    return found->second;
}

std::optional<std::string> ScriptedPlatform::bundleExecutableLocation(
    const std::string& bundleLocation) {
    auto found = executables_.find(bundleLocation);
    if (found == executables_.end()) {
        return std::nullopt;
    }
    return found->second;
}

void ScriptedPlatform::setOpenAnswer(std::optional<std::string> error, Delivery delivery) {
    openError_ = std::move(error);
    openDelivery_ = delivery;
}

void ScriptedPlatform::openApplication(
    const std::string& location, bool activates,
    std::function<void(std::optional<std::string> error)> completion) {
    opens_.push_back({location, activates});
    note("open " + location + (activates ? " activating" : ""));
    if (onOpen_) {
        onOpen_();
    }
    deliver(openDelivery_,
            [completion = std::move(completion), error = openError_]() { completion(error); });
}

void ScriptedPlatform::activateApplication(int32_t processId, uint32_t options) {
    activations_.push_back({processId, options});
    note("activate " + std::to_string(processId) + " options=" + std::to_string(options));
}

void ScriptedPlatform::forceActivateApplication(const std::string& bundleId, int32_t processId) {
    forcedActivations_.push_back({bundleId, processId});
    note("force " + bundleId + " " + std::to_string(processId));
    if (onForcedActivation_) {
        onForcedActivation_();
    }
}

// Events -----------------------------------------------------------------------

void ScriptedPlatform::failEventCreation(EventKind kind, int ordinal) {
    eventFailures_[kind].push_back(ordinal);
}

EventRef ScriptedPlatform::makeEvent(EventKind kind, const EventSource* source) {
    const int ordinal = creations_[kind]++;
    const auto& failures = eventFailures_[kind];
    if (std::find(failures.begin(), failures.end(), ordinal) != failures.end()) {
        return nullptr;
    }
    ++*created_;
    PostedEvent record;
    record.kind = kind;
    if (source) {
        record.sourceState = static_cast<const ScriptedSource*>(source)->state;
    }
    return std::make_unique<ScriptedEvent>(std::move(record), released_);
}

void ScriptedPlatform::warpPointer(Point point) {
    warps_.push_back(point);
    note("warp " + pointText(point));
}

std::shared_ptr<EventSource> ScriptedPlatform::createEventSource(int32_t stateId) {
    sourceRequests_.push_back(stateId);
    if (failEventSource_) {
        return nullptr;
    }
    return std::make_shared<ScriptedSource>(stateId);
}

EventRef ScriptedPlatform::createMouseEvent(const EventSource* source, uint32_t type, Point point,
                                            uint32_t button) {
    EventRef event = makeEvent(EventKind::mouse, source);
    if (event) {
        auto& record = static_cast<ScriptedEvent&>(*event).record;
        record.mouseType = type;
        record.point = point;
        record.button = button;
    }
    return event;
}

EventRef ScriptedPlatform::createKeyboardEvent(const EventSource* source, uint16_t virtualKey,
                                               bool keyDown) {
    EventRef event = makeEvent(EventKind::keyboard, source);
    if (event) {
        auto& record = static_cast<ScriptedEvent&>(*event).record;
        record.keyCode = virtualKey;
        record.keyDown = keyDown;
    }
    return event;
}

EventRef ScriptedPlatform::createScrollWheelEvent(const EventSource* source, uint32_t units,
                                                  uint32_t wheelCount, int32_t wheel1,
                                                  int32_t wheel2, int32_t wheel3) {
    EventRef event = makeEvent(EventKind::scrollWheel, source);
    if (event) {
        auto& record = static_cast<ScriptedEvent&>(*event).record;
        record.units = units;
        record.wheelCount = wheelCount;
        record.wheel1 = wheel1;
        record.wheel2 = wheel2;
        record.wheel3 = wheel3;
    }
    return event;
}

void ScriptedPlatform::setIntegerField(InputEvent& event, uint32_t field, int64_t value) {
    static_cast<ScriptedEvent&>(event).record.integerFields[field] = value;
}

void ScriptedPlatform::setUnicodeString(InputEvent& event, const std::u16string& units) {
    static_cast<ScriptedEvent&>(event).record.unicode = units;
}

void ScriptedPlatform::setFlags(InputEvent& event, uint64_t flags) {
    static_cast<ScriptedEvent&>(event).record.flags = flags;
}

void ScriptedPlatform::postEvent(uint32_t tap, InputEvent& event) {
    PostedEvent record = static_cast<ScriptedEvent&>(event).record;
    record.tap = tap;
    std::string line = std::string("post ") + (tap == kCGHIDEventTap       ? "hid"
                                               : tap == kCGSessionEventTap ? "session"
                                                                           : "tap?");
    switch (record.kind) {
        case EventKind::mouse:
            line += record.mouseType == kCGEventLeftMouseDown ? " mouse-down "
                    : record.mouseType == kCGEventLeftMouseUp ? " mouse-up "
                                                              : " mouse? ";
            line += pointText(record.point);
            if (auto state = record.clickState()) {
                line += " click=" + std::to_string(*state);
            }
            break;
        case EventKind::keyboard:
            line += " key " + std::to_string(record.keyCode) + (record.keyDown ? " down" : " up");
            if (record.unicode) {
                line += " unicode=" + unitsText(*record.unicode);
            }
            break;
        case EventKind::scrollWheel:
            line += " scroll " + std::to_string(record.wheel1) + "," +
                    std::to_string(record.wheel2) + "," + std::to_string(record.wheel3);
            break;
    }
    if (record.flags) {
        line += " flags=" + hexFlags(*record.flags);
    }
    posted_.push_back(std::move(record));
    note(line);
}

void ScriptedPlatform::postEvents(uint32_t tap, const std::vector<InputEvent*>& events) {
    note("burst of " + std::to_string(events.size()));
    Platform::postEvents(tap, events);
}

// Capture ----------------------------------------------------------------------

Display ScriptedPlatform::display(const std::string& name, int64_t width, int64_t height) {
    return Display{width, height, std::make_shared<std::string>(name)};
}

std::string ScriptedPlatform::nameOf(const Display& display) {
    auto name = std::static_pointer_cast<std::string>(display.native);
    return name ? *name : "?";
}

ImageRef ScriptedPlatform::image(const std::string& name) {
    return std::make_shared<const ScriptedImage>(name);
}

std::string ScriptedPlatform::nameOf(const CapturedImage& image) {
    auto* scripted = dynamic_cast<const ScriptedImage*>(&image);
    return scripted ? scripted->name : "?";
}

void ScriptedPlatform::setDisplays(std::vector<Display> displays, Delivery delivery) {
    std::lock_guard<std::mutex> lock(mutex_);
    displays_ = std::move(displays);
    displaysError_.reset();
    displaysDelivery_ = delivery;
}

void ScriptedPlatform::setDisplaysError(std::string error, Delivery delivery) {
    std::lock_guard<std::mutex> lock(mutex_);
    displays_.reset();
    displaysError_ = std::move(error);
    displaysDelivery_ = delivery;
}

void ScriptedPlatform::setDisplaysNeither(Delivery delivery) {
    std::lock_guard<std::mutex> lock(mutex_);
    displays_.reset();
    displaysError_.reset();
    displaysDelivery_ = delivery;
}

void ScriptedPlatform::setCaptureImage(ImageRef image, Delivery delivery) {
    std::lock_guard<std::mutex> lock(mutex_);
    captureImage_ = std::move(image);
    captureError_.reset();
    captureDelivery_ = delivery;
}

void ScriptedPlatform::setCaptureError(std::string error, Delivery delivery) {
    std::lock_guard<std::mutex> lock(mutex_);
    captureImage_.reset();
    captureError_ = std::move(error);
    captureDelivery_ = delivery;
}

void ScriptedPlatform::setCaptureNeither(Delivery delivery) {
    std::lock_guard<std::mutex> lock(mutex_);
    captureImage_.reset();
    captureError_.reset();
    captureDelivery_ = delivery;
}

std::vector<ScriptedPlatform::CaptureCall> ScriptedPlatform::captures() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return captures_;
}

int ScriptedPlatform::shareableContentRequests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return shareableRequests_;
}

void ScriptedPlatform::shareableDisplays(
    std::function<void(std::optional<std::vector<Display>> displays,
                       std::optional<std::string> error)>
        completion) {
    std::optional<std::vector<Display>> displays;
    std::optional<std::string> error;
    Delivery delivery;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++shareableRequests_;
        displays = displays_;
        error = displaysError_;
        delivery = displaysDelivery_;
    }
    note("shareable-content");
    deliver(delivery, [completion = std::move(completion), displays = std::move(displays),
                       error = std::move(error)]() { completion(displays, error); });
}

void ScriptedPlatform::captureImage(
    const Display& display, int64_t width, int64_t height,
    std::function<void(ImageRef image, std::optional<std::string> error)> completion) {
    ImageRef image;
    std::optional<std::string> error;
    Delivery delivery;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        captures_.push_back({nameOf(display), width, height});
        image = captureImage_;
        error = captureError_;
        delivery = captureDelivery_;
    }
    note("capture " + nameOf(display) + " " + std::to_string(width) + "x" + std::to_string(height));
    deliver(delivery, [completion = std::move(completion), image = std::move(image),
                       error = std::move(error)]() { completion(image, error); });
}

std::optional<std::vector<uint8_t>> ScriptedPlatform::encodePNG(const CapturedImage& image) {
    encodedImages_.push_back(nameOf(image));
    return png_;
}

void ScriptedPlatform::setScreenCaptureAccess(bool preflight, bool request) {
    preflight_ = preflight;
    request_ = request;
}

bool ScriptedPlatform::preflightScreenCaptureAccess() {
    ++preflightCalls_;
    return preflight_;
}

bool ScriptedPlatform::requestScreenCaptureAccess() {
    ++requestCalls_;
    return request_;
}

// Files ------------------------------------------------------------------------

void ScriptedPlatform::addFile(const std::string& path, std::vector<uint8_t> bytes) {
    files_[path] = std::move(bytes);
}

void ScriptedPlatform::setReadError(const std::string& path, std::string error) {
    readErrors_[path] = std::move(error);
}

FileContents ScriptedPlatform::readFile(const std::string& path) {
    reads_.push_back(path);
    if (auto error = readErrors_.find(path); error != readErrors_.end()) {
        throw PlatformError(error->second);
    }
    auto found = files_.find(path);
    if (found == files_.end()) {
        throw PlatformError("no such file: " + path);
    }
    auto bytes = std::make_shared<const std::vector<uint8_t>>(found->second);
    return FileContents{bytes->data(), bytes->size(), bytes};
}

void ScriptedPlatform::writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    if (writeError_) {
        throw PlatformError(*writeError_);
    }
    writes_.emplace_back(path, bytes);
}

// Time -------------------------------------------------------------------------

double ScriptedPlatform::now() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<double>(nanos_) / kNanosPerSecond;
}

void ScriptedPlatform::sleep(double seconds) {
    int64_t target = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        sleeps_.push_back(seconds);
        target = nanos_ + std::max<int64_t>(0, toNanos(seconds));
    }
    note("sleep " + number(seconds));
    advanceTo(target);
}

void ScriptedPlatform::waitRunningLoop(double seconds) {
    int64_t target = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        runLoopWaits_.push_back(seconds);
        target = nanos_ + std::max<int64_t>(0, toNanos(seconds));
    }
    note("run loop " + number(seconds));
    advanceTo(target);
    runLoopRan();
}

std::shared_ptr<Semaphore> ScriptedPlatform::makeSemaphore() {
    auto stats = std::make_shared<SemaphoreStats>();
    auto semaphore = std::make_shared<ScriptedSemaphore>(*this, sync_, stats);
    std::lock_guard<std::mutex> lock(mutex_);
    semaphores_.push_back(semaphore);
    semaphoreStats_.push_back(stats);
    return semaphore;
}

std::vector<ScriptedPlatform::SemaphoreWait> ScriptedPlatform::semaphoreWaits() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return waits_;
}

size_t ScriptedPlatform::semaphoresMade() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return semaphores_.size();
}

bool ScriptedPlatform::semaphoreAlive(size_t index) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return !semaphores_.at(index).expired();
}

int ScriptedPlatform::semaphoreSignals(size_t index) const {
    std::shared_ptr<SemaphoreStats> stats;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stats = semaphoreStats_.at(index);
    }
    std::lock_guard<std::mutex> lock(sync_->mutex);
    return stats->signals;
}

bool ScriptedPlatform::waitOn(ScriptedSemaphore& semaphore, double timeoutSeconds, bool runLoop) {
    int64_t start = 0;
    int64_t deadline = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        start = nanos_;
        deadline = nanos_ + std::max<int64_t>(0, toNanos(timeoutSeconds));
    }
    bool signalled = false;
    for (;;) {
        if (semaphore.tryTake()) {
            signalled = true;
            break;
        }
        if (semaphore.threadsRunning()) {
            semaphore.awaitThreads();
            continue;
        }
        if (!runNextDueBy(deadline)) {
            break;
        }
    }
    int64_t elapsed = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!signalled) {
            nanos_ = std::max(nanos_, deadline);
        }
        elapsed = nanos_ - start;
        waits_.push_back({timeoutSeconds, signalled, static_cast<double>(elapsed) / 1e9, runLoop});
    }
    note(std::string(runLoop ? "run-loop wait " : "wait ") + number(timeoutSeconds) +
         (signalled ? " signalled" : " timed out"));
    if (runLoop) {
        runLoopRan();
    }
    return signalled;
}

void ScriptedPlatform::deliver(Delivery delivery, std::function<void()> run) {
    switch (delivery.when) {
        case Delivery::When::immediately:
            run();
            return;
        case Delivery::When::onAnotherThread: {
            {
                std::lock_guard<std::mutex> lock(sync_->mutex);
                ++sync_->threadsInFlight;
            }
            std::thread thread([sync = sync_, run = std::move(run)]() {
                run();
                {
                    std::lock_guard<std::mutex> lock(sync->mutex);
                    --sync->threadsInFlight;
                }
                sync->changed.notify_all();
            });
            std::lock_guard<std::mutex> lock(mutex_);
            threads_.push_back(std::move(thread));
            return;
        }
        case Delivery::When::after: {
            std::lock_guard<std::mutex> lock(mutex_);
            pending_.push_back({nanos_ + std::max<int64_t>(0, toNanos(delivery.delay)),
                                pendingOrder_++, std::move(run)});
            return;
        }
        case Delivery::When::never: {
            std::lock_guard<std::mutex> lock(mutex_);
            held_.push_back(std::move(run));
            return;
        }
    }
}

bool ScriptedPlatform::runNextDueBy(int64_t limitNanos) {
    std::function<void()> run;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto next = std::min_element(
            pending_.begin(), pending_.end(), [](const Pending& a, const Pending& b) {
                return a.dueNanos != b.dueNanos ? a.dueNanos < b.dueNanos : a.order < b.order;
            });
        if (next == pending_.end() || next->dueNanos > limitNanos) {
            return false;
        }
        nanos_ = std::max(nanos_, next->dueNanos);
        run = std::move(next->run);
        pending_.erase(next);
    }
    run();
    return true;
}

void ScriptedPlatform::advanceTo(int64_t nanos) {
    while (runNextDueBy(nanos)) {
    }
    std::lock_guard<std::mutex> lock(mutex_);
    nanos_ = std::max(nanos_, nanos);
}

void ScriptedPlatform::runPendingDeliveries() {
    for (;;) {
        joinThreads();
        if (!runNextDueBy(INT64_MAX)) {
            std::lock_guard<std::mutex> lock(mutex_);
            if (threads_.empty()) {
                return;
            }
        }
    }
}

size_t ScriptedPlatform::pendingDeliveries() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return pending_.size();
}

size_t ScriptedPlatform::heldCompletions() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return held_.size();
}

void ScriptedPlatform::joinThreads() {
    for (;;) {
        std::vector<std::thread> threads;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            threads.swap(threads_);
        }
        if (threads.empty()) {
            return;
        }
        for (auto& thread : threads) {
            thread.join();
        }
    }
}

void ScriptedPlatform::note(std::string line) {
    std::lock_guard<std::mutex> lock(mutex_);
    timeline_.push_back(std::move(line));
}

std::vector<std::string> ScriptedPlatform::timeline() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return timeline_;
}

}  // namespace velmora::native
