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

}  // namespace
}  // namespace velmora
