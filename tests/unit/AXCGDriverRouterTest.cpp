// The router over the native driver on a scripted desktop, end to end: a
// broker's request in, the response and its receipts out, with every event,
// wait and child process the run caused.

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "core/model/Json.h"
#include "core/native/AXCGDriver.h"
#include "core/routing/ActionRouter.h"
#include "core/routing/Clock.h"
#include "tests/support/ScriptedPlatform.h"

namespace velmora::native {
namespace {

using namespace std::chrono;

const std::string kApp = "com.example.editor";
constexpr int32_t kPid = 42;
// SHA-256 of "abc", the executable's bytes below.
const std::string kAbcSha = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

Clock::TimePoint fixedInstant() {
    return sys_days{year{2026} / 11 / 16} + hours{3} + minutes{4} + seconds{5};
}

class AXCGDriverRouterTest : public ::testing::Test {
  protected:
    AXCGDriverRouterTest() {
        platform.addRunningApp(kApp, RunningApplication{kPid, "/Applications/Editor.app", {}});
        platform.addInstalledApp(kApp, "/Applications/Editor.app");
        platform.setBundleExecutable("/Applications/Editor.app",
                                     "/Applications/Editor.app/Contents/MacOS/Editor");
        platform.addFile("/Applications/Editor.app/Contents/MacOS/Editor", {'a', 'b', 'c'});

        AXElement app = node("app", "AXApplication", "Editor");
        AXElement window = node("window", "AXWindow", "Untitled");
        AXElement save = node("save", "AXButton", "Save");
        platform.setFrame(save, Rect{100, 200, 80, 30});
        AXElement body = node("body", "AXTextArea", std::nullopt);
        platform.setText(body, "AXIdentifier", "body");
        platform.setText(body, "AXValue", "hello world");
        platform.setFrame(body, Rect{0, 40, 600, 400});
        platform.setChildren(app, {window});
        platform.setChildren(window, {save, body});
        platform.setWindows(app, {window});
        platform.setApplicationElement(kPid, app);

        platform.setFrontmost(kApp);
        platform.setDisplays({ScriptedPlatform::display("main", 1512, 982)});
        platform.setCaptureImage(platform.image("frame"));
        platform.setPngEncoding(std::vector<uint8_t>{0x89, 'P', 'N', 'G'});
    }

    AXElement node(const std::string& name, const std::string& role,
                   std::optional<std::string> title) {
        AXElement made = platform.element(name);
        platform.setText(made, "AXRole", role);
        if (title) {
            platform.setText(made, "AXTitle", *title);
        }
        return made;
    }

    DriverResponse run(const std::string& requestText) {
        ActionRouter router(driver, Clock::fixed(fixedInstant(), "r"), 4, 0.3,
                            [this](double seconds) { platform.sleep(seconds); });
        return router.run(decodeRequestText(requestText));
    }

    // The state every receipt carries when the tree above is intact.
    StructuralState intactState() {
        return StructuralState{
            kApp, 7,
            std::map<std::string, int64_t>{
                {"AXApplication", 1}, {"AXWindow", 2}, {"AXButton", 2}, {"AXTextArea", 2}}};
    }

    ScriptedPlatform platform;
    AXCGDriver driver{platform, 3000, 1.5};
};

TEST_F(AXCGDriverRouterTest, AWholeSessionYieldsOneReceiptPerActionInOrder) {
    const auto response = run(R"({
        "sessionId": "sess",
        "seatLease": "seat-7",
        "targetBundleId": "com.example.editor",
        "screenshotDir": "/shots",
        "actions": [
            {"kind": "focus", "label": "bring forward"},
            {"kind": "click", "selector": {"role": "AXButton", "title": "save"}},
            {"kind": "typeText", "text": "hi"},
            {"kind": "keyPress", "keys": ["cmd+s"]},
            {"kind": "scroll", "scroll": {"dx": 0, "dy": -3}},
            {"kind": "query", "selector": {"identifier": "body"}},
            {"kind": "assert", "selector": {"identifier": "body"},
             "expect": {"valueContains": "WORLD"}},
            {"kind": "screenshot"},
            {"kind": "keyPress", "keys": ["cmd", "c"]},
            {"kind": "healthTick"}
        ]
    })");

