#include "core/model/JsonEncoding.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/model/Json.h"

namespace velmora {
namespace {

// A request with characters from every plane JSON text can carry: ASCII, Latin,
// CJK and, through a surrogate pair in UTF-16, an emoji.
const std::u32string kRequest =
    U"{\n  \"sessionId\": \"s-\u00E9\u4E2D\U0001F600\",\n  \"seatLease\": \"lease\",\n"
    U"  \"targetBundleId\": \"org.example.Notes\",\n  \"actions\": [{\"kind\": \"healthTick\"}]\n}";

enum class Order { big, little };

std::string utf16(const std::u32string& text, Order order, bool mark) {
    std::u16string units;
    if (mark) {
        units += u'\uFEFF';
    }
    for (char32_t c : text) {
        if (c >= 0x10000) {
            units += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
            units += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
            units += static_cast<char16_t>(c);
        }
    }
    std::string bytes;
    for (char16_t u : units) {
        const char high = static_cast<char>(u >> 8);
        const char low = static_cast<char>(u & 0xFF);
        bytes += order == Order::big ? high : low;
        bytes += order == Order::big ? low : high;
    }
    return bytes;
}

std::string utf32(const std::u32string& text, Order order, bool mark) {
    std::u32string units = mark ? U"\uFEFF" + text : text;
    std::string bytes;
    for (char32_t u : units) {
        for (int i = 0; i < 4; ++i) {
            const int shift = order == Order::big ? 24 - 8 * i : 8 * i;
            bytes += static_cast<char>((u >> shift) & 0xFF);
        }
    }
    return bytes;
}

std::string utf8(const std::u32string& text) {
    std::string bytes;
    for (char32_t c : text) {
        if (c < 0x80) {
            bytes += static_cast<char>(c);
        } else if (c < 0x800) {
            bytes += static_cast<char>(0xC0 | (c >> 6));
            bytes += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            bytes += static_cast<char>(0xE0 | (c >> 12));
            bytes += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            bytes += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            bytes += static_cast<char>(0xF0 | (c >> 18));
            bytes += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            bytes += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            bytes += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return bytes;
}

std::string decodeError(const std::string& bytes) {
    try {
        parseJson(bytes);
    } catch (const DecodeError& error) {
        return error.what();
    }
    ADD_FAILURE() << "no DecodeError";
    return "";
}

TEST(JsonEncodingTest, EveryEncodingWithOrWithoutAMarkDecodesToTheSameRequest) {
    const DriverRequest expected = decodeRequestText(utf8(kRequest));
    ASSERT_EQ(expected.sessionId, "s-\u00E9\u4E2D\U0001F600");
    for (bool mark : {false, true}) {
        for (Order order : {Order::big, Order::little}) {
            for (const std::string& bytes :
                 {utf16(kRequest, order, mark), utf32(kRequest, order, mark)}) {
                SCOPED_TRACE(::testing::PrintToString(bytes.substr(0, 8)));
                const DriverRequest decoded = decodeRequestText(bytes);
                EXPECT_EQ(decoded.sessionId, expected.sessionId);
                EXPECT_EQ(decoded.targetBundleId, expected.targetBundleId);
                EXPECT_EQ(decoded.actions, expected.actions);
            }
        }
    }
}

TEST(JsonEncodingTest, Utf8IsPassedThroughUntouchedMarkIncluded) {
    std::string storage = "unused";
    const std::string plain = utf8(kRequest);
    const std::string_view same = jsonTextAsUtf8(plain, storage);
    EXPECT_EQ(same.data(), plain.data());
    const std::string marked = "\xEF\xBB\xBF" + plain;
    EXPECT_EQ(jsonTextAsUtf8(marked, storage), marked);
    EXPECT_EQ(decodeRequestText(marked).sessionId, "s-\u00E9\u4E2D\U0001F600");
}

TEST(JsonEncodingTest, OtherEncodingsAreConvertedWithoutTheirMark) {
    std::string storage;
    EXPECT_EQ(jsonTextAsUtf8(utf16(U"{}", Order::little, true), storage), "{}");
    EXPECT_EQ(jsonTextAsUtf8(utf16(U"{}", Order::big, false), storage), "{}");
    EXPECT_EQ(jsonTextAsUtf8(utf32(U"[\U0001F600]", Order::big, true), storage), "[\U0001F600]");
    EXPECT_EQ(jsonTextAsUtf8(utf32(U"[1]", Order::little, false), storage), "[1]");
    // Two or three bytes are told apart by the first two alone.
    EXPECT_EQ(jsonTextAsUtf8(std::string("1\0", 2), storage), "1");
    EXPECT_EQ(jsonTextAsUtf8(std::string("\0"
                                         "1",
                                         2),
                             storage),
              "1");
}

TEST(JsonEncodingTest, AnOddByteCountInUtf16IsNamedByLineAndColumn) {
    std::string bytes = utf16(U"{\n  \"a\": 1", Order::little, true) + "}";
    EXPECT_EQ(decodeError(bytes),
              "invalid JSON: UTF-16LE text ends inside a 2-byte code unit at line 2, column 9");
}

TEST(JsonEncodingTest, UnpairedSurrogatesAreDecodeErrors) {
    std::u16string lowAlone = u"{\"a\": \"x";
    lowAlone += char16_t(0xDC00);
    lowAlone += u"\"}";
    std::string bytes;
    for (char16_t u : lowAlone) {
        bytes += static_cast<char>(u >> 8);
        bytes += static_cast<char>(u & 0xFF);
    }
    EXPECT_EQ(decodeError(bytes),
              "invalid JSON: UTF-16BE text has an unpaired low surrogate at line 1, column 9");

    std::u16string highAlone = u"{\n\"a\": \"";
    highAlone += char16_t(0xD83D);
    highAlone += u"x\"}";
    bytes.clear();
    for (char16_t u : highAlone) {
        bytes += static_cast<char>(u & 0xFF);
        bytes += static_cast<char>(u >> 8);
    }
    EXPECT_EQ(decodeError(bytes),
              "invalid JSON: UTF-16LE text has an unpaired high surrogate at line 2, column 7");

    // A high surrogate as the very last unit.
    std::string cut = utf16(U"[\"", Order::big, false) + "\xD8\x3D";
    EXPECT_EQ(decodeError(cut),
              "invalid JSON: UTF-16BE text has an unpaired high surrogate at line 1, column 3");
}

TEST(JsonEncodingTest, BadUtf32IsADecodeError) {
    const std::string cut = utf32(U"[1]", Order::big, false) + std::string("\0\0", 2);
    EXPECT_EQ(decodeError(cut),
              "invalid JSON: UTF-32BE text ends inside a 4-byte code unit at line 1, column 4");
    const std::string beyond = utf32(U"[\"", Order::little, true) +
                               std::string("\x00\x00\x11\x00", 4) +
                               utf32(U"\"]", Order::little, false);
    EXPECT_EQ(decodeError(beyond),
              "invalid JSON: UTF-32LE text has a value beyond U+10FFFF at line 1, column 3");
    const std::string surrogate = utf32(U"[\"", Order::little, false) +
                                  std::string("\x00\xD8\x00\x00", 4) +
                                  utf32(U"\"]", Order::little, false);
    EXPECT_EQ(decodeError(surrogate),
              "invalid JSON: UTF-32LE text has a surrogate code point at line 1, column 3");
}

TEST(JsonEncodingTest, SyntaxErrorsInConvertedTextNameTheirPlaceInTheConvertedText) {
    const std::string error = decodeError(utf16(U"{\n  \"\u00E9\": x\n}", Order::little, false));
    EXPECT_EQ(error.rfind("invalid JSON: ", 0), 0u) << error;
    EXPECT_NE(error.find("at line 2, column 9"), std::string::npos) << error;
}

}  // namespace
}  // namespace velmora
