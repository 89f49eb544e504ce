#include "core/native/linux/atspi/AtspiAccessibility.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include <atspi/atspi.h>

#include "core/native/linux/GLibLogging.h"
#include "core/native/linux/SharedLibrary.h"
#include "core/native/linux/atspi/AtspiSnapshot.h"
#include "core/native/linux/atspi/DBusAtspiTransport.h"
#include "core/native/linux/atspi/RoleNames.h"
#include "core/native/linux/x11/X11Connection.h"

namespace velmora::native::freedesktop {

namespace {

// The one-call reader's functions of libatspi (and of GObject, which it brings).
// Loaded only when that reader is chosen: the pipelined reads speak D-Bus
// themselves.
struct Libatspi {
    decltype(&::atspi_accessible_get_accessible_id) atspi_accessible_get_accessible_id = nullptr;
    decltype(&::atspi_accessible_get_child_at_index) atspi_accessible_get_child_at_index = nullptr;
    decltype(&::atspi_accessible_get_child_count) atspi_accessible_get_child_count = nullptr;
    decltype(&::atspi_accessible_get_component_iface) atspi_accessible_get_component_iface =
        nullptr;
    decltype(&::atspi_accessible_get_name) atspi_accessible_get_name = nullptr;
    decltype(&::atspi_accessible_get_process_id) atspi_accessible_get_process_id = nullptr;
    decltype(&::atspi_accessible_get_role) atspi_accessible_get_role = nullptr;
    decltype(&::atspi_accessible_get_state_set) atspi_accessible_get_state_set = nullptr;
    decltype(&::atspi_accessible_get_text_iface) atspi_accessible_get_text_iface = nullptr;
    decltype(&::atspi_accessible_get_value_iface) atspi_accessible_get_value_iface = nullptr;
    decltype(&::atspi_component_get_extents) atspi_component_get_extents = nullptr;
    decltype(&::atspi_get_desktop) atspi_get_desktop = nullptr;
    decltype(&::atspi_init) atspi_init = nullptr;
    decltype(&::atspi_set_timeout) atspi_set_timeout = nullptr;
    decltype(&::atspi_state_set_contains) atspi_state_set_contains = nullptr;
    decltype(&::atspi_text_get_character_count) atspi_text_get_character_count = nullptr;
    decltype(&::atspi_text_get_text) atspi_text_get_text = nullptr;
    decltype(&::atspi_value_get_current_value) atspi_value_get_current_value = nullptr;
    decltype(&::g_object_unref) g_object_unref = nullptr;
};

// None when libatspi cannot be loaded.
const Libatspi* libatspi() {
    static SharedLibrary library("libatspi.so.0");
    static Libatspi table;
    static const bool found =
        VELMORA_LIBRARY_FUNCTION(library, table, atspi_accessible_get_accessible_id) &&
        VELMORA_LIBRARY_FUNCTION(library, table, atspi_accessible_get_child_at_index) &&
        VELMORA_LIBRARY_FUNCTION(library, table, atspi_accessible_get_child_count) &&
        VELMORA_LIBRARY_FUNCTION(library, table, atspi_accessible_get_component_iface) &&
        VELMORA_LIBRARY_FUNCTION(library, table, atspi_accessible_get_name) &&
        VELMORA_LIBRARY_FUNCTION(library, table, atspi_accessible_get_process_id) &&
        VELMORA_LIBRARY_FUNCTION(library, table, atspi_accessible_get_role) &&
        VELMORA_LIBRARY_FUNCTION(library, table, atspi_accessible_get_state_set) &&
        VELMORA_LIBRARY_FUNCTION(library, table, atspi_accessible_get_text_iface) &&
        VELMORA_LIBRARY_FUNCTION(library, table, atspi_accessible_get_value_iface) &&
        VELMORA_LIBRARY_FUNCTION(library, table, atspi_component_get_extents) &&
        VELMORA_LIBRARY_FUNCTION(library, table, atspi_get_desktop) &&
        VELMORA_LIBRARY_FUNCTION(library, table, atspi_init) &&
        VELMORA_LIBRARY_FUNCTION(library, table, atspi_set_timeout) &&
        VELMORA_LIBRARY_FUNCTION(library, table, atspi_state_set_contains) &&
        VELMORA_LIBRARY_FUNCTION(library, table, atspi_text_get_character_count) &&
        VELMORA_LIBRARY_FUNCTION(library, table, atspi_text_get_text) &&
        VELMORA_LIBRARY_FUNCTION(library, table, atspi_value_get_current_value) &&
        VELMORA_LIBRARY_FUNCTION(library, table, g_object_unref);
    return found ? &table : nullptr;
}

// Every call into libatspi comes after `connected()` has loaded it.
const Libatspi& atspi() {
    return *libatspi();
}

// libatspi keeps process-wide state and is not thread-safe: every call into it,
// releases included, holds this lock.
std::recursive_mutex& atspiMutex() {
    static std::recursive_mutex mutex;
    return mutex;
}

// How long one request to an application may take, in milliseconds. libatspi
// would otherwise allow 15 s to every application it met in the last 15 s (for
// this short-lived agent: all of them), so that one hung application would stall
// a tree walk for minutes.
constexpr gint kRequestTimeoutMs = 2500;
// The time limit libatspi was last given: it holds one for every application.
gint currentTimeoutMs = kRequestTimeoutMs;

// libatspi's time limit is the process's, so it is set before each read to the
// one of the application read.
void useTimeout(gint milliseconds) {
    if (milliseconds != currentTimeoutMs) {
        atspi().atspi_set_timeout(milliseconds, -1);
        currentTimeoutMs = milliseconds;
    }
}

// The bus name of the application an object belongs to; empty when unknown.
std::string busNameOf(AtspiAccessible* object) {
    if (object == nullptr || object->parent.app == nullptr ||
        object->parent.app->bus_name == nullptr) {
        return {};
    }
    return object->parent.app->bus_name;
}

enum class Connection { untried, connected, failed };

// Connects to the accessibility bus once. libatspi cannot retry a failed
// connection, so without DISPLAY (no X11 session to find the bus through) it is
// not even tried, leaving a later attempt possible.
bool connected() {
    static Connection state = Connection::untried;
    if (state == Connection::untried) {
        if (!x11DisplayName()) {
            return false;
        }
        if (libatspi() == nullptr) {
            state = Connection::failed;
            return false;
        }
        quietGLibLogging();
        state = atspi().atspi_init() == 0 ? Connection::connected : Connection::failed;
        if (state == Connection::connected) {
            atspi().atspi_set_timeout(kRequestTimeoutMs, -1);
        }
    }
    return state == Connection::connected;
}

// Handles the bus messages that arrived since the last call (applications that
// appeared or went away), without waiting for more.
void processPendingMessages() {
    for (int i = 0; i < 10000 && g_main_context_iteration(nullptr, FALSE); ++i) {
    }
}

class AtspiElement final : public AccessibleObject {
  public:
    // Takes over a reference to `object`, which may be null: then every read
    // fails with `failure`.
    AtspiElement(AtspiAccessible* object, int32_t failure) : object_(object), failure_(failure) {}
    ~AtspiElement() override {
        if (object_ != nullptr) {
            std::lock_guard lock(atspiMutex());
            atspi().g_object_unref(object_);
        }
    }
    AtspiElement(const AtspiElement&) = delete;
    AtspiElement& operator=(const AtspiElement&) = delete;

