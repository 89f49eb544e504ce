#include "agent/JsonWriter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>

namespace velmora {
namespace {

std::string written(const Json& document) {
    char* buffer = nullptr;
    size_t size = 0;
    std::FILE* stream = open_memstream(&buffer, &size);
    writeDocument(document, stream);
    std::fclose(stream);
    std::string text(buffer, size);
    std::free(buffer);
    return text;
}

TEST(JsonWriterTest, ResponseKeysComeOutSorted) {
    std::string text = written(Json(DriverResponse("s", false, {}, "boom")));
    auto at = [&](const char* key) { return text.find(std::string("\"") + key + "\""); };
    EXPECT_LT(at("error"), at("ok"));
    EXPECT_LT(at("ok"), at("protocolVersion"));
    EXPECT_LT(at("protocolVersion"), at("receipts"));
    EXPECT_LT(at("receipts"), at("sessionId"));
}

TEST(JsonWriterTest, IsPrettyPrintedWithOneTrailingNewline) {
    std::string text = written(Json(SelfCheck{"p", true, false, true}));
    EXPECT_EQ(text,
              "{\n"
              "  \"accessibilityTrusted\": true,\n"
              "  \"healthy\": true,\n"
              "  \"protocolVersion\": \"p\",\n"
              "  \"screenRecordingGranted\": false\n"
              "}\n");
}

TEST(JsonWriterTest, NestedKeysAndHistogramsAreSorted) {
    StructuralState state{"b", 3, {{"Zeta", 1}, {"AXButton", 2}, {"AXApplication", 1}}};
    std::string text = written(Json(state));
    EXPECT_LT(text.find("AXApplication"), text.find("AXButton"));
    EXPECT_LT(text.find("AXButton"), text.find("Zeta"));
    EXPECT_LT(text.find("elementCount"), text.find("frontmostBundleId"));
    EXPECT_LT(text.find("frontmostBundleId"), text.find("roleHistogram"));
}

TEST(JsonWriterTest, EverySlashIsEscaped) {
    std::string text = written(Json{{"screenshotPath", "/tmp/a/b.png"}, {"k/ey", "x"}});
    EXPECT_EQ(text, "{\n  \"k\\/ey\": \"x\",\n  \"screenshotPath\": \"\\/tmp\\/a\\/b.png\"\n}\n");
    EXPECT_EQ(Json::parse(text)["screenshotPath"], "/tmp/a/b.png");
}

TEST(JsonWriterTest, NonAsciiIsWrittenAsUtf8AndControlsAreEscaped) {
    std::string text = written(Json{{"t", "Zoë ✓ 😀"}, {"c", std::string("a\"b\\c\n\x01", 7)}});
    EXPECT_NE(text.find("\"Zoë ✓ 😀\""), std::string::npos);
    EXPECT_NE(text.find(R"("a\"b\\c\n\u0001")"), std::string::npos);
}

TEST(JsonWriterTest, NonFiniteNumberWritesNothing) {
    ElementInfo element{.role = "AXButton",
                        .frame = Rect{0, std::numeric_limits<double>::infinity(), 1, 1}};
    ActionReceipt receipt;
    receipt.queryResult = std::vector<ElementInfo>{element};
    Json response = DriverResponse("s", true, {receipt});
    EXPECT_EQ(renderDocument(response), std::nullopt);
    EXPECT_EQ(written(response), "");
    EXPECT_EQ(written(Json{{"n", std::nan("")}}), "");
}

TEST(JsonWriterTest, InvalidUtf8IsReplacedAndTheOutputStaysValidJson) {
    ElementInfo element{.role = "AX", .title = std::string("bad\xff\xfe title")};
    std::string text = written(Json(element));
    ASSERT_FALSE(text.empty());
    Json back = Json::parse(text);
    EXPECT_EQ(back["title"], "bad\xEF\xBF\xBD\xEF\xBF\xBD title");
}

TEST(JsonWriterTest, DoublesAreWrittenAsThePlatformsJsonEncoderWritesThem) {
    Json numbers = {{"whole", 10.0},
                    {"negativeZero", -0.0},
                    {"zero", 0.0},
                    {"half", 12.5},
                    {"big", 1e16},
                    {"small", 1e-5},
                    {"tenThousandth", 0.0001},
                    {"large", 1e15},
                    {"pastTwoTo53", 9007199254740994.0},
                    {"integer", 10},
                    {"negative", -7},
                    {"unsigned", 18446744073709551615u}};
    EXPECT_EQ(written(numbers),
              "{\n"
              "  \"big\": 1e+16,\n"
              "  \"half\": 12.5,\n"
              "  \"integer\": 10,\n"
              "  \"large\": 1000000000000000,\n"
              "  \"negative\": -7,\n"
              "  \"negativeZero\": -0,\n"
              "  \"pastTwoTo53\": 9.007199254740994e+15,\n"
              "  \"small\": 1e-05,\n"
              "  \"tenThousandth\": 0.0001,\n"
              "  \"unsigned\": 18446744073709551615,\n"
              "  \"whole\": 10,\n"
              "  \"zero\": 0\n"
              "}\n");
}

TEST(JsonWriterTest, AFrameOfWholeNumbersHasNoFractions) {
    ElementInfo element{
        .role = "AXButton", .valuePresent = false, .frame = Rect{10, 20, 30.5, -0.0}};
    EXPECT_EQ(written(Json(element)),
              "{\n"
              "  \"frame\": {\n"
              "    \"height\": -0,\n"
              "    \"width\": 30.5,\n"
              "    \"x\": 10,\n"
              "    \"y\": 20\n"
              "  },\n"
              "  \"role\": \"AXButton\",\n"
              "  \"valuePresent\": false\n"
              "}\n");
}

// Apart from the numbers, the layout is the JSON library's own pretty print with
// every slash escaped, as it always was.
TEST(JsonWriterTest, EverythingButDoublesIsLaidOutAsBefore) {
    Json document = Json::parse(R"({
        "a": [], "b": {}, "c": [[], {}, [1, [2, [3]]], {"x": {"y": {}}}],
        "d": "with / slash \\ and \" quote \u0001 \u001f \u007f \b\f\n\r\t",
        "e": "Zo\u00eb \u2713 \ud83d\ude00", "f": true, "g": false, "h": null,
        "i": -9223372036854775808, "j": 18446744073709551615, "k/l": [true, null, "m"]
    })");
    document["n"] = std::string("bad\xff\xfe\xe2\x28 \xf0\x9f\x98 end");
    std::string library = document.dump(2, ' ', false, Json::error_handler_t::replace);
    std::string escaped;
    for (char c : library) {
        if (c == '/') {
            escaped += '\\';
        }
        escaped += c;
    }
    EXPECT_EQ(written(document), escaped + "\n");
}

}  // namespace
}  // namespace velmora