    EXPECT_EQ(response.protocolVersion, "velmora.driver_broker.v1");
    EXPECT_EQ(response.sessionId, "sess");
    EXPECT_FALSE(response.ok);  // the separate key names fail
    EXPECT_EQ(response.error, std::nullopt);
    ASSERT_EQ(response.receipts.size(), 10u);

    const std::vector<std::string> kinds = {"focus",    "click",     "typeText", "keyPress",
                                            "scroll",   "query",     "assert",   "screenshot",
                                            "keyPress", "healthTick"};
    const std::vector<std::string> ids = {"r-1", "r-2", "r-3", "r-4",  "r-5",
                                          "r-6", "r-7", "r-9", "r-10", "r-11"};
    for (size_t i = 0; i < response.receipts.size(); ++i) {
        const auto& receipt = response.receipts[i];
        SCOPED_TRACE(kinds[i]);
        EXPECT_EQ(receipt.schema, "velmora.native_app_runtime_receipt.v1");
        EXPECT_EQ(receipt.action, kinds[i]);
        EXPECT_EQ(receipt.bundleIdentifier, kApp);
        EXPECT_EQ(receipt.binarySha256, kAbcSha);
        EXPECT_TRUE(receipt.frontmostTargetMatch);
        EXPECT_EQ(receipt.postActionStructuralState, intactState());
        EXPECT_EQ(receipt.ts, "2026-11-16T03:04:05Z");
        EXPECT_EQ(receipt.receiptId, ids[i]);
        EXPECT_EQ(receipt.succeeded, i != 8);
        const bool input = i >= 1 && i <= 4 ? true : i == 8;
        EXPECT_EQ(receipt.reversible, !input);
    }

    EXPECT_EQ(response.receipts[0].label, "bring forward");
    // Query: the element without its value, which still counts as present.
    const auto& query = response.receipts[5];
    ASSERT_TRUE(query.queryResult.has_value());
    ASSERT_EQ(query.queryResult->size(), 2u);  // the window was walked twice
    EXPECT_EQ((*query.queryResult)[0],
              (ElementInfo{"AXTextArea", {}, "body", true, {}, Rect{0, 40, 600, 400}}));
    // Assert: values are asked for.
    const auto& assertion = response.receipts[6];
    ASSERT_TRUE(assertion.queryResult.has_value());
    EXPECT_EQ((*assertion.queryResult)[0].value, "hello world");
    EXPECT_EQ(assertion.errorMessage, std::nullopt);
    // Screenshot: named with the identifier before the receipt's own.
    EXPECT_EQ(response.receipts[7].screenshotPath, "/shots/sess-r-8.png");
    EXPECT_EQ(response.receipts[8].errorMessage, "os failure: unknown key: cmd");

