#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/model/Geometry.h"

// The platform layer: the operating-system calls that the native driver makes,
// one operation per call, with the call's own success and null semantics.
//
// This is the contract a provider implements (macOS over Apple's APIs, Linux over
// AT-SPI, X11 and GIO, and the scripted platform of the unit tests). A provider
// holds no rule of the driver: no budgets, polling loops, retries, chord parsing
// or key tables. It makes the call it is asked for and reports what came back.
//
// Unless an operation says otherwise it runs on the caller's thread and never
// throws. Key codes, event types, taps and fields crossing this layer are the
// macOS values; a provider on another system translates them.

namespace velmora::native {

struct Size {
    double width = 0;
    double height = 0;

    friend bool operator==(const Size&, const Size&) = default;
};

// ---------------------------------------------------------------------------
// Accessibility

// An accessibility element (AXUIElementRef on macOS). Providers subclass it.
class AccessibleObject {
  public:
    virtual ~AccessibleObject() = default;
};
using AXElement = std::shared_ptr<const AccessibleObject>;

// Result codes of an attribute read (AXError). Only success is acted on.
inline constexpr int32_t kAXErrorSuccess = 0;
inline constexpr int32_t kAXErrorFailure = -25200;
inline constexpr int32_t kAXErrorCannotComplete = -25204;
inline constexpr int32_t kAXErrorAttributeUnsupported = -25205;
inline constexpr int32_t kAXErrorAPIDisabled = -25211;
inline constexpr int32_t kAXErrorNoValue = -25212;

// AXValue box types.
inline constexpr int32_t kAXValueCGPointType = 1;
inline constexpr int32_t kAXValueCGSizeType = 2;
inline constexpr int32_t kAXValueCGRectType = 3;

// A geometry value as AXValue boxes it. Only the field of its `type` is meaningful.
struct AXBoxedValue {
    int32_t type = 0;
    Point point;
    Size size;
};

// A non-null attribute value.
struct AttributeValue {
    enum class Type {
        text,         // a string
        number,       // a number (CFNumber)
        boolean,      // a Boolean (CFBoolean)
        boxed,        // an AXValue
        element,      // one accessibility element
        elementList,  // a list of accessibility elements
        other,        // anything else (a list of strings, a date, ...)
    };

    Type type = Type::other;
    std::string text;
    double number = 0;
    bool boolean = false;
    AXBoxedValue boxed;
    AXElement element;
    std::vector<AXElement> elements;

    static AttributeValue ofText(std::string text);
    static AttributeValue ofNumber(double number);
    static AttributeValue ofBoolean(bool boolean);
    static AttributeValue ofPoint(Point point);
    static AttributeValue ofSize(Size size);
    static AttributeValue ofBoxed(AXBoxedValue boxed);
    static AttributeValue ofElement(AXElement element);
    static AttributeValue ofElements(std::vector<AXElement> elements);
    static AttributeValue ofOther();
};

// What AXUIElementCopyAttributeValue answers: a result code and a value or null.
struct AttributeRead {
    int32_t code = kAXErrorFailure;
    std::optional<AttributeValue> value;  // none is null

    static AttributeRead success(AttributeValue value) {
        return {kAXErrorSuccess, std::move(value)};
    }
    static AttributeRead successNull() { return {kAXErrorSuccess, std::nullopt}; }
    static AttributeRead failure(int32_t code) { return {code, std::nullopt}; }
};

// A successful element-list read cut to at most `maxValues` items from `index`
// on (both clamped to the list), as a slice of a list attribute answers; any
// other read is returned as it is.
AttributeRead sliceOfElementList(AttributeRead read, int64_t index, int64_t maxValues);

// ---------------------------------------------------------------------------
// Workspace

// One running instance of an application (NSRunningApplication).
struct RunningApplication {
    int32_t processId = 0;
    std::optional<std::string> bundleLocation;      // bundleURL, as a path
    std::optional<std::string> executableLocation;  // executableURL, as a path
};

// ---------------------------------------------------------------------------
// Events

// CGEventType values used.
inline constexpr uint32_t kCGEventLeftMouseDown = 1;
inline constexpr uint32_t kCGEventLeftMouseUp = 2;
// CGMouseButton
inline constexpr uint32_t kCGMouseButtonLeft = 0;
// CGEventField
inline constexpr uint32_t kCGMouseEventClickState = 1;
// CGEventTapLocation
inline constexpr uint32_t kCGHIDEventTap = 0;
inline constexpr uint32_t kCGSessionEventTap = 1;
// CGEventSourceStateID
inline constexpr int32_t kCGEventSourceStateCombinedSessionState = 0;
// CGScrollEventUnit
inline constexpr uint32_t kCGScrollEventUnitPixel = 0;
// CGEventFlags
inline constexpr uint64_t kCGEventFlagMaskShift = 0x20000;
inline constexpr uint64_t kCGEventFlagMaskControl = 0x40000;
inline constexpr uint64_t kCGEventFlagMaskAlternate = 0x80000;
inline constexpr uint64_t kCGEventFlagMaskCommand = 0x100000;
inline constexpr uint64_t kCGEventFlagMaskSecondaryFn = 0x800000;

// A created, not yet released event (CGEventRef). Released when destroyed.
class InputEvent {
  public:
    virtual ~InputEvent() = default;
};
using EventRef = std::unique_ptr<InputEvent>;

// An event source (CGEventSourceRef).
class EventSource {
  public:
    virtual ~EventSource() = default;
};

// ---------------------------------------------------------------------------
// Capture

// One display of the shareable content (SCDisplay).
struct Display {
    int64_t width = 0;  // as reported, in points; no scale factor applied
    int64_t height = 0;
    std::shared_ptr<void> native;  // the provider's own handle
};

// A captured image (CGImageRef).
class CapturedImage {
  public:
    virtual ~CapturedImage() = default;
};
using ImageRef = std::shared_ptr<const CapturedImage>;

// ---------------------------------------------------------------------------
// Files

// A whole file's bytes, mapped where the platform allows; `owner` keeps them alive.
struct FileContents {
    const uint8_t* data = nullptr;
    size_t size = 0;
    std::shared_ptr<const void> owner;
};

// ---------------------------------------------------------------------------
// Time

// A counting semaphore starting at zero (dispatch_semaphore_t).
class Semaphore {
  public:
    virtual ~Semaphore() = default;
    // May be called from any thread.
    virtual void signal() = 0;
    // Blocks until signalled or until `timeoutSeconds` have passed; whether signalled.
    virtual bool wait(double timeoutSeconds) = 0;
    // The same wait, with the run loop running meanwhile as in
    // Platform::waitRunningLoop; a signal ends it as promptly as `wait`.
    virtual bool waitRunningLoop(double timeoutSeconds) = 0;
};

// ---------------------------------------------------------------------------

class Platform {
  public:
    virtual ~Platform() = default;

