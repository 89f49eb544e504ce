// The pipelined reader's own reading of D-Bus answers, against messages that
// libdbus writes, and against malformed ones it must refuse.

#include <gtest/gtest.h>

#include <dbus/dbus.h>

#include <functional>

#include "core/native/linux/atspi/DBusMessageReader.h"
#include "tests/e2e/MarshalledMessages.h"

namespace velmora::native::freedesktop {
namespace {

void appendString(DBusMessageIter* iter, const char* text) {
    dbus_message_iter_append_basic(iter, DBUS_TYPE_STRING, &text);
}

TEST(DBusMessageReaderTest, LengthIsKnownFromTheFixedHeader) {
    const std::string message =
        methodReturn([](DBusMessageIter* iter) { appendString(iter, "x"); });
    EXPECT_EQ(dbusMessageLength(message), static_cast<int64_t>(message.size()));
    EXPECT_EQ(dbusMessageLength(std::string_view(message).substr(0, 15)), 0);
    EXPECT_EQ(dbusMessageLength(std::string_view(message).substr(0, 16)),
              static_cast<int64_t>(message.size()));
    EXPECT_EQ(dbusMessageLength(message + "trailing"), static_cast<int64_t>(message.size()));
    std::string wrongEndianness = message;
    wrongEndianness[0] = 'x';
    EXPECT_EQ(dbusMessageLength(wrongEndianness), -1);
    std::string wrongVersion = message;
    wrongVersion[3] = 2;
    EXPECT_EQ(dbusMessageLength(wrongVersion), -1);
}

TEST(DBusMessageReaderTest, AReturnIsRoutedByItsReplySerial) {
    const std::string bytes = methodReturn([](DBusMessageIter* iter) {
        dbus_uint32_t role = 29;
        dbus_message_iter_append_basic(iter, DBUS_TYPE_UINT32, &role);
    });
    auto message = readDBusMessage(bytes);
    ASSERT_TRUE(message);
    EXPECT_EQ(message->type, DBusMessageView::methodReturn);
    EXPECT_EQ(message->replySerial, 41u);
    EXPECT_EQ(message->signature, "u");
    DBusBodyReader reader(message->body, message->bigEndian);
    uint32_t role = 0;
    ASSERT_TRUE(reader.uint32(role));
    EXPECT_EQ(role, 29u);
    EXPECT_TRUE(reader.atEnd());
}

TEST(DBusMessageReaderTest, VariantsStringsAndNumbers) {
    const std::string bytes = methodReturn([](DBusMessageIter* iter) {
        DBusMessageIter variant;
        dbus_message_iter_open_container(iter, DBUS_TYPE_VARIANT, "d", &variant);
        double value = -12.75;
        dbus_message_iter_append_basic(&variant, DBUS_TYPE_DOUBLE, &value);
        dbus_message_iter_close_container(iter, &variant);
        appendString(iter, "Grüße 😀");
        dbus_int32_t negative = -5;
        dbus_message_iter_append_basic(iter, DBUS_TYPE_INT32, &negative);
        const char* path = "/org/a11y/atspi/accessible/7";
        dbus_message_iter_append_basic(iter, DBUS_TYPE_OBJECT_PATH, &path);
    });
    auto message = readDBusMessage(bytes);
    ASSERT_TRUE(message);
    EXPECT_EQ(message->signature, "vsio");
    DBusBodyReader reader(message->body, message->bigEndian);
    std::string_view type;
    double value = 0;
    std::string_view text;
    int32_t negative = 0;
    std::string_view path;
    ASSERT_TRUE(reader.beginVariant(type));
    EXPECT_EQ(type, "d");
    ASSERT_TRUE(reader.float64(value));
    EXPECT_EQ(value, -12.75);
    ASSERT_TRUE(reader.string(text));
    EXPECT_EQ(text, "Grüße 😀");
    ASSERT_TRUE(reader.int32(negative));
    EXPECT_EQ(negative, -5);
    ASSERT_TRUE(reader.objectPath(path));
    EXPECT_EQ(path, "/org/a11y/atspi/accessible/7");
    EXPECT_TRUE(reader.atEnd());
}

TEST(DBusMessageReaderTest, ArraysOfStructsIncludingEmptyOnes) {
    const std::string bytes = methodReturn([](DBusMessageIter* iter) {
        DBusMessageIter array;
        dbus_message_iter_open_container(iter, DBUS_TYPE_ARRAY, "(so)", &array);
        for (const char* path : {"/a", "/org/a11y/atspi/null"}) {
            DBusMessageIter reference;
            dbus_message_iter_open_container(&array, DBUS_TYPE_STRUCT, nullptr, &reference);
            appendString(&reference, ":1.9");
            dbus_message_iter_append_basic(&reference, DBUS_TYPE_OBJECT_PATH, &path);
            dbus_message_iter_close_container(&array, &reference);
        }
        dbus_message_iter_close_container(iter, &array);
        DBusMessageIter empty;
        dbus_message_iter_open_container(iter, DBUS_TYPE_ARRAY, "(so)", &empty);
        dbus_message_iter_close_container(iter, &empty);
        dbus_uint32_t after = 7;
        dbus_message_iter_append_basic(iter, DBUS_TYPE_UINT32, &after);
    });
    auto message = readDBusMessage(bytes);
    ASSERT_TRUE(message);
    DBusBodyReader reader(message->body, message->bigEndian);
    std::vector<std::string> paths;
    for (int array = 0; array < 2; ++array) {
        size_t end = 0;
        ASSERT_TRUE(reader.beginArray(8, end));
        while (reader.more(end)) {
            std::string_view name;
            std::string_view path;
            ASSERT_TRUE(reader.beginStruct() && reader.string(name) && reader.objectPath(path));
            EXPECT_EQ(name, ":1.9");
            paths.emplace_back(path);
        }
    }
    uint32_t after = 0;
    ASSERT_TRUE(reader.uint32(after));
    EXPECT_EQ(after, 7u);
    EXPECT_TRUE(reader.atEnd());
    EXPECT_EQ(paths, (std::vector<std::string>{"/a", "/org/a11y/atspi/null"}));
}

TEST(DBusMessageReaderTest, ValuesOfAnyTypeArePassedOver) {
    const std::string bytes = methodReturn([](DBusMessageIter* iter) {
        // a{sv} holding a variant of a variant, then (ybnqxtdg), then as.
        DBusMessageIter dict;
        dbus_message_iter_open_container(iter, DBUS_TYPE_ARRAY, "{sv}", &dict);
        DBusMessageIter entry;
        dbus_message_iter_open_container(&dict, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
        appendString(&entry, "nested");
        DBusMessageIter outer;
        dbus_message_iter_open_container(&entry, DBUS_TYPE_VARIANT, "v", &outer);
        DBusMessageIter inner;
        dbus_message_iter_open_container(&outer, DBUS_TYPE_VARIANT, "x", &inner);
        dbus_int64_t big = -1;
        dbus_message_iter_append_basic(&inner, DBUS_TYPE_INT64, &big);
        dbus_message_iter_close_container(&outer, &inner);
        dbus_message_iter_close_container(&entry, &outer);
        dbus_message_iter_close_container(&dict, &entry);
        dbus_message_iter_close_container(iter, &dict);

        DBusMessageIter fields;
        dbus_message_iter_open_container(iter, DBUS_TYPE_STRUCT, nullptr, &fields);
        unsigned char byte = 9;
        dbus_bool_t flag = TRUE;
        dbus_int16_t shortNumber = -3;
        dbus_uint16_t unsignedShort = 3;
        dbus_int64_t longNumber = 1;
        dbus_uint64_t unsignedLong = 2;
        double real = 0.5;
        const char* signature = "a(so)";
        dbus_message_iter_append_basic(&fields, DBUS_TYPE_BYTE, &byte);
        dbus_message_iter_append_basic(&fields, DBUS_TYPE_BOOLEAN, &flag);
        dbus_message_iter_append_basic(&fields, DBUS_TYPE_INT16, &shortNumber);
        dbus_message_iter_append_basic(&fields, DBUS_TYPE_UINT16, &unsignedShort);
        dbus_message_iter_append_basic(&fields, DBUS_TYPE_INT64, &longNumber);
        dbus_message_iter_append_basic(&fields, DBUS_TYPE_UINT64, &unsignedLong);
        dbus_message_iter_append_basic(&fields, DBUS_TYPE_DOUBLE, &real);
        dbus_message_iter_append_basic(&fields, DBUS_TYPE_SIGNATURE, &signature);
        dbus_message_iter_close_container(iter, &fields);

        DBusMessageIter names;
        dbus_message_iter_open_container(iter, DBUS_TYPE_ARRAY, "s", &names);
        appendString(&names, "one");
        appendString(&names, "two");
        dbus_message_iter_close_container(iter, &names);
        dbus_uint32_t after = 7;
        dbus_message_iter_append_basic(iter, DBUS_TYPE_UINT32, &after);
    });
    auto message = readDBusMessage(bytes);
    ASSERT_TRUE(message);
    EXPECT_EQ(message->signature, "a{sv}(ybnqxtdg)asu");
    DBusBodyReader reader(message->body, message->bigEndian);
    ASSERT_TRUE(reader.skip("a{sv}"));
    ASSERT_TRUE(reader.skip("(ybnqxtdg)"));
    ASSERT_TRUE(reader.skip("as"));
    uint32_t after = 0;
    ASSERT_TRUE(reader.uint32(after));
    EXPECT_EQ(after, 7u);
    EXPECT_TRUE(reader.atEnd());
}

TEST(DBusMessageReaderTest, PassingOverChecksTheTypeAndTheValue) {
    const std::string bytes = methodReturn([](DBusMessageIter* iter) {
        dbus_uint32_t two = 2;
        dbus_message_iter_append_basic(iter, DBUS_TYPE_UINT32, &two);
    });
    auto message = readDBusMessage(bytes);
    ASSERT_TRUE(message);
    // Only a single complete type can be passed over.
    for (std::string_view type :
         {"", "uu", "a", "(", "()", "(u", "a{vs}", "{su}", "a{s}", "a{suu}", "z", "h"}) {
        DBusBodyReader reader(message->body, message->bigEndian);
        EXPECT_FALSE(reader.skip(type)) << type;
        EXPECT_FALSE(reader.ok()) << type;
    }
    // 2 is no boolean; as a number it is fine.
    DBusBodyReader asBoolean(message->body, message->bigEndian);
    EXPECT_FALSE(asBoolean.skip("b"));
    DBusBodyReader asNumber(message->body, message->bigEndian);
    EXPECT_TRUE(asNumber.skip("u"));
    EXPECT_TRUE(asNumber.atEnd());
    // Containers nested deeper than D-Bus allows are refused unread.
    DBusBodyReader deep(message->body, message->bigEndian);
    EXPECT_FALSE(deep.skip(std::string(40, 'a') + "u"));
}

TEST(DBusMessageReaderTest, ErrorsAndSignalsAreReadToo) {
    DBusMessage* call = dbus_message_new_method_call(":1.1", "/p", "org.example.I", "M");
    dbus_message_set_serial(call, 77);
    DBusMessage* error = dbus_message_new_error(call, "org.example.Error.Failed", "no");
    dbus_message_set_serial(error, 3);
    char* bytes = nullptr;
    int length = 0;
    ASSERT_TRUE(dbus_message_marshal(error, &bytes, &length));
    auto read = readDBusMessage(std::string_view(bytes, static_cast<size_t>(length)));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->type, DBusMessageView::error);
    EXPECT_EQ(read->replySerial, 77u);
    dbus_free(bytes);
    dbus_message_unref(error);
    dbus_message_unref(call);

    DBusMessage* signal = dbus_message_new_signal("/org/a11y/atspi/accessible/root",
                                                  "org.a11y.atspi.Event.Object", "StateChanged");
    dbus_message_set_serial(signal, 9);
    ASSERT_TRUE(dbus_message_marshal(signal, &bytes, &length));
    read = readDBusMessage(std::string_view(bytes, static_cast<size_t>(length)));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->type, DBusMessageView::signal);
    EXPECT_FALSE(read->replySerial);
    dbus_free(bytes);
    dbus_message_unref(signal);
}

TEST(DBusMessageReaderTest, BigEndianMessages) {
    // A method return answering serial 0x01020304 with the body (u) 0x0A0B0C0D, by hand.
    std::string bytes = {'B', 2, 0, 1, 0, 0, 0, 4, 0, 0, 0, 1, 0, 0, 0, 0};
    std::string fields;
    fields += std::string{5, 1, 'u', 0, 1, 2, 3, 4};  // reply serial
    fields += std::string{8, 1, 'g', 0, 1, 'u', 0};   // signature "u"
    bytes[15] = static_cast<char>(fields.size());     // up to the end of the last field
    fields += std::string(1, '\0');                   // then padding to the body
    bytes += fields;
    bytes += std::string{0x0A, 0x0B, 0x0C, 0x0D};
    auto message = readDBusMessage(bytes);
    ASSERT_TRUE(message);
    EXPECT_TRUE(message->bigEndian);
    EXPECT_EQ(message->replySerial, 0x01020304u);
    DBusBodyReader reader(message->body, true);
    uint32_t value = 0;
    ASSERT_TRUE(reader.uint32(value));
    EXPECT_EQ(value, 0x0A0B0C0Du);
}

TEST(DBusMessageReaderTest, MalformedMessagesAreRefused) {
    const std::string good = methodReturn([](DBusMessageIter* iter) { appendString(iter, "ok"); });
    ASSERT_TRUE(readDBusMessage(good));
    // Not the length its header says.
    EXPECT_FALSE(readDBusMessage(good.substr(0, good.size() - 1)));
    EXPECT_FALSE(readDBusMessage(good + "x"));
    // A header field array running past the header.
    std::string longFields = good;
    longFields[12] = static_cast<char>(longFields[12] + 8);
    EXPECT_FALSE(readDBusMessage(longFields.substr(
        0, static_cast<size_t>(std::max<int64_t>(0, dbusMessageLength(longFields))))));
    // A return without the serial it answers.
    std::string noSerial = good;
    const size_t serialField = noSerial.find(std::string{5, 1, 'u', 0});
    ASSERT_NE(serialField, std::string::npos);
    noSerial[serialField] = 1;  // now a "path" field of type u, which no path has
    EXPECT_FALSE(readDBusMessage(noSerial));
}

TEST(DBusMessageReaderTest, BodiesAreCheckedAsTheyAreRead) {
    // A string whose length runs past the body.
    std::string body = {5, 0, 0, 0, 'a', 'b', 0};
    DBusBodyReader tooLong(body, false);
    std::string_view text;
    EXPECT_FALSE(tooLong.string(text));
    EXPECT_FALSE(tooLong.ok());
    // A string without its nul, and one with a nul inside.
    std::string unterminated = {2, 0, 0, 0, 'a', 'b', 'c'};
    EXPECT_FALSE(DBusBodyReader(unterminated, false).string(text));
    std::string embedded = {3, 0, 0, 0, 'a', 0, 'c', 0};
    EXPECT_FALSE(DBusBodyReader(embedded, false).string(text));
    // Invalid UTF-8 (an overlong slash).
    std::string overlong = {2, 0, 0, 0, '\xC0', '\xAF', 0};
    EXPECT_FALSE(DBusBodyReader(overlong, false).string(text));
    // An object path that is not one.
    std::string badPath = {4, 0, 0, 0, '/', 'a', '/', '/', 0};
    EXPECT_FALSE(DBusBodyReader(badPath, false).objectPath(text));
    // Non-zero padding before an aligned value.
    std::string padding = {'x', 1, 0, 0, 0, 0, 0, 0, 42, 0, 0, 0};
    DBusBodyReader padded(padding, false);
    uint8_t first = 0;
    uint32_t second = 0;
    ASSERT_TRUE(padded.byte(first));
    EXPECT_FALSE(padded.uint32(second));
    // A read past the end leaves the reader failed for good.
    DBusBodyReader empty(std::string_view(), false);
    EXPECT_FALSE(empty.uint32(second));
    EXPECT_FALSE(empty.ok());
    EXPECT_FALSE(empty.atEnd());
}

TEST(DBusMessageReaderTest, AnElementThatRunsPastItsArraysEndIsRefused) {
    // Found by the AT-SPI reply fuzzer: an array of strings whose length ends in
    // the middle of its last string. libdbus refuses such a body; read element by
    // element, the last string used to be taken whole and the array accepted.
    std::string body;
    auto put32 = [&](uint32_t value) {
        for (int i = 0; i < 4; ++i) {
            body += static_cast<char>((value >> (8 * i)) & 0xff);
        }
    };
    put32(7);  // the array: one "abc" string (4 + 3 + 1 bytes), cut 1 byte short
    put32(3);
    body += std::string("abc\0", 4);
    DBusBodyReader reader(body, false);
    size_t end = 0;
    ASSERT_TRUE(reader.beginArray(4, end));
    ASSERT_TRUE(reader.more(end));
    std::string_view text;
    EXPECT_TRUE(reader.string(text));  // in bounds of the body, past the array
    EXPECT_FALSE(reader.more(end));
    EXPECT_FALSE(reader.ok());
    EXPECT_FALSE(reader.atEnd());

    // Ending exactly at the array's end is fine.
    std::string exact = body;
    exact[0] = 8;
    DBusBodyReader whole(exact, false);
    ASSERT_TRUE(whole.beginArray(4, end));
    while (whole.more(end)) {
        ASSERT_TRUE(whole.string(text));
    }
    EXPECT_TRUE(whole.atEnd());
}

TEST(DBusMessageReaderTest, ABodyWithAnEmptySignatureIsRefused) {
    // Found by the AT-SPI reply fuzzer: a method return whose signature field
    // holds the empty signature, followed by a 55-byte body - a body of no type,
    // which was read as a message all the same.
    const std::string found(
        "\x6c\x02\x01\x01\x37\x00\x00\x00\x72\x01\x00\x00\x35\x00\x00\x00"
        "\x06\x01\x73\x00\x04\x00\x00\x00\x3a\x31\x2e\x32\x00\x00\x00\x00"
        "\x05\x01\x75\x00\x8a\x01\x00\x00\x05\x01\x75\x00\x8a\x01\x00\x00"
        "\x08\x01\x67\x00\x00\x00\x00\x00\x07\x01\x73\x00\x04\x00\x00\x00"
        "\x3a\x32\x2e\x33\x00\x00\x00\x00\x2f\x00\x00\x00\x00\x00\x00\x00"
        "\x04\x00\x00\x00\x3a\x31\x2e\x33\x00\x00\x00\x00\x1e\x00\x00\x00"
        "\x2f\x6f\x72\x67\x2f\x61\x31\x31\x79\x2f\x61\x74\x73\x70\x69\x2f"
        "\x61\x35\x00\x00\x00\x73\x69\x62\x6c\x65\x2f\x00\x00\x00\x00\x00"
        "\x31\x31\x38\x00",
        132);
    // The input is a stream: one whole message, then the start of another.
    const int64_t length = dbusMessageLength(found);
    ASSERT_EQ(length, 127);
    EXPECT_FALSE(readDBusMessage(std::string_view(found).substr(0, static_cast<size_t>(length))));
}

TEST(DBusMessageReaderTest, Validators) {
    EXPECT_TRUE(isValidUtf8("plain"));
    EXPECT_TRUE(isValidUtf8("€ 世界 😀"));
    EXPECT_FALSE(isValidUtf8(std::string_view("\xED\xA0\x80", 3)));      // a surrogate
    EXPECT_FALSE(isValidUtf8(std::string_view("\xF4\x90\x80\x80", 4)));  // past U+10FFFF
    EXPECT_FALSE(isValidUtf8(std::string_view("\xE2\x82", 2)));          // cut short
    EXPECT_FALSE(isValidUtf8(std::string_view("a\0b", 3)));

    EXPECT_TRUE(isValidObjectPath("/"));
    EXPECT_TRUE(isValidObjectPath("/org/a11y/atspi/accessible/1_2"));
    EXPECT_FALSE(isValidObjectPath(""));
    EXPECT_FALSE(isValidObjectPath("org"));
    EXPECT_FALSE(isValidObjectPath("/org/"));
    EXPECT_FALSE(isValidObjectPath("/org//a11y"));
    EXPECT_FALSE(isValidObjectPath("/org/a-b"));

    EXPECT_TRUE(isValidBusName(":1.42"));
    EXPECT_TRUE(isValidBusName("org.a11y.atspi.Registry"));
    EXPECT_TRUE(isValidBusName("org.example-name._x"));
    EXPECT_FALSE(isValidBusName(""));
    EXPECT_FALSE(isValidBusName("org"));
    EXPECT_FALSE(isValidBusName("org..a11y"));
    EXPECT_FALSE(isValidBusName("org.1digit"));
    EXPECT_FALSE(isValidBusName(":1."));
    EXPECT_FALSE(isValidBusName("org.a11y/atspi"));
}

}  // namespace
}  // namespace velmora::native::freedesktop