    // What reached the desktop.
    ASSERT_EQ(platform.writes().size(), 1u);
    EXPECT_EQ(platform.writes()[0].first, "/shots/sess-r-8.png");
    EXPECT_TRUE(platform.forcedActivations().empty());
    std::vector<std::string> inputs;
    for (const auto& line : platform.timeline()) {
        if (line.rfind("post ", 0) == 0 || line.rfind("warp ", 0) == 0 ||
            line.rfind("sleep ", 0) == 0 || line.rfind("run loop ", 0) == 0 ||
            line.rfind("capture ", 0) == 0) {
            inputs.push_back(line);
        }
    }
    EXPECT_EQ(inputs, (std::vector<std::string>{
                          "warp 140,215",
                          "post hid mouse-down 140,215 click=1",
                          "post hid mouse-up 140,215 click=1",
                          "run loop 0.4",
                          "post session key 0 down unicode=U+0068",
                          "post session key 0 up unicode=U+0068",
                          "sleep 0.012",
                          "post session key 0 down unicode=U+0069",
                          "post session key 0 up unicode=U+0069",
                          "sleep 0.012",
                          "run loop 0.3",
                          "post hid key 1 down flags=0x100000",
                          "post hid key 1 up flags=0x100000",
                          "run loop 0.4",
                          "post hid scroll -3,0,0",
                          "capture main 1512x982",
                      }));
}

TEST_F(AXCGDriverRouterTest, ReceiptsEncodeAsTheBrokerReadsThem) {
    const auto response = run(R"({
        "sessionId": "sess", "seatLease": "seat", "targetBundleId": "com.example.editor",
        "actions": [{"kind": "query", "selector": {"role": "AXButton", "index": 1}},
                    {"kind": "doubleClick", "point": {"x": 5, "y": 6}}]
    })");
    Json json = response;
    EXPECT_EQ(json["ok"], true);
    EXPECT_FALSE(json.contains("error"));
    const Json& query = json["receipts"][0];
    EXPECT_EQ(query["action"], "query");
    EXPECT_EQ(query["reversible"], true);
    EXPECT_EQ(query["binarySha256"], kAbcSha);
    EXPECT_EQ(query["queryResult"],
              Json::parse(R"([{"role": "AXButton", "title": "Save", "valuePresent": false,
                               "frame": {"x": 100, "y": 200, "width": 80, "height": 30}}])"));
    EXPECT_EQ(query["postActionStructuralState"],
              Json::parse(R"({"frontmostBundleId": "com.example.editor", "elementCount": 7,
                              "roleHistogram": {"AXApplication": 1, "AXWindow": 2,
                                                "AXButton": 2, "AXTextArea": 2}})"));
    const Json& click = json["receipts"][1];
    EXPECT_EQ(click["action"], "doubleClick");
    EXPECT_EQ(click["reversible"], false);
    EXPECT_EQ(click["succeeded"], true);
    EXPECT_FALSE(click.contains("errorMessage"));
    EXPECT_FALSE(click.contains("queryResult"));
    EXPECT_FALSE(click.contains("screenshotPath"));
    EXPECT_EQ(platform.posted().size(), 4u);
}

TEST_F(AXCGDriverRouterTest, AnInputActionBringsTheTargetForwardFirst) {
    platform.setFrontmost("com.apple.finder");
    platform.onForcedActivation([this] { platform.setFrontmost(kApp); });
    const auto response = run(R"({
        "sessionId": "s", "seatLease": "l", "targetBundleId": "com.example.editor",
        "actions": [{"kind": "typeText", "text": ""}]
    })");
    ASSERT_EQ(response.receipts.size(), 1u);
    EXPECT_TRUE(response.receipts[0].succeeded);
    EXPECT_TRUE(response.receipts[0].frontmostTargetMatch);
    ASSERT_EQ(platform.activations().size(), 1u);
    ASSERT_EQ(platform.forcedActivations().size(), 1u);
    EXPECT_EQ(platform.forcedActivations()[0].bundleId, kApp);
    EXPECT_EQ(platform.forcedActivations()[0].processId, platform.activations()[0].processId);
    // 0.6 s of polling, the forced activation, then the text's own settling wait.
    EXPECT_DOUBLE_EQ(platform.now(), 0.6 + 0.3);
}

TEST_F(AXCGDriverRouterTest, ATargetThatWillNotComeForwardFailsInputWithoutEvents) {
    platform.setFrontmost("com.apple.finder");
    const auto response = run(R"({
        "sessionId": "s", "seatLease": "l", "targetBundleId": "com.example.editor",
        "actions": [{"kind": "click", "point": {"x": 1, "y": 2}}, {"kind": "frontmost"}]
    })");
    ASSERT_EQ(response.receipts.size(), 2u);
    const auto& click = response.receipts[0];
    EXPECT_FALSE(click.succeeded);
    EXPECT_FALSE(click.frontmostTargetMatch);
    EXPECT_EQ(click.errorMessage,
              "target not frontmost: expected com.example.editor, got com.apple.finder");
    EXPECT_TRUE(platform.posted().empty());
    EXPECT_TRUE(platform.warps().empty());
    EXPECT_EQ(platform.forcedActivations().size(), 1u);
    EXPECT_DOUBLE_EQ(platform.now(), 0.6 + 1.5);
    EXPECT_TRUE(response.receipts[1].succeeded);
    EXPECT_FALSE(response.receipts[1].frontmostTargetMatch);
    EXPECT_EQ(response.receipts[1].postActionStructuralState.frontmostBundleId, "com.apple.finder");
}

