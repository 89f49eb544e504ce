#include <gtest/gtest.h>

#include "core/model/Json.h"

namespace velmora {
namespace {

ActionReceipt bareReceipt() {
    ActionReceipt receipt;
    receipt.action = "click";
    receipt.bundleIdentifier = "com.a";
    receipt.binarySha256 = "unavailable";
    receipt.postActionStructuralState = StructuralState{"com.a", 2, {{"AXButton", 2}}};
    receipt.succeeded = true;
    receipt.ts = "2026-11-16T03:04:05Z";
    receipt.receiptId = "r-1";
    return receipt;
}

std::vector<std::string> keysOf(const Json& object) {
    std::vector<std::string> keys;
    for (const auto& [key, value] : object.items()) {
        keys.push_back(key);
    }
    return keys;
}

TEST(ResponseJsonTest, ReceiptWithoutOptionalFieldsHasExactlyTenKeys) {
    Json json = bareReceipt();
    EXPECT_EQ(keysOf(json),
              (std::vector<std::string>{"action", "binarySha256", "bundleIdentifier",
                                        "frontmostTargetMatch", "postActionStructuralState",
                                        "receiptId", "reversible", "schema", "succeeded", "ts"}));
    EXPECT_EQ(json["schema"], "velmora.native_app_runtime_receipt.v1");
}

TEST(ResponseJsonTest, EmptyQueryResultIsWrittenAsAnEmptyList) {
    ActionReceipt receipt = bareReceipt();
    receipt.queryResult = std::vector<ElementInfo>{};
    Json json = receipt;
    ASSERT_TRUE(json.contains("queryResult"));
    EXPECT_EQ(json["queryResult"], Json::array());
}

TEST(ResponseJsonTest, ElementWithRoleAndValuePresentOnlyWritesTwoKeys) {
    Json json = ElementInfo{.role = "AXButton", .valuePresent = true};
    EXPECT_EQ(json, Json::parse(R"({"role":"AXButton","valuePresent":true})"));
}

TEST(ResponseJsonTest, StructuralStateWithoutFrontmostKeepsCountAndHistogram) {
    Json json = StructuralState{};
    EXPECT_EQ(json, Json::parse(R"({"elementCount":0,"roleHistogram":{}})"));
    EXPECT_TRUE(json["roleHistogram"].is_object());
}

TEST(ResponseJsonTest, ResponseWithoutErrorHasNoErrorKey) {
    Json json = DriverResponse("s", true, {});
    EXPECT_FALSE(json.contains("error"));
    EXPECT_EQ(json, Json::parse(R"({"protocolVersion":"velmora.driver_broker.v1","sessionId":"s",
        "ok":true,"receipts":[]})"));
    Json failed = DriverResponse("s", false, {}, "consent denied for app: x");
    EXPECT_EQ(failed["error"], "consent denied for app: x");
}

TEST(ResponseJsonTest, EveryResponseRecordRoundTrips) {
    ElementInfo full{.role = "AXTextField",
                     .title = "Name",
                     .identifier = "name-field",
                     .valuePresent = true,
                     .value = "Zoë",
                     .frame = Rect{1, 2.5, 30, 40}};
    EXPECT_EQ(decodeElementInfo(Json(full), ""), full);
    ElementInfo bare{.role = "AXUnknown"};
    EXPECT_EQ(decodeElementInfo(Json(bare), ""), bare);

    StructuralState state{"com.a", 3, {{"AXButton", 2}, {"AXWindow", 1}}};
    EXPECT_EQ(decodeStructuralState(Json(state), ""), state);

    ActionReceipt receipt = bareReceipt();
    receipt.label = "save";
    receipt.screenshotPath = "/tmp/s-1.png";
    receipt.queryResult = std::vector<ElementInfo>{full, bare};
    receipt.errorMessage = "os failure: x";
    DriverResponse response("s", false, {receipt, bareReceipt()}, "err", "v9");
    Json encoded = response;
    DriverResponse decoded = decodeResponse(encoded);
    EXPECT_EQ(decoded.protocolVersion, "v9");
    EXPECT_EQ(decoded.sessionId, "s");
    EXPECT_FALSE(decoded.ok);
    EXPECT_EQ(decoded.error, "err");
    ASSERT_EQ(decoded.receipts.size(), 2u);
    EXPECT_EQ(decoded.receipts[0].queryResult, receipt.queryResult);
    EXPECT_EQ(decoded.receipts[0].label, "save");
    EXPECT_EQ(decoded.receipts[1].queryResult, std::nullopt);
    EXPECT_EQ(Json(decoded), encoded);
}

TEST(ResponseJsonTest, DecodingRequiresEveryNonOptionalField) {
    Json json = bareReceipt();
    json.erase("reversible");
    EXPECT_THROW(decodeReceipt(json, "receipts[0]"), DecodeError);
    try {
        decodeReceipt(json, "receipts[0]");
    } catch (const DecodeError& error) {
        EXPECT_STREQ(error.what(), "receipts[0].reversible: missing required key");
    }
    EXPECT_THROW(decodeElementInfo(Json::parse(R"({"role":"AXButton"})"), ""), DecodeError);
    EXPECT_THROW(decodeStructuralState(Json::parse(R"({"elementCount":1})"), ""), DecodeError);
}

}  // namespace
}  // namespace velmora