    // Accessibility -----------------------------------------------------------

    // AXUIElementCreateApplication(pid).
    virtual AXElement applicationElement(int32_t processId) = 0;
    // AXUIElementCopyAttributeValue(element, name, &value).
    virtual AttributeRead copyAttribute(const AXElement& element, const std::string& name) = 0;
    // AXUIElementCopyMultipleAttributeValues(element, names, 0, &values): several
    // attributes of one element in one request, each answered as copyAttribute
    // answers it, in the order of `names`. Without a provider's own, one
    // copyAttribute per name, failing as one request fails: once a read could not
    // complete (kAXErrorCannotComplete: the application did not answer), the
    // remaining names fail alike without asking.
    virtual std::vector<AttributeRead> copyAttributes(const AXElement& element,
                                                      const std::vector<std::string>& names);
    // AXUIElementCopyAttributeValues(element, name, index, maxValues, &values): at
    // most `maxValues` items of a list attribute from `index` on, without the
    // application making the others; a failure as copyAttribute fails. Without a
    // provider's own, copyAttribute of the whole list, cut to the slice.
    virtual AttributeRead copyAttributeValues(const AXElement& element, const std::string& name,
                                              int64_t index, int64_t maxValues);
    // AXUIElementSetMessagingTimeout(element, seconds): how long reads of the
    // element's application wait for its answer before failing with
    // kAXErrorCannotComplete; 0 restores the provider's own time-out. The result code.
    virtual int32_t setMessagingTimeout(const AXElement& element, double seconds) = 0;
    // CFEqual(a, b): whether two elements stand for the same accessible object,
    // however each was reached.
    virtual bool isSameElement(const AXElement& a, const AXElement& b) = 0;
    // AXIsProcessTrusted().
    virtual bool isProcessTrusted() = 0;

    // Workspace ---------------------------------------------------------------

    // NSWorkspace.sharedWorkspace.frontmostApplication.bundleIdentifier; none when
    // there is no frontmost application or it has no identifier.
    virtual std::optional<std::string> frontmostApplicationBundleId() = 0;
    // NSRunningApplication runningApplicationsWithBundleIdentifier:, in the system's order.
    virtual std::vector<RunningApplication> runningApplications(const std::string& bundleId) = 0;
    // NSWorkspace URLForApplicationWithBundleIdentifier:, as a path; none when not installed.
    virtual std::optional<std::string> applicationLocation(const std::string& bundleId) = 0;
    // NSBundle initWithURL: then executableURL, as a path; none when either is missing.
    virtual std::optional<std::string> bundleExecutableLocation(
        const std::string& bundleLocation) = 0;
    // NSWorkspace openApplicationAtURL:configuration:completionHandler: with a
    // configuration whose activates is `activates`. The completion receives the
    // error's description, or none, and may run on another thread, possibly after
    // the caller stopped waiting: it must only touch what it shares by ownership.
    virtual void openApplication(
        const std::string& location, bool activates,
        std::function<void(std::optional<std::string> error)> completion) = 0;
    // NSRunningApplication activateWithOptions: on the instance with this process id.
    virtual void activateApplication(int32_t processId, uint32_t options) = 0;