TEST_F(AXCGDriverRouterTest, WithoutAccessibilityPermissionSelectorsFindNothing) {
    platform.setTrusted(false);
    const auto response = run(R"({
        "sessionId": "s", "seatLease": "l", "targetBundleId": "com.example.editor",
        "actions": [{"kind": "click", "selector": {"role": "AXButton", "title": "Save"}},
                    {"kind": "query"}]
    })");
    ASSERT_EQ(response.receipts.size(), 2u);
    EXPECT_EQ(response.receipts[0].errorMessage, "element not found: role=AXButton,title~=Save");
    EXPECT_EQ(response.receipts[1].queryResult,
              (std::vector<ElementInfo>{ElementInfo{"AXUnknown", {}, {}, false, {}, {}}}));
    for (const auto& receipt : response.receipts) {
        EXPECT_EQ(receipt.postActionStructuralState,
                  (StructuralState{kApp, 1, {{"AXUnknown", 1}}}));
    }
    EXPECT_TRUE(platform.posted().empty());
}

TEST_F(AXCGDriverRouterTest, AnAppThatIsNeitherRunningNorInstalled) {
    const auto response = run(R"({
        "sessionId": "s", "seatLease": "l", "targetBundleId": "com.example.gone",
        "actions": [{"kind": "query"}, {"kind": "focus"}, {"kind": "launch"}]
    })");
    ASSERT_EQ(response.receipts.size(), 3u);
    for (const auto& receipt : response.receipts) {
        EXPECT_EQ(receipt.binarySha256, "unavailable");
        EXPECT_FALSE(receipt.succeeded);
        EXPECT_EQ(receipt.errorMessage, "app not running: com.example.gone");
        // The substitute state: the frontmost app and nothing counted.
        EXPECT_EQ(receipt.postActionStructuralState, (StructuralState{kApp, 0, {}}));
    }
    EXPECT_TRUE(platform.opens().empty());
}

TEST_F(AXCGDriverRouterTest, LaunchThroughTheWorkspace) {
    platform.setOpenAnswer(
        "The application \xE2\x80\x9C"
        "Editor\xE2\x80\x9D is damaged.",
        Delivery::after(1.0));
    auto response = run(R"({
        "sessionId": "s", "seatLease": "l", "targetBundleId": "com.example.editor",
        "actions": [{"kind": "launch"}]
    })");
    EXPECT_EQ(response.receipts[0].errorMessage,
              "os failure: launch: The application \xE2\x80\x9C"
              "Editor\xE2\x80\x9D is damaged.");
    EXPECT_TRUE(response.receipts[0].reversible);

    platform.setOpenAnswer(std::nullopt, Delivery::never());
    response = run(R"({
        "sessionId": "s", "seatLease": "l", "targetBundleId": "com.example.editor",
        "actions": [{"kind": "launch"}]
    })");
    EXPECT_TRUE(response.receipts[0].succeeded);
    EXPECT_DOUBLE_EQ(platform.now(), 1.0 + 10.0);
}

TEST_F(AXCGDriverRouterTest, ScreenshotFailuresReachTheReceipt) {
    platform.setDisplays({});
    auto response = run(R"({
        "sessionId": "s", "seatLease": "l", "targetBundleId": "com.example.editor",
        "actions": [{"kind": "screenshot"}]
    })");
    EXPECT_EQ(response.receipts[0].errorMessage,
              "screenshot failed: screenshot failed: no display");
    EXPECT_EQ(response.receipts[0].screenshotPath, std::nullopt);

    platform.setDisplays({ScriptedPlatform::display("main", 10, 10)});
    platform.setCaptureImage(platform.image("late"), Delivery::after(30.0));
    response = run(R"({
        "sessionId": "s", "seatLease": "l", "targetBundleId": "com.example.editor",
        "actions": [{"kind": "screenshot"}]
    })");
    EXPECT_EQ(response.receipts[0].errorMessage, "screenshot failed: nil image");
    EXPECT_DOUBLE_EQ(platform.now(), 8.0);

    platform.setCaptureImage(platform.image("frame"));
    platform.setWriteError("You don\xE2\x80\x99t have permission to save the file.");
    response = run(R"({
        "sessionId": "s", "seatLease": "l", "targetBundleId": "com.example.editor",
        "screenshotDir": "/locked", "actions": [{"kind": "screenshot"}]
    })");
    EXPECT_EQ(response.receipts[0].errorMessage,
              "You don\xE2\x80\x99t have permission to save the file.");
    EXPECT_TRUE(platform.writes().empty());
}

