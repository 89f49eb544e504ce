#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The wire form of a D-Bus method call, written straight into a buffer.
//
// The pipelined reader sends thousands of small, fixed-shape calls per tree walk;
// building each as a libdbus message and marshalling it costs several
// microseconds, writing the bytes a fraction of that. Only what those calls need
// is supported: a little-endian method call with a path, an interface, a member,
// an optional destination, and a body of strings, 32-bit integers or unsigned
// integers. The caller gives valid names (they are not checked here); libdbus,
// which reads the answers, checks what comes back.

namespace velmora::native::freedesktop {

struct DBusArgument {
    enum class Type { string, int32, uint32 };
    Type type = Type::string;
    std::string_view text;
    uint32_t bits = 0;  // int32 values as their two's complement

    static DBusArgument ofString(std::string_view text) { return {Type::string, text, 0}; }
    static DBusArgument ofInt32(int32_t value) {
        return {Type::int32, {}, static_cast<uint32_t>(value)};
    }
    static DBusArgument ofUint32(uint32_t value) { return {Type::uint32, {}, value}; }
};

struct DBusMethodCall {
    uint32_t serial = 0;
    std::string_view destination{};  // empty: none (a direct connection)
    std::string_view path{};
    std::string_view interface {};
    std::string_view member{};
    std::vector<DBusArgument> arguments{};
};

// Appends the marshalled call to `out`.
void appendMethodCall(std::string& out, const DBusMethodCall& call);

}  // namespace velmora::native::freedesktop