    // The system's stronger means of bringing the application with this bundle
    // identifier to the front, for when it ignored a plain activation; `processId`
    // is the running instance the caller chose. Returns once the request has been
    // carried out; whether it worked shows only in the frontmost application, and
    // nothing is reported. macOS: /usr/bin/osascript with the activation script of
    // OsascriptActivation.h, run with NSTask (standard streams inherited) and
    // waited for (waitUntilExit; a child that cannot start returns at once). X11:
    // the window manager's activation as a pager asks for it, then raising and
    // focusing the window directly where the manager still refuses.
    virtual void forceActivateApplication(const std::string& bundleId, int32_t processId) = 0;

    // Events --------------------------------------------------------------------

    // CGWarpMouseCursorPosition: moves the pointer without producing an event.
    virtual void warpPointer(Point point) = 0;
    // CGEventSourceCreate(state); null when it cannot be created.
    virtual std::shared_ptr<EventSource> createEventSource(int32_t stateId) = 0;
    // CGEventCreateMouseEvent(source, type, point, button); null on failure.
    virtual EventRef createMouseEvent(const EventSource* source, uint32_t type, Point point,
                                      uint32_t button) = 0;
    // CGEventCreateKeyboardEvent(source, virtualKey, keyDown); null on failure.
    virtual EventRef createKeyboardEvent(const EventSource* source, uint16_t virtualKey,
                                         bool keyDown) = 0;
    // CGEventCreateScrollWheelEvent2(source, units, wheelCount, w1, w2, w3); null on failure.
    virtual EventRef createScrollWheelEvent(const EventSource* source, uint32_t units,
                                            uint32_t wheelCount, int32_t wheel1, int32_t wheel2,
                                            int32_t wheel3) = 0;
    // CGEventSetIntegerValueField.
    virtual void setIntegerField(InputEvent& event, uint32_t field, int64_t value) = 0;
    // CGEventKeyboardSetUnicodeString with the UTF-16 units.
    virtual void setUnicodeString(InputEvent& event, const std::u16string& units) = 0;
    // CGEventSetFlags.
    virtual void setFlags(InputEvent& event, uint64_t flags) = 0;
    // CGEventPost(tap, event).
    virtual void postEvent(uint32_t tap, InputEvent& event) = 0;
    // CGEventPost(tap, event) for each in turn, as one burst. Where applications
    // count clicks by their own clock (X11), a platform sends the burst at once,
    // so that the time between its events does not depend on this process's speed.
    virtual void postEvents(uint32_t tap, const std::vector<InputEvent*>& events) {
        for (InputEvent* event : events) {
            postEvent(tap, *event);
        }
    }

    // Capture -------------------------------------------------------------------

    // SCShareableContent getShareableContentWithCompletionHandler:, keeping its
    // displays in the platform's order. The completion gets the content's displays
    // (possibly none), or an error description, or, from a broken platform, neither
    // (no content and no error); it may run on another thread, possibly late.
    virtual void shareableDisplays(std::function<void(std::optional<std::vector<Display>> displays,
                                                      std::optional<std::string> error)>
                                       completion) = 0;
    // SCScreenshotManager captureImageWithFilter:configuration:completionHandler: with
    // a filter of `display` excluding no windows and a configuration of this width
    // and height. The completion gets an image or an error description (a call with
    // neither is possible only from a broken platform), on any thread, possibly late.
    virtual void captureImage(
        const Display& display, int64_t width, int64_t height,
        std::function<void(ImageRef image, std::optional<std::string> error)> completion) = 0;
    // NSBitmapImageRep initWithCGImage: then representationUsingType:PNG properties:{}.
    virtual std::optional<std::vector<uint8_t>> encodePNG(const CapturedImage& image) = 0;
    // CGPreflightScreenCaptureAccess(): never prompts.
    virtual bool preflightScreenCaptureAccess() = 0;
    // CGRequestScreenCaptureAccess(): may prompt the user.
    virtual bool requestScreenCaptureAccess() = 0;

    // Files ---------------------------------------------------------------------

    // Reads a whole file, mapped if safe. Throws PlatformError with the platform's text.
    virtual FileContents readFile(const std::string& path) = 0;
    // Writes bytes to a path, replacing an existing file, creating no directory, not
    // atomically. Throws PlatformError with the platform's text.
    virtual void writeFile(const std::string& path, const std::vector<uint8_t>& bytes) = 0;

    // Time ----------------------------------------------------------------------

    // NSThread sleepForTimeInterval:: the thread does nothing else meanwhile.
    virtual void sleep(double seconds) = 0;
    // Waits `seconds` while the system brings this process up to date: on macOS,
    // called on the main thread, the main run loop runs in its default mode for the
    // whole wait (CFRunLoopRunInMode). AppKit refreshes the workspace's
    // frontmostApplication and NSRunningApplication's properties only when the main
    // run loop turns, so a read after a plain sleep can give the old answer. On
    // another thread, or where the system has no such loop, it is `sleep`.
    virtual void waitRunningLoop(double seconds) = 0;
    // Seconds on a monotonic clock.
    virtual double monotonicSeconds() = 0;
    // dispatch_semaphore_create(0).
    virtual std::shared_ptr<Semaphore> makeSemaphore() = 0;
};

}  // namespace velmora::native
