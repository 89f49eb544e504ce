// The method calls the pipelined reader writes itself, read back by libdbus: a
// call libdbus does not accept, or reads differently, fails here.

#include <gtest/gtest.h>

#include <dbus/dbus.h>

#include <cstring>

#include "core/native/linux/atspi/DBusMethodCall.h"

namespace velmora::native::freedesktop {
namespace {

// libdbus's reading of the marshalled bytes, or null when it refuses them.
DBusMessage* readBack(const std::string& bytes) {
    EXPECT_EQ(dbus_message_demarshal_bytes_needed(bytes.data(), static_cast<int>(bytes.size())),
              static_cast<int>(bytes.size()));
    DBusError error;
    dbus_error_init(&error);
    DBusMessage* message =
        dbus_message_demarshal(bytes.data(), static_cast<int>(bytes.size()), &error);
    EXPECT_FALSE(dbus_error_is_set(&error)) << error.message;
    dbus_error_free(&error);
    return message;
}

std::string text(const char* value) {
    return value == nullptr ? std::string("(null)") : std::string(value);
}

TEST(DBusMethodCallTest, ACallWithoutArgumentsOrDestination) {
    std::string bytes;
    appendMethodCall(bytes, {.serial = 7,
                             .path = "/org/a11y/atspi/accessible/12",
                             .interface = "org.a11y.atspi.Accessible",
                             .member = "GetRole"});
    DBusMessage* message = readBack(bytes);
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(dbus_message_get_type(message), DBUS_MESSAGE_TYPE_METHOD_CALL);
    EXPECT_EQ(dbus_message_get_serial(message), 7u);
    EXPECT_EQ(text(dbus_message_get_path(message)), "/org/a11y/atspi/accessible/12");
    EXPECT_EQ(text(dbus_message_get_interface(message)), "org.a11y.atspi.Accessible");
    EXPECT_EQ(text(dbus_message_get_member(message)), "GetRole");
    EXPECT_EQ(dbus_message_get_destination(message), nullptr);
    EXPECT_EQ(text(dbus_message_get_signature(message)), "");
    EXPECT_FALSE(dbus_message_get_no_reply(message));
    dbus_message_unref(message);
}

TEST(DBusMethodCallTest, StringArgumentsAndADestination) {
    std::string bytes;
    appendMethodCall(bytes, {.serial = 1u << 30,
                             .destination = ":1.42",
                             .path = "/org/a11y/atspi/accessible/root",
                             .interface = "org.freedesktop.DBus.Properties",
                             .member = "Get",
                             .arguments = {DBusArgument::ofString("org.a11y.atspi.Accessible"),
                                           DBusArgument::ofString("AccessibleId")}});
    DBusMessage* message = readBack(bytes);
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(dbus_message_get_serial(message), 1u << 30);
    EXPECT_EQ(text(dbus_message_get_destination(message)), ":1.42");
    EXPECT_EQ(text(dbus_message_get_signature(message)), "ss");
    const char* interface = nullptr;
    const char* property = nullptr;
    ASSERT_TRUE(dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &interface,
                                      DBUS_TYPE_STRING, &property, DBUS_TYPE_INVALID));
    EXPECT_EQ(text(interface), "org.a11y.atspi.Accessible");
    EXPECT_EQ(text(property), "AccessibleId");
    dbus_message_unref(message);
}

TEST(DBusMethodCallTest, IntegerArgumentsKeepTheirSigns) {
    std::string bytes;
    appendMethodCall(bytes, {.serial = 3,
                             .path = "/p",
                             .interface = "org.a11y.atspi.Text",
                             .member = "GetText",
                             .arguments = {DBusArgument::ofInt32(0), DBusArgument::ofInt32(-1)}});
    appendMethodCall(bytes, {.serial = 4,
                             .path = "/q",
                             .interface = "org.a11y.atspi.Component",
                             .member = "GetExtents",
                             .arguments = {DBusArgument::ofUint32(4000000000u)}});
    // Two calls one after the other, each read on its own.
    const int first =
        dbus_message_demarshal_bytes_needed(bytes.data(), static_cast<int>(bytes.size()));
    ASSERT_GT(first, 0);
    DBusMessage* text = readBack(bytes.substr(0, first));
    DBusMessage* extents = readBack(bytes.substr(first));
    ASSERT_NE(text, nullptr);
    ASSERT_NE(extents, nullptr);
    dbus_int32_t start = 7;
    dbus_int32_t end = 7;
    ASSERT_TRUE(dbus_message_get_args(text, nullptr, DBUS_TYPE_INT32, &start, DBUS_TYPE_INT32, &end,
                                      DBUS_TYPE_INVALID));
    EXPECT_EQ(start, 0);
    EXPECT_EQ(end, -1);
    dbus_uint32_t coordinates = 0;
    ASSERT_TRUE(
        dbus_message_get_args(extents, nullptr, DBUS_TYPE_UINT32, &coordinates, DBUS_TYPE_INVALID));
    EXPECT_EQ(coordinates, 4000000000u);
    EXPECT_EQ(dbus_message_get_serial(extents), 4u);
    dbus_message_unref(text);
    dbus_message_unref(extents);
}

TEST(DBusMethodCallTest, LongNamesAndOddLengthsStayAligned) {
    // Lengths that leave every possible remainder before the next alignment.
    for (size_t length = 1; length <= 17; ++length) {
        std::string path(length + 1, 'a');
        path[0] = '/';
        const std::string member(length, 'M');
        const std::string argument(length, 'x');
        std::string bytes = "prefix";  // appended after other bytes, as in a batch
        appendMethodCall(
            bytes, {.serial = static_cast<uint32_t>(length),
                    .destination = "org.example.Name",
                    .path = path,
                    .interface = "org.example.Interface",
                    .member = member,
                    .arguments = {DBusArgument::ofString(argument), DBusArgument::ofUint32(9)}});
        DBusMessage* message = readBack(bytes.substr(6));
        ASSERT_NE(message, nullptr) << length;
        const char* read = nullptr;
        dbus_uint32_t nine = 0;
        ASSERT_TRUE(dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &read,
                                          DBUS_TYPE_UINT32, &nine, DBUS_TYPE_INVALID));
        EXPECT_EQ(text(read), argument);
        EXPECT_EQ(nine, 9u);
        EXPECT_EQ(text(dbus_message_get_member(message)), member);
        dbus_message_unref(message);
    }
}

}  // namespace
}  // namespace velmora::native::freedesktop