    AtspiAccessible* object() const { return object_; }
    int32_t failure() const { return failure_; }

  private:
    AtspiAccessible* object_;
    int32_t failure_;
};

struct ErrorHolder {
    GError* error = nullptr;
    ~ErrorHolder() { g_clear_error(&error); }
    GError** out() {
        g_clear_error(&error);
        return &error;
    }
    bool failed() const { return error != nullptr; }
};

template <typename T>
struct Ref {
    T* object;
    explicit Ref(T* o) : object(o) {}
    ~Ref() {
        if (object != nullptr) {
            atspi().g_object_unref(object);
        }
    }
    Ref(const Ref&) = delete;
    Ref& operator=(const Ref&) = delete;
    explicit operator bool() const { return object != nullptr; }
};

struct StateSet {
    AtspiStateSet* set;
    explicit StateSet(AtspiAccessible* object)
        : set(atspi().atspi_accessible_get_state_set(object)) {}
    ~StateSet() {
        if (set != nullptr) {
            atspi().g_object_unref(set);
        }
    }
    StateSet(const StateSet&) = delete;
    StateSet& operator=(const StateSet&) = delete;
    bool has(AtspiStateType state) const {
        return set != nullptr && atspi().atspi_state_set_contains(set, state) != FALSE;
    }
};

AttributeRead textRead(gchar* text) {
    if (text == nullptr) {
        return AttributeRead::failure(kAXErrorNoValue);
    }
    std::string value(text);
    g_free(text);
    if (value.empty()) {
        return AttributeRead::failure(kAXErrorNoValue);
    }
    return AttributeRead::success(AttributeValue::ofText(std::move(value)));
}

bool hasEditableChild(AtspiAccessible* object) {
    ErrorHolder error;
    gint count = atspi().atspi_accessible_get_child_count(object, error.out());
    for (gint i = 0; !error.failed() && i < count; ++i) {
        Ref<AtspiAccessible> child(
            atspi().atspi_accessible_get_child_at_index(object, i, error.out()));
        if (!child) {
            continue;
        }
        uint32_t role = atspi().atspi_accessible_get_role(child.object, error.out());
        if (!error.failed() && (role == ATSPI_ROLE_TEXT || role == ATSPI_ROLE_ENTRY)) {
            return true;
        }
    }
    return false;
}

AttributeRead readRole(AtspiAccessible* object) {
    ErrorHolder error;
    uint32_t role = atspi().atspi_accessible_get_role(object, error.out());
    if (error.failed()) {
        return AttributeRead::failure(kAXErrorCannotComplete);
    }
    RoleTraits traits;
    if (isTextRole(role)) {
        traits.multiLine = StateSet(object).has(ATSPI_STATE_MULTI_LINE);
    } else if (role == ATSPI_ROLE_COMBO_BOX) {
        traits.editable = StateSet(object).has(ATSPI_STATE_EDITABLE) || hasEditableChild(object);
    }
    return AttributeRead::success(AttributeValue::ofText(macRoleName(role, traits)));
}

bool isCheckable(AtspiAccessible* object, const StateSet& states) {
    if (states.has(ATSPI_STATE_CHECKABLE)) {
        return true;
    }
    ErrorHolder error;
    uint32_t role = atspi().atspi_accessible_get_role(object, error.out());
    if (error.failed()) {
        return false;
    }
    return isCheckableRole(role);
}

AttributeRead readValue(AtspiAccessible* object) {
    ErrorHolder error;
    if (Ref<AtspiValue> value(atspi().atspi_accessible_get_value_iface(object)); value) {
        double current = atspi().atspi_value_get_current_value(value.object, error.out());
        if (error.failed()) {
            return AttributeRead::failure(kAXErrorCannotComplete);
        }
        return AttributeRead::success(AttributeValue::ofNumber(current));
    }
    StateSet states(object);
    if (isCheckable(object, states)) {
        double checked = states.has(ATSPI_STATE_INDETERMINATE)                                ? 2
                         : states.has(ATSPI_STATE_CHECKED) || states.has(ATSPI_STATE_PRESSED) ? 1
                                                                                              : 0;
        return AttributeRead::success(AttributeValue::ofNumber(checked));
    }
    if (Ref<AtspiText> text(atspi().atspi_accessible_get_text_iface(object)); text) {
        gint count = atspi().atspi_text_get_character_count(text.object, error.out());
        if (error.failed()) {
            return AttributeRead::failure(kAXErrorCannotComplete);
        }
        gchar* contents = atspi().atspi_text_get_text(text.object, 0, count, error.out());
        if (error.failed() || contents == nullptr) {
            g_free(contents);
            return AttributeRead::failure(kAXErrorCannotComplete);
        }
        std::string value(contents);
        g_free(contents);
        // An empty text field has the empty text as its value, as on macOS.
        return AttributeRead::success(AttributeValue::ofText(std::move(value)));
    }
    return AttributeRead::failure(kAXErrorNoValue);
}

AttributeRead readExtents(AtspiAccessible* object, bool position) {
    Ref<AtspiComponent> component(atspi().atspi_accessible_get_component_iface(object));
    if (!component) {
        return AttributeRead::failure(kAXErrorAttributeUnsupported);
    }
    ErrorHolder error;
    AtspiRect* extents =
        atspi().atspi_component_get_extents(component.object, ATSPI_COORD_TYPE_SCREEN, error.out());
    if (error.failed() || extents == nullptr) {
        g_free(extents);
        return AttributeRead::failure(kAXErrorCannotComplete);
    }
    // Toolkits place what is not on screen (a closed menu's items) at the
    // smallest coordinate: such an element has no frame.
    if (extents->x == G_MININT32 || extents->y == G_MININT32) {
        g_free(extents);
        return AttributeRead::failure(kAXErrorNoValue);
    }
    AttributeValue value =
        position ? AttributeValue::ofPoint(Point{.x = static_cast<double>(extents->x),
                                                 .y = static_cast<double>(extents->y)})
                 : AttributeValue::ofSize(Size{.width = static_cast<double>(extents->width),
                                               .height = static_cast<double>(extents->height)});
    g_free(extents);
    return AttributeRead::success(std::move(value));
}

// The children from `index` on, at most `maxValues` of them: asked for one index
// at a time, so no others are made.
AttributeRead readChildren(AtspiAccessible* object, int64_t index = 0,
                           int64_t maxValues = G_MAXINT) {
    ErrorHolder error;
    gint count = atspi().atspi_accessible_get_child_count(object, error.out());
    if (error.failed()) {
        return AttributeRead::failure(kAXErrorCannotComplete);
    }
    const gint from = static_cast<gint>(std::clamp<int64_t>(index, 0, count));
    const gint to = from + static_cast<gint>(std::clamp<int64_t>(maxValues, 0, count - from));
    std::vector<AXElement> children;
    for (gint i = from; i < to; ++i) {
        // A child that went away in the meantime is left out.
        AtspiAccessible* child =
            atspi().atspi_accessible_get_child_at_index(object, i, error.out());
        if (child != nullptr) {
            children.push_back(std::make_shared<AtspiElement>(child, kAXErrorCannotComplete));
        }
    }
    return AttributeRead::success(AttributeValue::ofElements(std::move(children)));
}

AttributeRead readWindows(AtspiAccessible* object) {
    ErrorHolder error;
    uint32_t role = atspi().atspi_accessible_get_role(object, error.out());
    if (error.failed()) {
        return AttributeRead::failure(kAXErrorCannotComplete);
    }
    if (role != ATSPI_ROLE_APPLICATION) {
        return AttributeRead::failure(kAXErrorAttributeUnsupported);
    }
    return readChildren(object);
}

}  // namespace

AtspiReads atspiReadsFromEnvironment() {
    const char* sync = std::getenv("VELMORA_ATSPI_SYNC");
    return sync != nullptr && std::strcmp(sync, "1") == 0 ? AtspiReads::oneAtATime
                                                          : AtspiReads::pipelined;
}

AtspiAccessibility::AtspiAccessibility(AtspiReads reads) : reads_(reads) {}

AtspiAccessibility::~AtspiAccessibility() {
    std::lock_guard lock(atspiMutex());
    transport_.reset();
}

AXElement AtspiAccessibility::applicationElement(int32_t processId) {
    std::lock_guard lock(atspiMutex());
    if (reads_ != AtspiReads::oneAtATime) {
        return pipelinedApplicationElement(processId);
    }
    if (!connected()) {
        return std::make_shared<AtspiElement>(nullptr, kAXErrorAPIDisabled);
    }
    processPendingMessages();
    Ref<AtspiAccessible> desktop(atspi().atspi_get_desktop(0));
    ErrorHolder error;
    gint count =
        desktop ? atspi().atspi_accessible_get_child_count(desktop.object, error.out()) : 0;
    for (gint i = 0; !error.failed() && i < count; ++i) {
        AtspiAccessible* application =
            atspi().atspi_accessible_get_child_at_index(desktop.object, i, error.out());
        if (application == nullptr) {
            error.out();  // that application went away; look on
            continue;
        }
        guint owner = atspi().atspi_accessible_get_process_id(application, error.out());
        if (!error.failed() && static_cast<int64_t>(owner) == processId) {
            return std::make_shared<AtspiElement>(application, kAXErrorCannotComplete);
        }
        error.out();
        atspi().g_object_unref(application);
    }
    return std::make_shared<AtspiElement>(nullptr, kAXErrorCannotComplete);
}

AXElement AtspiAccessibility::pipelinedApplicationElement(int32_t processId) {
    // As libatspi does, no bus is looked for without an X11 session to find it through.
    if (!x11DisplayName()) {
        return std::make_shared<AtspiElement>(nullptr, kAXErrorAPIDisabled);
    }
    if (!transport_) {
        transport_ = std::make_shared<DBusAtspiTransport>();
    }
    auto search = transport_->findApplication(processId);
    if (!search.busReached) {
        return std::make_shared<AtspiElement>(nullptr, kAXErrorAPIDisabled);
    }
    if (!search.application) {
        return std::make_shared<AtspiElement>(nullptr, kAXErrorCannotComplete);
    }
    return openAtspiSnapshot(transport_, std::move(*search.application));
}

AttributeRead AtspiAccessibility::copyAttribute(const AXElement& element, const std::string& name) {
    if (const AtspiAddress* application = snapshotApplication(element)) {
        std::lock_guard lock(atspiMutex());
        if (unreachable(*application)) {
            return AttributeRead::failure(kAXErrorCannotComplete);
        }
        return readSnapshotElement(element, name);
    }
    const auto* atspiElement = dynamic_cast<const AtspiElement*>(element.get());
    if (atspiElement == nullptr) {
        return AttributeRead::failure(kAXErrorFailure);
    }
    if (atspiElement->object() == nullptr) {
        return AttributeRead::failure(atspiElement->failure());
    }
    std::lock_guard lock(atspiMutex());
    AtspiAccessible* object = atspiElement->object();
    useTimeout(static_cast<gint>(timeoutOf(object) * 1000));
    if (name == "AXRole") {
        return readRole(object);
    }
    if (name == "AXTitle") {
        ErrorHolder error;
        gchar* title = atspi().atspi_accessible_get_name(object, error.out());
        if (error.failed()) {
            g_free(title);
            return AttributeRead::failure(kAXErrorCannotComplete);
        }
        return textRead(title);
    }
    if (name == "AXIdentifier") {
        ErrorHolder error;
        gchar* identifier = atspi().atspi_accessible_get_accessible_id(object, error.out());
        if (error.failed()) {
            g_free(identifier);
            return AttributeRead::failure(kAXErrorCannotComplete);
        }
        return textRead(identifier);
    }
    if (name == "AXValue") {
        return readValue(object);
    }
    if (name == "AXPosition") {
        return readExtents(object, true);
    }
    if (name == "AXSize") {
        return readExtents(object, false);
    }
    if (name == "AXChildren") {
        return readChildren(object);
    }
    if (name == "AXWindows") {
        return readWindows(object);
    }
    return AttributeRead::failure(kAXErrorAttributeUnsupported);
}

bool AtspiAccessibility::unreachable(const AtspiAddress& application) {
    // The direct connection is asked for with the first read, under the
    // application's time limit: an application that does not answer that
    // question does not answer the read either.
    return reads_ == AtspiReads::pipelinedDirect && transport_->connect(application.busName);
}

double AtspiAccessibility::timeoutOf(AtspiAccessible* object) const {
    auto limit = timeouts_.find(busNameOf(object));
    return limit == timeouts_.end() ? kRequestTimeoutMs / 1000.0 : limit->second;
}

std::vector<AttributeRead> AtspiAccessibility::copyAttributes(
    const AXElement& element, const std::vector<std::string>& names) {
    if (const AtspiAddress* application = snapshotApplication(element)) {
        std::lock_guard lock(atspiMutex());
        if (unreachable(*application)) {
            return std::vector<AttributeRead>(names.size(),
                                              AttributeRead::failure(kAXErrorCannotComplete));
        }
        return readSnapshotElementAttributes(element, names);
    }
    // One call at a time, as one request: once the application has let one read
    // wait out its time limit, it is not asked the rest.
    const auto* atspiElement = dynamic_cast<const AtspiElement*>(element.get());
    const double limit = atspiElement != nullptr ? timeoutOf(atspiElement->object()) : 0;
    std::vector<AttributeRead> reads;
    reads.reserve(names.size());
    bool unanswered = false;
    for (const std::string& name : names) {
        if (unanswered) {
            reads.push_back(AttributeRead::failure(kAXErrorCannotComplete));
            continue;
        }
        const auto started = std::chrono::steady_clock::now();
        reads.push_back(copyAttribute(element, name));
        const double took =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        unanswered = reads.back().code == kAXErrorCannotComplete && took >= limit * 0.9;
    }
    return reads;
}

AttributeRead AtspiAccessibility::copyAttributeValues(const AXElement& element,
                                                      const std::string& name, int64_t index,
                                                      int64_t maxValues) {
    if (const AtspiAddress* application = snapshotApplication(element)) {
        std::lock_guard lock(atspiMutex());
        if (unreachable(*application)) {
            return AttributeRead::failure(kAXErrorCannotComplete);
        }
        return readSnapshotElementSlice(element, name, index, maxValues);
    }
    const auto* atspiElement = dynamic_cast<const AtspiElement*>(element.get());
    if (atspiElement == nullptr) {
        return AttributeRead::failure(kAXErrorFailure);
    }
    if (atspiElement->object() == nullptr) {
        return AttributeRead::failure(atspiElement->failure());
    }
    AttributeRead read;
    {
        std::lock_guard lock(atspiMutex());
        AtspiAccessible* object = atspiElement->object();
        useTimeout(static_cast<gint>(timeoutOf(object) * 1000));
        if (name == "AXChildren") {
            read = readChildren(object, index, maxValues);
        }
    }
    if (name != "AXChildren") {
        read = sliceOfElementList(copyAttribute(element, name), index, maxValues);
    }
    return read;
}

int32_t AtspiAccessibility::setMessagingTimeout(const AXElement& element, double seconds) {
    std::lock_guard lock(atspiMutex());
    std::string busName;
    if (const AtspiAddress* application = snapshotApplication(element)) {
        busName = application->busName;
    } else if (const auto* atspiElement = dynamic_cast<const AtspiElement*>(element.get())) {
        busName = busNameOf(atspiElement->object());
    }
    if (busName.empty()) {
        return kAXErrorFailure;
    }
    if (transport_) {
        transport_->setTimeout(busName, seconds);
    }
    if (seconds > 0) {
        timeouts_[busName] = seconds;
    } else {
        timeouts_.erase(busName);
    }
    return kAXErrorSuccess;
}

bool AtspiAccessibility::isSameElement(const AXElement& a, const AXElement& b) {
    if (isSnapshotElement(a) || isSnapshotElement(b)) {
        return sameSnapshotObject(a, b);
    }
    const auto* first = dynamic_cast<const AtspiElement*>(a.get());
    const auto* second = dynamic_cast<const AtspiElement*>(b.get());
    if (first == nullptr || second == nullptr || first->object() == nullptr ||
        second->object() == nullptr) {
        return false;
    }
    std::lock_guard lock(atspiMutex());
    const std::string busName = busNameOf(first->object());
    return !busName.empty() && busName == busNameOf(second->object()) &&
           first->object()->parent.path != nullptr && second->object()->parent.path != nullptr &&
           std::strcmp(first->object()->parent.path, second->object()->parent.path) == 0;
}

bool AtspiAccessibility::isReachable() {
    std::lock_guard lock(atspiMutex());
    if (!connected()) {
        return false;
    }
    Ref<AtspiAccessible> desktop(atspi().atspi_get_desktop(0));
    if (!desktop) {
        return false;
    }
    ErrorHolder error;
    atspi().atspi_accessible_get_child_count(desktop.object, error.out());
    return !error.failed();
}

}  // namespace velmora::native::freedesktop
