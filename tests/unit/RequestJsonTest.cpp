#include <gtest/gtest.h>

#include "core/model/Json.h"

namespace velmora {
namespace {

const char* kMinimal =
    R"({"sessionId":"s1","seatLease":"L","targetBundleId":"com.a","actions":[]})";

std::string decodeFailure(const std::string& text) {
    try {
        decodeRequestText(text);
    } catch (const DecodeError& error) {
        return error.what();
    }
    ADD_FAILURE() << "decoded without error: " << text;
    return "";
}

// A minimal request with one extra member spliced in at the end.
std::string minimalWith(const std::string& member) {
    return R"({"sessionId":"s1","seatLease":"L","targetBundleId":"com.a","actions":[],)" + member +
           "}";
}

std::string withAction(const std::string& action) {
    return R"({"sessionId":"s1","seatLease":"L","targetBundleId":"com.a","actions":[)" + action +
           "]}";
}

TEST(RequestJsonTest, MinimalRequestTakesItsDefaults) {
    DriverRequest request = decodeRequestText(kMinimal);
    EXPECT_EQ(request.protocolVersion, "velmora.driver_broker.v1");
    EXPECT_EQ(request.sessionId, "s1");
    EXPECT_EQ(request.seatLease, "L");
    EXPECT_EQ(request.targetBundleId, "com.a");
    EXPECT_EQ(request.approvedApps, std::vector<std::string>{"com.a"});
    EXPECT_TRUE(request.deniedApps.empty());
    EXPECT_TRUE(request.actions.empty());
    EXPECT_EQ(request.consent, std::nullopt);
    EXPECT_EQ(request.targetAppName, std::nullopt);
    EXPECT_EQ(request.screenshotDir, std::nullopt);
}

TEST(RequestJsonTest, ConstructorAppliesTheSameDefaults) {
    DriverRequest request("s1", "L", "com.a", {});
    EXPECT_EQ(request.protocolVersion, kDriverBrokerProtocol);
    EXPECT_EQ(request.approvedApps, std::vector<std::string>{"com.a"});
    EXPECT_TRUE(request.deniedApps.empty());
    DriverRequest empty("s1", "L", "com.a", {}, std::nullopt, std::vector<std::string>{});
    EXPECT_TRUE(empty.approvedApps.empty());
}

TEST(RequestJsonTest, EmptyApprovedListStaysEmptyAndNullTakesTheDefault) {
    EXPECT_TRUE(decodeRequestText(minimalWith(R"("approvedApps":[])")).approvedApps.empty());
    EXPECT_EQ(decodeRequestText(minimalWith(R"("approvedApps":null)")).approvedApps,
              std::vector<std::string>{"com.a"});
    EXPECT_EQ(decodeRequestText(minimalWith(R"("approvedApps":["x","y"])")).approvedApps,
              (std::vector<std::string>{"x", "y"}));
}

TEST(RequestJsonTest, NullMeansNoneForOptionalFields) {
    DriverRequest request = decodeRequestText(
        R"({"protocolVersion":null,"sessionId":"s","seatLease":"","targetBundleId":"t",)"
        R"("targetAppName":null,"deniedApps":null,"actions":[],"consent":null,"screenshotDir":null})");
    EXPECT_EQ(request.protocolVersion, kDriverBrokerProtocol);
    EXPECT_EQ(request.seatLease, "");
    EXPECT_EQ(request.targetAppName, std::nullopt);
    EXPECT_TRUE(request.deniedApps.empty());
    EXPECT_EQ(request.consent, std::nullopt);
    EXPECT_EQ(request.screenshotDir, std::nullopt);
}

TEST(RequestJsonTest, EmptyConsentAllowsScreenshotsButNotTraining) {
    auto consent = decodeRequestText(minimalWith(R"("consent":{})")).consent;
    ASSERT_TRUE(consent);
    EXPECT_TRUE(consent->allowScreenshots);
    EXPECT_FALSE(consent->trainingCorpus);
    auto refused =
        decodeRequestText(minimalWith(R"("consent":{"allowScreenshots":false})")).consent;
    ASSERT_TRUE(refused);
    EXPECT_FALSE(refused->allowScreenshots);
    EXPECT_FALSE(refused->trainingCorpus);
}

TEST(RequestJsonTest, WrongCaseKindFailsTheWholeRequestAndNamesThePlace) {
    EXPECT_EQ(decodeFailure(withAction(R"({"kind":"launch"},{"kind":"focus"},{"kind":"Click"})")),
              R"(actions[2].kind: unknown action kind "Click")");
    EXPECT_EQ(decodeFailure(withAction(R"({"kind":""})")),
              R"(actions[0].kind: unknown action kind "")");
}

TEST(RequestJsonTest, EveryKindDecodesFromItsRawName) {
    const char* names[] = {"launch", "focus", "click",  "doubleClick", "typeText",  "keyPress",
                           "scroll", "query", "assert", "screenshot",  "frontmost", "healthTick"};
    for (const char* name : names) {
        auto request = decodeRequestText(withAction(std::string(R"({"kind":")") + name + "\"}"));
        ASSERT_EQ(request.actions.size(), 1u);
        EXPECT_EQ(rawValue(request.actions[0].kind), name);
    }
}

TEST(RequestJsonTest, ScrollTakesWholeNumbersOnly) {
    auto request = decodeRequestText(withAction(R"({"kind":"scroll","scroll":{"dx":0,"dy":-3}})"));
    ASSERT_TRUE(request.actions[0].scroll);
    EXPECT_EQ(*request.actions[0].scroll, (ScrollSpec{0, -3, std::nullopt}));
    EXPECT_EQ(decodeFailure(withAction(R"({"kind":"scroll","scroll":{"dx":1.5,"dy":0}})")),
              "actions[0].scroll.dx: expected a whole number, found 1.5");
}

TEST(RequestJsonTest, IntegralFloatsAreWholeNumbers) {
    auto request =
        decodeRequestText(withAction(R"({"kind":"scroll","scroll":{"dx":1.0,"dy":1e2}})"));
    EXPECT_EQ(request.actions[0].scroll->dx, 1);
    EXPECT_EQ(request.actions[0].scroll->dy, 100);
    auto negativeZero =
        decodeRequestText(withAction(R"({"kind":"scroll","scroll":{"dx":-0,"dy":-0.0}})"));
    EXPECT_EQ(negativeZero.actions[0].scroll->dx, 0);
    EXPECT_EQ(negativeZero.actions[0].scroll->dy, 0);
}

TEST(RequestJsonTest, IntegersOutsideSigned64BitsFail) {
    EXPECT_EQ(
        decodeFailure(withAction(R"({"kind":"query","selector":{"index":9223372036854775808}})")),
        "actions[0].selector.index: number 9223372036854775808 is out of the 64-bit integer range");
    EXPECT_EQ(decodeFailure(withAction(R"({"kind":"query","selector":{"index":1e19}})")),
              "actions[0].selector.index: number 1e+19 is out of the 64-bit integer range");
    auto extremes = decodeRequestText(withAction(
        R"({"kind":"scroll","scroll":{"dx":9223372036854775807,"dy":-9223372036854775808}})"));
    EXPECT_EQ(extremes.actions[0].scroll->dx, INT64_MAX);
    EXPECT_EQ(extremes.actions[0].scroll->dy, INT64_MIN);
}

TEST(RequestJsonTest, NumbersThatOverflowDoublesAreDecodeErrors) {
    EXPECT_NE(decodeFailure(withAction(R"({"kind":"click","point":{"x":1e400,"y":0}})")), "");
}

TEST(RequestJsonTest, PointIntegersBecomeDoubles) {
    auto request = decodeRequestText(withAction(R"({"kind":"click","point":{"x":10,"y":20}})"));
    ASSERT_TRUE(request.actions[0].point);
    EXPECT_EQ(request.actions[0].point->x, 10.0);
    EXPECT_EQ(request.actions[0].point->y, 20.0);
}

TEST(RequestJsonTest, FirstMissingRequiredKeyIsReported) {
    EXPECT_EQ(decodeFailure(R"({"seatLease":"L","targetBundleId":"t"})"),
              "sessionId: missing required key");
    EXPECT_EQ(decodeFailure(R"({"sessionId":"s","seatLease":"L","targetBundleId":"t"})"),
              "actions: missing required key");
    EXPECT_EQ(decodeFailure(withAction(R"({"kind":"scroll","scroll":{"dy":1}})")),
              "actions[0].scroll.dx: missing required key");
    EXPECT_EQ(decodeFailure(withAction(R"({"label":"x"})")),
              "actions[0].kind: missing required key");
}

TEST(RequestJsonTest, KeysAreReadInDeclaredOrderWhateverTheirOrderInTheText) {
    // sessionId is read before seatLease, even though it comes later in the text.
    EXPECT_EQ(decodeFailure(R"({"actions":5,"seatLease":1,"sessionId":2,"targetBundleId":"t"})"),
              "sessionId: expected a string, found number");
}

TEST(RequestJsonTest, NullFailsForRequiredKeys) {
    EXPECT_EQ(
        decodeFailure(R"({"sessionId":null,"seatLease":"L","targetBundleId":"t","actions":[]})"),
        "sessionId: expected a string, found null");
    EXPECT_EQ(
        decodeFailure(R"({"sessionId":"s","seatLease":"L","targetBundleId":"t","actions":null})"),
        "actions: expected an array, found null");
    EXPECT_EQ(decodeFailure(withAction(R"({"kind":null})")),
              "actions[0].kind: expected a string, found null");
    EXPECT_EQ(decodeFailure(withAction(R"({"kind":"click","point":{"x":null,"y":1}})")),
              "actions[0].point.x: expected a number, found null");
}

TEST(RequestJsonTest, WrongTypesFail) {
    EXPECT_EQ(decodeFailure(minimalWith(R"("approvedApps":"com.a")")),
              "approvedApps: expected an array, found string");
    EXPECT_EQ(decodeFailure(minimalWith(R"("deniedApps":[1])")),
              "deniedApps[0]: expected a string, found number");
    EXPECT_EQ(decodeFailure(minimalWith(R"("consent":{"allowScreenshots":"yes"})")),
              "consent.allowScreenshots: expected a boolean, found string");
    EXPECT_EQ(decodeFailure(withAction(R"({"kind":"assert","expect":{"exists":1}})")),
              "actions[0].expect.exists: expected a boolean, found number");
    EXPECT_EQ(decodeFailure(withAction(R"({"kind":"keyPress","keys":"cmd+s"})")),
              "actions[0].keys: expected an array, found string");
    EXPECT_EQ(decodeFailure(withAction(R"({"kind":"query","selector":[]})")),
              "actions[0].selector: expected an object, found array");
    EXPECT_EQ(decodeFailure("[]"), "expected an object, found array");
    EXPECT_EQ(decodeFailure(R"("text")"), "expected an object, found string");
}

TEST(RequestJsonTest, UnknownKeysAreIgnored) {
    auto request = decodeRequestText(
        R"({"sessionId":"s","seatLease":"L","targetBundleId":"t","future":{"a":1},)"
        R"("actions":[{"kind":"click","extra":true,"point":{"x":1,"y":2,"z":3}}]})");
    ASSERT_EQ(request.actions.size(), 1u);
    EXPECT_EQ(request.actions[0].point, (Point{1, 2}));
}

TEST(RequestJsonTest, SyntaxErrorsAreDecodeErrors) {
    EXPECT_EQ(decodeFailure("").rfind("invalid JSON: ", 0), 0u);
    EXPECT_EQ(decodeFailure("{").rfind("invalid JSON: ", 0), 0u);
    EXPECT_EQ(decodeFailure("{\"sessionId\":\"\xff\"}").rfind("invalid JSON: ", 0), 0u);
}

TEST(RequestJsonTest, KeysAbsentAndEmptyAreDistinct) {
    auto absent = decodeRequestText(withAction(R"({"kind":"keyPress"})"));
    auto empty = decodeRequestText(withAction(R"({"kind":"keyPress","keys":[]})"));
    EXPECT_EQ(absent.actions[0].keys, std::nullopt);
    ASSERT_TRUE(empty.actions[0].keys);
    EXPECT_TRUE(empty.actions[0].keys->empty());
    EXPECT_NE(absent.actions[0], empty.actions[0]);
}

TEST(RequestJsonTest, ActionWithNothingButKindEncodesOnlyKind) {
    Json json = DriverAction{.kind = ActionKind::click};
    EXPECT_EQ(json, Json::parse(R"({"kind":"click"})"));
}

TEST(RequestJsonTest, RequestEncodesEveryNonOptionalField) {
    Json json = DriverRequest("s", "L", "com.a", {});
    EXPECT_EQ(json, Json::parse(R"({"protocolVersion":"velmora.driver_broker.v1","sessionId":"s",
        "seatLease":"L","targetBundleId":"com.a","approvedApps":["com.a"],"deniedApps":[],
        "actions":[]})"));
    Json consent = ConsentScope{};
    EXPECT_EQ(consent, Json::parse(R"({"allowScreenshots":true,"trainingCorpus":false})"));
}

TEST(RequestJsonTest, EveryRequestRecordRoundTrips) {
    DriverAction full{
        .kind = ActionKind::assert_,
        .selector = ElementSelector{"AXButton", "Save", "save-id", "ok", 2},
        .text = "héllo/wörld",
        .keys = std::vector<std::string>{"cmd+s", "return"},
        .point = Point{1.5, -2.25},
        .scroll = ScrollSpec{3, -10, Point{4, 5}},
        .expect = Expectation{false, "a", "b", 7},
        .label = "step",
    };
    DriverRequest request("s", "L", "com.a", {full, DriverAction{.kind = ActionKind::healthTick}},
                          "App", std::vector<std::string>{"x"}, {"y"}, ConsentScope{false, true},
                          "/tmp/shots", "other.v2");
    Json encoded = request;
    DriverRequest decoded = decodeRequestText(encoded.dump());
    EXPECT_EQ(decoded.protocolVersion, "other.v2");
    EXPECT_EQ(decoded.sessionId, "s");
    EXPECT_EQ(decoded.seatLease, "L");
    EXPECT_EQ(decoded.targetBundleId, "com.a");
    EXPECT_EQ(decoded.targetAppName, "App");
    EXPECT_EQ(decoded.approvedApps, std::vector<std::string>{"x"});
    EXPECT_EQ(decoded.deniedApps, std::vector<std::string>{"y"});
    EXPECT_EQ(decoded.actions, request.actions);
    EXPECT_EQ(decoded.consent, (ConsentScope{false, true}));
    EXPECT_EQ(decoded.screenshotDir, "/tmp/shots");
    EXPECT_EQ(Json(decoded), encoded);
}

TEST(RequestJsonTest, RecordsCompareFieldByField) {
    EXPECT_EQ((ElementSelector{.role = "r"}), (ElementSelector{.role = "r"}));
    EXPECT_NE((ElementSelector{.role = "r"}), (ElementSelector{.title = "r"}));
    EXPECT_NE((ElementSelector{}), (ElementSelector{.index = 0}));
    EXPECT_EQ((Expectation{.exists = false}), (Expectation{.exists = false}));
    EXPECT_NE((Expectation{.exists = false}), (Expectation{}));
    EXPECT_EQ((Point{10, 20}), (Point{10.0, 20.0}));
    EXPECT_NE((Rect{0, 0, 1, 1}), (Rect{0, 0, 1, 2}));
    EXPECT_NE((ConsentScope{}), (ConsentScope{false, false}));
}

}  // namespace
}  // namespace velmora