TEST_F(AXCGDriverRouterTest, AFailingAssertQueriesFourTimesWithThreePauses) {
    const auto response = run(R"({
        "sessionId": "s", "seatLease": "l", "targetBundleId": "com.example.editor",
        "actions": [{"kind": "assert", "selector": {"role": "AXButton"},
                     "expect": {"minCount": 3}}]
    })");
    const auto& receipt = response.receipts[0];
    EXPECT_FALSE(receipt.succeeded);
    EXPECT_EQ(receipt.errorMessage, "assertion failed: role=AXButton");
    ASSERT_TRUE(receipt.queryResult.has_value());
    EXPECT_EQ(receipt.queryResult->size(), 2u);
    EXPECT_EQ(platform.sleeps(), (std::vector<double>{0.3, 0.3, 0.3}));
    // Four assert queries and the receipt's structural state, each walking 7 elements.
    EXPECT_EQ(platform.applicationElementRequests().size(), 5u);
}

TEST_F(AXCGDriverRouterTest, AStoppedApplicationCostsOneTimeOutThenAProbePerWalk) {
    // The application stops answering accessibility; the desktop still works.
    platform.setAnswering(false, 6.0);
    const auto response = run(R"({
        "sessionId": "s", "seatLease": "l", "targetBundleId": "com.example.editor",
        "screenshotDir": "/shots",
        "actions": [
            {"kind": "query"},
            {"kind": "click", "selector": {"role": "AXButton", "title": "save"}},
            {"kind": "assert", "selector": {"role": "AXButton"}, "expect": {"exists": true}},
            {"kind": "typeText", "text": "a"},
            {"kind": "screenshot"},
            {"kind": "frontmost"}
        ]
    })");
    ASSERT_EQ(response.receipts.size(), 6u);
    EXPECT_TRUE(response.receipts[0].succeeded);
    EXPECT_EQ(response.receipts[0].queryResult->size(), 1u);
    EXPECT_EQ(response.receipts[1].errorMessage, "element not found: role=AXButton,title~=save");
    EXPECT_FALSE(response.receipts[2].succeeded);
    EXPECT_TRUE(response.receipts[3].succeeded);
    EXPECT_TRUE(response.receipts[4].succeeded);
    EXPECT_TRUE(response.receipts[5].succeeded);
    for (const auto& receipt : response.receipts) {
        EXPECT_EQ(receipt.postActionStructuralState.elementCount, 1);
    }
    // Walks: the query, its state, the click's query and state, four assert
    // queries and the state, and the states of typeText, screenshot, frontmost:
    // twelve. The first waits out the provider's time-out; each of the eleven
    // others waits one probe.
    std::vector<std::string> waits;
    for (const auto& line : platform.timeline()) {
        if (line.rfind("unanswered", 0) == 0 || line.rfind("timeout", 0) == 0) {
            waits.push_back(line);
        }
    }
    std::vector<std::string> expected = {"unanswered app.AXRole 6"};
    for (int walk = 0; walk < 11; ++walk) {
        expected.push_back("timeout app 0.25");
        expected.push_back("unanswered app.AXRole 0.25");
    }
    EXPECT_EQ(waits, expected);
    EXPECT_EQ(platform.applicationElementRequests().size(), 12u);
}

TEST_F(AXCGDriverRouterTest, GatesStopTheRunBeforeTheDesktopIsTouched) {
    const auto response = run(R"({
        "sessionId": "s", "seatLease": " \t", "targetBundleId": "com.example.editor",
        "actions": [{"kind": "click", "point": {"x": 1, "y": 2}}]
    })");
    EXPECT_FALSE(response.ok);
    EXPECT_TRUE(response.receipts.empty());
    EXPECT_EQ(response.error, "missing GUI-seat lease (RequiresLease)");
    EXPECT_TRUE(platform.timeline().empty());
    EXPECT_TRUE(platform.reads().empty());
}

}  // namespace
}  // namespace velmora::native
