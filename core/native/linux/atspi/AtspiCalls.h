#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The AT-SPI requests that the pipelined reader makes, what comes back, and the
// transport that carries them. One request is one D-Bus method call to the
// application; the transport may have many in flight and answers each exactly
// once, in any order, through the callback given with it.

namespace velmora::native::freedesktop {

// An accessible object: the bus name of its application and its object path.
struct AtspiAddress {
    std::string busName;
    std::string path;

    friend bool operator==(const AtspiAddress&, const AtspiAddress&) = default;
    friend auto operator<=>(const AtspiAddress&, const AtspiAddress&) = default;
};

inline constexpr const char* kAtspiNullPath = "/org/a11y/atspi/null";

inline constexpr const char* kAtspiValueInterface = "org.a11y.atspi.Value";
inline constexpr const char* kAtspiTextInterface = "org.a11y.atspi.Text";
inline constexpr const char* kAtspiComponentInterface = "org.a11y.atspi.Component";

// Of an object's interfaces, those the reader acts on, as bits; the others are
// left out.
using AtspiInterfaces = uint32_t;
inline constexpr AtspiInterfaces kAtspiValue = 1;
inline constexpr AtspiInterfaces kAtspiText = 2;
inline constexpr AtspiInterfaces kAtspiComponent = 4;

// The bit of an interface's name; 0 for the interfaces the reader does not use.
inline AtspiInterfaces interfaceNamed(std::string_view name) {
    return name == kAtspiValueInterface       ? kAtspiValue
           : name == kAtspiTextInterface      ? kAtspiText
           : name == kAtspiComponentInterface ? kAtspiComponent
                                              : 0;
}

// The two 32-bit words of an AT-SPI state set: state n is bit n % 32 of word n / 32.
using AtspiStateBits = std::array<uint32_t, 2>;

inline bool hasState(const AtspiStateBits& states, uint32_t state) {
    return state < 64 && (states[state / 32] & (uint32_t{1} << (state % 32))) != 0;
}

struct AtspiExtents {
    int32_t x = 0;
    int32_t y = 0;
    int32_t width = 0;
    int32_t height = 0;

    friend bool operator==(const AtspiExtents&, const AtspiExtents&) = default;
};

// One object as the application's cache (org.a11y.atspi.Cache GetItems) lists it.
// `indexInParent` and `childCount` are -1 where the application does not say.
struct AtspiCacheItem {
    AtspiAddress object;
    AtspiAddress parent;
    int32_t indexInParent = -1;
    int32_t childCount = -1;
    AtspiInterfaces interfaces = 0;
    std::string name;
    uint32_t role = 0;
    AtspiStateBits states{};
};

// What Properties.GetAll on an object's Accessible interface lists, of what the
// reader uses. Each is absent where the answer does not list it, or lists it
// with another type than the property has.
struct AtspiAccessibleProperties {
    std::optional<std::string> name;
    std::optional<std::string> accessibleId;
    std::optional<int32_t> childCount;
};

enum class AtspiCall {
    role,            // Accessible.GetRole                         -> number
    name,            // Accessible property Name                    -> text
    accessibleId,    // Accessible property AccessibleId            -> text
    properties,      // every Accessible property at once           -> properties
    interfaces,      // Accessible.GetInterfaces                    -> interfaces
    states,          // Accessible.GetState                         -> states
    children,        // Accessible.GetChildren                      -> references
    childCount,      // Accessible property ChildCount              -> integer
    childAtIndex,    // Accessible.GetChildAtIndex(first)           -> references (one)
    extents,         // Component.GetExtents(screen)                -> extents
    currentValue,    // Value property CurrentValue                 -> real
    characterCount,  // Text property CharacterCount                -> integer
    text,            // Text.GetText(first, second)                 -> text
    cacheItems,      // Cache.GetItems on the cache object          -> items
    toolkitName,     // Application property ToolkitName            -> text
    processId,       // the bus's GetConnectionUnixProcessID(bus name) -> number
};
inline constexpr int kAtspiCallCount = static_cast<int>(AtspiCall::processId) + 1;

struct AtspiRequest {
    AtspiCall call = AtspiCall::role;
    AtspiAddress target;  // for cacheItems only the bus name counts
    int32_t first = 0;
    int32_t second = 0;
};

// An answer. `ok` is false for an error reply, a reply of another type than the
// call returns, an application that went away and a request that timed out;
// then no other field is meaningful.
struct AtspiReply {
    bool ok = false;
    bool unanswered = false;  // a failure because no answer came (in time)
    uint32_t number = 0;
    int32_t integer = 0;
    double real = 0;
    std::string text;
    AtspiInterfaces interfaces = 0;
    AtspiStateBits states{};
    AtspiExtents extents;
    std::vector<AtspiAddress> references;  // in order, null references included
    std::vector<AtspiCacheItem> items;
    AtspiAccessibleProperties properties;

    static AtspiReply failure() { return {}; }
    static AtspiReply noAnswer() {
        AtspiReply reply;
        reply.unanswered = true;
        return reply;
    }
};

using AtspiReplyHandler = std::function<void(const AtspiReply& reply)>;

class AtspiTransport {
  public:
    virtual ~AtspiTransport() = default;

    // Sends a request, or queues it to be sent; `handler` is called once with its
    // answer from inside a later pump() (never from inside send()).
    virtual void send(const AtspiRequest& request, AtspiReplyHandler handler) = 0;
    // Sends what is queued and calls the handlers of the answers that have come.
    // With `wait`, and requests outstanding, blocks until at least one handler has
    // been called (a request that times out is answered with a failure). Whether
    // any handler was called.
    virtual bool pump(bool wait) = 0;
};

}  // namespace velmora::native::freedesktop
