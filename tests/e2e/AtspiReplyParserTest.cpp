// What the pipelined reader takes from an application's answers, against
// answers that libdbus writes as the applications' bridges do.

#include <gtest/gtest.h>

#include <dbus/dbus.h>

#include <functional>

#include "core/native/linux/atspi/AtspiReplyParser.h"
#include "tests/e2e/MarshalledMessages.h"

namespace velmora::native::freedesktop {
namespace {

// One {sv} entry of a property list, its value written by `value` in a variant
// of `type`.
void appendProperty(DBusMessageIter* dict, const char* key, const char* type,
                    const std::function<void(DBusMessageIter*)>& value) {
    DBusMessageIter entry;
    DBusMessageIter variant;
    dbus_message_iter_open_container(dict, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
    dbus_message_iter_append_basic(&entry, DBUS_TYPE_STRING, &key);
    dbus_message_iter_open_container(&entry, DBUS_TYPE_VARIANT, type, &variant);
    value(&variant);
    dbus_message_iter_close_container(&entry, &variant);
    dbus_message_iter_close_container(dict, &entry);
}

std::function<void(DBusMessageIter*)> text(const char* value) {
    return [value](DBusMessageIter* iter) {
        dbus_message_iter_append_basic(iter, DBUS_TYPE_STRING, &value);
    };
}

std::function<void(DBusMessageIter*)> integer(dbus_int32_t value) {
    return [value](DBusMessageIter* iter) {
        dbus_message_iter_append_basic(iter, DBUS_TYPE_INT32, &value);
    };
}

// Properties.GetAll's answer: the entries `fill` writes.
AtspiReply properties(const std::function<void(DBusMessageIter*)>& fill) {
    const std::string bytes = methodReturn([&](DBusMessageIter* iter) {
        DBusMessageIter dict;
        dbus_message_iter_open_container(iter, DBUS_TYPE_ARRAY, "{sv}", &dict);
        fill(&dict);
        dbus_message_iter_close_container(iter, &dict);
    });
    auto message = readDBusMessage(bytes);
    EXPECT_TRUE(message);
    return message ? parseAtspiReply(AtspiCall::properties, *message) : AtspiReply::failure();
}

TEST(AtspiReplyParserTest, PropertiesAreTakenFromEverythingTheBridgeLists) {
    // As ATK's bridge lists an object's Accessible properties, with those the
    // reader does not use in between.
    const AtspiReply reply = properties([](DBusMessageIter* dict) {
        appendProperty(dict, "Parent", "(so)", [](DBusMessageIter* variant) {
            DBusMessageIter parent;
            const char* bus = ":1.4";
            const char* path = "/org/a11y/atspi/accessible/24";
            dbus_message_iter_open_container(variant, DBUS_TYPE_STRUCT, nullptr, &parent);
            dbus_message_iter_append_basic(&parent, DBUS_TYPE_STRING, &bus);
            dbus_message_iter_append_basic(&parent, DBUS_TYPE_OBJECT_PATH, &path);
            dbus_message_iter_close_container(variant, &parent);
        });
        appendProperty(dict, "Name", "s", text("Functions"));
        appendProperty(dict, "Description", "s", text(""));
        appendProperty(dict, "Attributes", "a{ss}", [](DBusMessageIter* variant) {
            DBusMessageIter attributes;
            dbus_message_iter_open_container(variant, DBUS_TYPE_ARRAY, "{ss}", &attributes);
            const char* pairs[][2] = {{"toolkit", "gtk"}, {"display", "inline-block"}};
            for (const auto& pair : pairs) {
                DBusMessageIter entry;
                dbus_message_iter_open_container(&attributes, DBUS_TYPE_DICT_ENTRY, nullptr,
                                                 &entry);
                dbus_message_iter_append_basic(&entry, DBUS_TYPE_STRING, &pair[0]);
                dbus_message_iter_append_basic(&entry, DBUS_TYPE_STRING, &pair[1]);
                dbus_message_iter_close_container(&attributes, &entry);
            }
            dbus_message_iter_close_container(variant, &attributes);
        });
        appendProperty(dict, "ChildCount", "i", integer(3));
        appendProperty(dict, "Locale", "s", text("C.UTF-8"));
        appendProperty(dict, "AccessibleId", "s", text("fn-box"));
        appendProperty(dict, "HelpText", "s", text("Shows the functions"));
    });
    ASSERT_TRUE(reply.ok);
    EXPECT_EQ(reply.properties.name, "Functions");
    EXPECT_EQ(reply.properties.accessibleId, "fn-box");
    EXPECT_EQ(reply.properties.childCount, 3);
}

TEST(AtspiReplyParserTest, APropertyLeftOutOrOfAnotherTypeIsAbsent) {
    const AtspiReply reply = properties([](DBusMessageIter* dict) {
        appendProperty(dict, "Name", "i", integer(7));
        appendProperty(dict, "ChildCount", "s", text("3"));
    });
    ASSERT_TRUE(reply.ok);
    EXPECT_FALSE(reply.properties.name);
    EXPECT_FALSE(reply.properties.accessibleId);
    EXPECT_FALSE(reply.properties.childCount);
    EXPECT_TRUE(properties([](DBusMessageIter*) {}).ok);
}

TEST(AtspiReplyParserTest, APropertyListedTwiceMakesTheAnswerMalformed) {
    EXPECT_FALSE(properties([](DBusMessageIter* dict) {
                     appendProperty(dict, "Name", "s", text("One"));
                     appendProperty(dict, "Name", "s", text("Two"));
                 }).ok);
    EXPECT_FALSE(properties([](DBusMessageIter* dict) {
                     appendProperty(dict, "ChildCount", "i", integer(1));
                     appendProperty(dict, "ChildCount", "i", integer(2));
                 }).ok);
}

TEST(AtspiReplyParserTest, AnAnswerWithAFileDescriptorIsRefusedAsAWhole) {
    // A property the reader cannot pass over (a Unix file descriptor, which
    // only comes with its message) fails the answer: the reader then asks for
    // each property alone.
    const std::string bytes = methodReturn([](DBusMessageIter* iter) {
        DBusMessageIter dict;
        dbus_message_iter_open_container(iter, DBUS_TYPE_ARRAY, "{sv}", &dict);
        appendProperty(&dict, "Name", "s", text("Kept"));
        dbus_message_iter_close_container(iter, &dict);
    });
    auto message = readDBusMessage(bytes);
    ASSERT_TRUE(message);
    EXPECT_TRUE(parseAtspiReply(AtspiCall::properties, *message).ok);
    // The same answer with its one entry's variant type changed to "h".
    std::string withDescriptor = bytes;
    const size_t at = withDescriptor.rfind(std::string("\x01s\x00", 3));
    ASSERT_NE(at, std::string::npos);
    withDescriptor[at + 1] = 'h';
    auto changed = readDBusMessage(withDescriptor);
    ASSERT_TRUE(changed);
    EXPECT_FALSE(parseAtspiReply(AtspiCall::properties, *changed).ok);
}

TEST(AtspiReplyParserTest, AnotherSignatureIsNoAnswer) {
    const std::string bytes = methodReturn([](DBusMessageIter* iter) {
        const char* value = "Name";
        dbus_message_iter_append_basic(iter, DBUS_TYPE_STRING, &value);
    });
    auto message = readDBusMessage(bytes);
    ASSERT_TRUE(message);
    EXPECT_FALSE(parseAtspiReply(AtspiCall::properties, *message).ok);
}

}  // namespace
}  // namespace velmora::native::freedesktop
