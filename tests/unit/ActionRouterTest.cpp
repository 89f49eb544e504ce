#include "core/routing/ActionRouter.h"
#include "core/routing/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <cstdlib>
#include <deque>
#include <exception>
#include <filesystem>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/driver/MockDriver.h"
#include "core/model/Json.h"
#include "tests/support/Elements.h"

namespace velmora {
namespace {

using namespace std::chrono_literals;
using Calls = std::vector<MockDriver::Call>;
using Elements = std::vector<ElementInfo>;

const std::string kTarget = "com.example.editor";
const std::string kSha = "9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08";
const std::string kTs = "2026-11-16T03:04:05Z";
const std::string kSession = "sess-42";

std::chrono::system_clock::time_point fixedDate() {
    using namespace std::chrono;
    return system_clock::time_point(sys_days{year{2026} / November / 16} + 3h + 4min + 5s);
}

using testing::element;
using testing::withoutValue;

const ElementInfo kWindow =
    element("AXWindow", "Document", std::nullopt, std::nullopt, Rect{0, 0, 800, 600});
const ElementInfo kSave = element("AXButton", "Save", "save", std::nullopt, Rect{100, 200, 40, 20});
const ElementInfo kName = element("AXTextField", "Name", "name", "draft", Rect{10, 50, 200, 24});
const ElementInfo kStatus =
    element("AXStaticText", std::nullopt, std::nullopt, "ok, done", std::nullopt);

Elements sampleElements() {
    return {kWindow, kSave, kName, kStatus};
}

StructuralState sampleState(std::optional<std::string> frontmost) {
    return StructuralState{
        std::move(frontmost),
        4,
        {{"AXButton", 1}, {"AXStaticText", 1}, {"AXTextField", 1}, {"AXWindow", 1}}};
}

// A mock that also counts the two readings the mock does not log, can make any
// reading throw any value, and can script the element list per query.
class ObservedDriver : public MockDriver {
  public:
    explicit ObservedDriver(std::optional<std::string> front = kTarget)
        : MockDriver(std::move(front), sampleElements(), kSha) {}

    int shaReads = 0;
    int frontmostReads = 0;
    std::exception_ptr shaThrows;
    std::exception_ptr frontmostThrows;
    std::exception_ptr stateThrows;
    std::exception_ptr screenshotThrows;
    std::deque<Elements> script;

    std::optional<std::string> frontmostBundleId() override {
        ++frontmostReads;
        if (frontmostThrows) {
            std::rethrow_exception(frontmostThrows);
        }
        return MockDriver::frontmostBundleId();
    }
    std::string binarySha256(const std::string& bundleId) override {
        ++shaReads;
        if (shaThrows) {
            std::rethrow_exception(shaThrows);
        }
        return MockDriver::binarySha256(bundleId);
    }
    std::vector<ElementInfo> query(const std::string& bundleId,
                                   const std::optional<ElementSelector>& selector,
                                   bool includeValues) override {
        if (!script.empty()) {
            elements = script.front();
            script.pop_front();
        }
        return MockDriver::query(bundleId, selector, includeValues);
    }
    StructuralState structuralState(const std::string& bundleId) override {
        if (stateThrows) {
            calls.push_back({"structuralState", bundleId});
            std::rethrow_exception(stateThrows);
        }
        return MockDriver::structuralState(bundleId);
    }
    void screenshot(const std::string& bundleId, const std::string& path) override {
        if (screenshotThrows) {
            calls.push_back({"screenshot", path});
            std::rethrow_exception(screenshotThrows);
        }
        MockDriver::screenshot(bundleId, path);
    }
};

struct PauseLog {
    std::vector<double> pauses;
    Sleep sleep() {
        return [this](double seconds) { pauses.push_back(seconds); };
    }
};

DriverAction action(ActionKind kind) {
    DriverAction result;
    result.kind = kind;
    return result;
}

ElementSelector selectorWith(std::optional<std::string> role, std::optional<std::string> title,
                             std::optional<int64_t> index = std::nullopt) {
    ElementSelector selector;
    selector.role = std::move(role);
    selector.title = std::move(title);
    selector.index = index;
    return selector;
}

DriverRequest request(std::vector<DriverAction> actions) {
    return DriverRequest(kSession, "lease-1", kTarget, std::move(actions));
}

// Every field of an expected receipt, apart from the three that are the same
// throughout a run (schema, bundle identifier, timestamp), which default to the
// run's values.
ActionReceipt receipt(std::string actionName, std::optional<std::string> label,
                      bool frontmostTargetMatch, StructuralState state, bool succeeded,
                      bool reversible, std::string receiptId,
                      std::optional<std::string> screenshotPath,
                      std::optional<Elements> queryResult, std::optional<std::string> errorMessage,
                      std::string sha = kSha) {
    ActionReceipt result;
    result.schema = "velmora.native_app_runtime_receipt.v1";
    result.action = std::move(actionName);
    result.label = std::move(label);
    result.bundleIdentifier = kTarget;
    result.binarySha256 = std::move(sha);
    result.frontmostTargetMatch = frontmostTargetMatch;
    result.postActionStructuralState = std::move(state);
    result.succeeded = succeeded;
    result.reversible = reversible;
    result.ts = kTs;
    result.receiptId = std::move(receiptId);
    result.screenshotPath = std::move(screenshotPath);
    result.queryResult = std::move(queryResult);
    result.errorMessage = std::move(errorMessage);
    return result;
}

// Receipts have no equality of their own; their JSON forms hold every field and
// leave absent ones out, so comparing those compares whole receipts.
void expectReceipts(const DriverResponse& response, const std::vector<ActionReceipt>& expected) {
    ASSERT_EQ(response.receipts.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(Json(response.receipts[i]), Json(expected[i])) << "receipt " << i;
    }
}

void expectResponseHeader(const DriverResponse& response, bool ok,
                          std::optional<std::string> error = std::nullopt) {
    EXPECT_EQ(response.protocolVersion, "velmora.driver_broker.v1");
    EXPECT_EQ(response.sessionId, kSession);
    EXPECT_EQ(response.ok, ok);
    EXPECT_EQ(response.error, error);
}

class ActionRouterTest : public ::testing::Test {
  protected:
    ObservedDriver driver;
    PauseLog pauses;

    DriverResponse run(const DriverRequest& req, int64_t retries = 4, double delay = 0.3) {
        ActionRouter router(driver, Clock::fixed(fixedDate(), "r"), retries, delay, pauses.sleep());
        return router.run(req);
    }
};

// Gates

TEST_F(ActionRouterTest, TheProtocolGateWinsOverEveryOtherGate) {
    DriverRequest req(kSession, " \t", kTarget, {action(ActionKind::launch)}, std::nullopt,
                      std::vector<std::string>{}, {kTarget}, std::nullopt, std::nullopt,
                      "velmora.driver_broker.v0");
    auto response = run(req);
    expectResponseHeader(response, false, "unsupported protocol: velmora.driver_broker.v0");
    EXPECT_TRUE(response.receipts.empty());
    EXPECT_TRUE(driver.calls.empty());
    EXPECT_EQ(driver.shaReads, 0);
    EXPECT_EQ(driver.frontmostReads, 0);
}

TEST_F(ActionRouterTest, TheProtocolIsComparedExactly) {
    DriverRequest req(kSession, "lease", kTarget, {}, std::nullopt, std::nullopt, {}, std::nullopt,
                      std::nullopt, "Velmora.driver_broker.v1");
    auto response = run(req);
    expectResponseHeader(response, false, "unsupported protocol: Velmora.driver_broker.v1");
    DriverRequest empty(kSession, "lease", kTarget, {}, std::nullopt, std::nullopt, {},
                        std::nullopt, std::nullopt, "");
    expectResponseHeader(run(empty), false, "unsupported protocol: ");
}

TEST_F(ActionRouterTest, ABlankLeaseIsMissingAndWinsOverThePolicy) {
    for (std::string lease : {"", " ", "\t", " \t \t"}) {
        DriverRequest req(kSession, lease, kTarget, {action(ActionKind::launch)}, std::nullopt,
                          std::vector<std::string>{});
        auto response = run(req);
        expectResponseHeader(response, false, "missing GUI-seat lease (RequiresLease)");
        EXPECT_TRUE(response.receipts.empty());
    }
    EXPECT_TRUE(driver.calls.empty());
    EXPECT_EQ(driver.shaReads, 0);
}

TEST_F(ActionRouterTest, ALeaseOfANewlinePasses) {
    DriverRequest req(kSession, "\n", kTarget, {});
    auto response = run(req);
    expectResponseHeader(response, true);
    EXPECT_EQ(driver.shaReads, 1);
}

TEST_F(ActionRouterTest, ALeaseOfSpaceSeparatorsIsMissing) {
    // No-break, narrow no-break, em and ideographic spaces, alone and mixed.
    for (std::string lease :
         {"\u00A0", "\u202F", "\u2003", "\u3000", " \u00A0\t\u3000\u2003\u202F"}) {
        DriverRequest req(kSession, lease, kTarget, {action(ActionKind::launch)});
        auto response = run(req);
        expectResponseHeader(response, false, "missing GUI-seat lease (RequiresLease)");
        EXPECT_TRUE(response.receipts.empty());
    }
    EXPECT_TRUE(driver.calls.empty());
    EXPECT_EQ(driver.shaReads, 0);
}

TEST_F(ActionRouterTest, ALeaseOfAZeroWidthSpaceOrANextLinePasses) {
    for (std::string lease : {"\u200B", "\u0085", "\u00A0\u200B\u00A0", "\u2028"}) {
        DriverRequest req(kSession, lease, kTarget, {});
        expectResponseHeader(run(req), true);
    }
    EXPECT_EQ(driver.shaReads, 4);
}

TEST_F(ActionRouterTest, ADeniedEntryWithATrailingEmSpaceRefusesTheTarget) {
    DriverRequest req(kSession, "lease", kTarget, {action(ActionKind::launch)}, std::nullopt,
                      std::nullopt, {std::string(kTarget) + "\u2003"});
    auto response = run(req);
    expectResponseHeader(response, false, "consent denied for app: com.example.editor");
    EXPECT_TRUE(driver.calls.empty());
}

TEST_F(ActionRouterTest, AnEmptyApprovalListRefusesTheTarget) {
    DriverRequest req(kSession, "lease", kTarget, {action(ActionKind::launch)}, "Editor",
                      std::vector<std::string>{});
    auto response = run(req);
    expectResponseHeader(response, false, "consent denied for app: com.example.editor");
    EXPECT_TRUE(response.receipts.empty());
    EXPECT_TRUE(driver.calls.empty());
    EXPECT_EQ(driver.shaReads, 0);
    EXPECT_EQ(driver.frontmostReads, 0);
}

TEST_F(ActionRouterTest, ADenialByAppNameRefusesWithTheBundleIdentifier) {
    DriverRequest req(kSession, "lease", kTarget, {}, "Secret Editor", std::nullopt, {"secret"});
    expectResponseHeader(run(req), false, "consent denied for app: com.example.editor");
}

TEST_F(ActionRouterTest, ZeroActionsSucceedAfterOneFingerprintRead) {
    auto response = run(request({}));
    expectResponseHeader(response, true);
    EXPECT_TRUE(response.receipts.empty());
    EXPECT_EQ(driver.shaReads, 1);
    EXPECT_EQ(driver.frontmostReads, 0);
    EXPECT_TRUE(driver.calls.empty());
}

TEST_F(ActionRouterTest, TheFingerprintIsReadOnceForTheWholeRun) {
    auto response = run(request({action(ActionKind::healthTick), action(ActionKind::frontmost),
                                 action(ActionKind::launch)}));
    EXPECT_EQ(driver.shaReads, 1);
    ASSERT_EQ(response.receipts.size(), 3u);
    for (const auto& r : response.receipts) {
        EXPECT_EQ(r.binarySha256, kSha);
    }
}

TEST_F(ActionRouterTest, AnUnreadableFingerprintIsUnavailableInEveryReceipt) {
    driver.shaThrows = std::make_exception_ptr(PlatformError("cannot read executable"));
    auto response = run(request({action(ActionKind::healthTick), action(ActionKind::healthTick)}));
    expectResponseHeader(response, true);
    expectReceipts(response,
                   {receipt("healthTick", std::nullopt, true, sampleState(kTarget), true, true,
                            "r-1", std::nullopt, std::nullopt, std::nullopt, "unavailable"),
                    receipt("healthTick", std::nullopt, true, sampleState(kTarget), true, true,
                            "r-2", std::nullopt, std::nullopt, std::nullopt, "unavailable")});
    EXPECT_EQ(driver.shaReads, 1);
}

// Non-input kinds

TEST_F(ActionRouterTest, LaunchCallsTheDriverAndIsReversible) {
    DriverAction launch = action(ActionKind::launch);
    launch.label = "open editor";
    auto response = run(request({launch}));
    expectResponseHeader(response, true);
    expectReceipts(response, {receipt("launch", "open editor", true, sampleState(kTarget), true,
                                      true, "r-1", std::nullopt, std::nullopt, std::nullopt)});
    EXPECT_EQ(driver.calls, (Calls{{"launch", kTarget}, {"structuralState", kTarget}}));
    EXPECT_EQ(driver.frontmostReads, 1);
}

TEST_F(ActionRouterTest, AFailedLaunchCarriesTheErrorText) {
    driver.failOn = {"launch"};
    auto response = run(request({action(ActionKind::launch)}));
    expectResponseHeader(response, false);
    expectReceipts(response,
                   {receipt("launch", std::nullopt, true, sampleState(kTarget), false, true, "r-1",
                            std::nullopt, std::nullopt, "os failure: launch")});
}

TEST_F(ActionRouterTest, NonInputKindsOnlyReportWhetherTheTargetIsFrontmost) {
    ObservedDriver other("com.other.app");
    ActionRouter router(other, Clock::fixed(fixedDate(), "r"), 4, 0.3, pauses.sleep());
    auto response =
        router.run(request({action(ActionKind::frontmost), action(ActionKind::healthTick)}));
    expectResponseHeader(response, true);
    expectReceipts(response,
                   {receipt("frontmost", std::nullopt, false, sampleState("com.other.app"), true,
                            true, "r-1", std::nullopt, std::nullopt, std::nullopt),
                    receipt("healthTick", std::nullopt, false, sampleState("com.other.app"), true,
                            true, "r-2", std::nullopt, std::nullopt, std::nullopt)});
    // No focus attempt: only the state readings are logged.
    EXPECT_EQ(other.calls, (Calls{{"structuralState", kTarget}, {"structuralState", kTarget}}));
    EXPECT_EQ(other.frontmostReads, 2);
}

TEST_F(ActionRouterTest, AFrontmostReadingThatThrowsCountsAsNoMatchForNonInputKinds) {
    driver.frontmostThrows = std::make_exception_ptr(DriverError::osFailure("workspace"));
    auto response = run(request({action(ActionKind::healthTick)}));
    expectResponseHeader(response, true);
    expectReceipts(response, {receipt("healthTick", std::nullopt, false, sampleState(kTarget), true,
                                      true, "r-1", std::nullopt, std::nullopt, std::nullopt)});
}

TEST_F(ActionRouterTest, NoFrontmostAppIsNoMatch) {
    ObservedDriver nothingInFront(std::nullopt);
    ActionRouter router(nothingInFront, Clock::fixed(fixedDate(), "r"), 4, 0.3, pauses.sleep());
    auto response = router.run(request({action(ActionKind::frontmost)}));
    expectReceipts(response,
                   {receipt("frontmost", std::nullopt, false, sampleState(std::nullopt), true, true,
                            "r-1", std::nullopt, std::nullopt, std::nullopt)});
}

TEST_F(ActionRouterTest, FocusSucceedsWhenTheDriverBringsTheAppForward) {
    ObservedDriver other("com.other.app");
    ActionRouter router(other, Clock::fixed(fixedDate(), "r"), 4, 0.3, pauses.sleep());
    auto response = router.run(request({action(ActionKind::focus)}));
    expectResponseHeader(response, true);
    // The match is read before the action, the state after it.
    expectReceipts(response, {receipt("focus", std::nullopt, false, sampleState(kTarget), true,
                                      true, "r-1", std::nullopt, std::nullopt, std::nullopt)});
    EXPECT_EQ(other.calls, (Calls{{"focus", kTarget}, {"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, AFocusThatReturnsFalseFailsWithoutAnErrorMessage) {
    ObservedDriver other("com.other.app");
    other.focusSucceeds = false;
    ActionRouter router(other, Clock::fixed(fixedDate(), "r"), 4, 0.3, pauses.sleep());
    auto response = router.run(request({action(ActionKind::focus)}));
    expectResponseHeader(response, false);
    expectReceipts(response,
                   {receipt("focus", std::nullopt, false, sampleState("com.other.app"), false, true,
                            "r-1", std::nullopt, std::nullopt, std::nullopt)});
}

TEST_F(ActionRouterTest, AFocusThatThrowsCarriesTheErrorText) {
    driver.failOn = {"focus"};
    auto response = run(request({action(ActionKind::focus)}));
    expectReceipts(response,
                   {receipt("focus", std::nullopt, true, sampleState(kTarget), false, true, "r-1",
                            std::nullopt, std::nullopt, "os failure: focus")});
}

TEST_F(ActionRouterTest, QueryReturnsElementsWithoutValues) {
    DriverAction query = action(ActionKind::query);
    query.selector = selectorWith("AXTextField", std::nullopt);
    auto response = run(request({query}));
    expectResponseHeader(response, true);
    expectReceipts(response,
                   {receipt("query", std::nullopt, true, sampleState(kTarget), true, true, "r-1",
                            std::nullopt, Elements{withoutValue(kName)}, std::nullopt)});
    EXPECT_EQ(driver.calls, (Calls{{"query", "role=AXTextField"}, {"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, QueryWithoutSelectorPassesNoSelector) {
    auto response = run(request({action(ActionKind::query)}));
    Elements all;
    for (const auto& info : sampleElements()) {
        all.push_back(withoutValue(info));
    }
    expectReceipts(response, {receipt("query", std::nullopt, true, sampleState(kTarget), true, true,
                                      "r-1", std::nullopt, all, std::nullopt)});
    EXPECT_EQ(driver.calls, (Calls{{"query", "<all>"}, {"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, QueryFindingNothingSucceedsWithAnEmptyResult) {
    DriverAction query = action(ActionKind::query);
    query.selector = selectorWith("AXSheet", std::nullopt);
    auto response = run(request({query}));
    expectResponseHeader(response, true);
    expectReceipts(response, {receipt("query", std::nullopt, true, sampleState(kTarget), true, true,
                                      "r-1", std::nullopt, Elements{}, std::nullopt)});
}

TEST_F(ActionRouterTest, AFailedQueryHasNoResult) {
    driver.failOn = {"query"};
    auto response = run(request({action(ActionKind::query)}));
    expectReceipts(response,
                   {receipt("query", std::nullopt, true, sampleState(kTarget), false, true, "r-1",
                            std::nullopt, std::nullopt, "os failure: query")});
}

// Assert

TEST_F(ActionRouterTest, APassingAssertKeepsTheElementsWithValues) {
    DriverAction check = action(ActionKind::assert_);
    check.selector = selectorWith("AXTextField", std::nullopt);
    Expectation expectation;
    expectation.valueEquals = "draft";
    check.expect = expectation;
    auto response = run(request({check}));
    expectResponseHeader(response, true);
    expectReceipts(response, {receipt("assert", std::nullopt, true, sampleState(kTarget), true,
                                      true, "r-1", std::nullopt, Elements{kName}, std::nullopt)});
    EXPECT_TRUE(pauses.pauses.empty());
}

TEST_F(ActionRouterTest, AFailingAssertRetriesThenReportsTheSelector) {
    DriverAction check = action(ActionKind::assert_);
    check.selector = selectorWith("AXButton", "Save");
    Expectation expectation;
    expectation.exists = true;
    expectation.minCount = 3;
    check.expect = expectation;
    auto response = run(request({check}));
    expectResponseHeader(response, false);
    expectReceipts(response, {receipt("assert", std::nullopt, true, sampleState(kTarget), false,
                                      true, "r-1", std::nullopt, Elements{kSave},
                                      "assertion failed: role=AXButton,title~=Save")});
    EXPECT_EQ(driver.calls, (Calls{{"query", "role=AXButton,title~=Save"},
                                   {"query", "role=AXButton,title~=Save"},
                                   {"query", "role=AXButton,title~=Save"},
                                   {"query", "role=AXButton,title~=Save"},
                                   {"structuralState", kTarget}}));
    EXPECT_EQ(pauses.pauses, (std::vector<double>{0.3, 0.3, 0.3}));
}

TEST_F(ActionRouterTest, AnAssertThatPassesOnTheSecondAttemptPausesOnce) {
    driver.script = {{}, {kSave}};
    DriverAction check = action(ActionKind::assert_);
    check.selector = selectorWith("AXButton", std::nullopt);
    auto response = run(request({check}));
    expectResponseHeader(response, true);
    StructuralState afterSettling{kTarget, 1, {{"AXButton", 1}}};
    expectReceipts(response, {receipt("assert", std::nullopt, true, afterSettling, true, true,
                                      "r-1", std::nullopt, Elements{kSave}, std::nullopt)});
    EXPECT_EQ(driver.calls, (Calls{{"query", "role=AXButton"},
                                   {"query", "role=AXButton"},
                                   {"structuralState", kTarget}}));
    EXPECT_EQ(pauses.pauses, (std::vector<double>{0.3}));
}

TEST_F(ActionRouterTest, AnAssertWithoutSelectorDescribesTheEmptySelector) {
    DriverAction check = action(ActionKind::assert_);
    Expectation expectation;
    expectation.exists = false;
    check.expect = expectation;
    auto response = run(request({check}), 2, 0.5);
    expectReceipts(response,
                   {receipt("assert", std::nullopt, true, sampleState(kTarget), false, true, "r-1",
                            std::nullopt, sampleElements(), "assertion failed: <any>")});
    EXPECT_EQ(pauses.pauses, (std::vector<double>{0.5}));
}

TEST_F(ActionRouterTest, AnAssertWhoseQueryFailsHasNoResultAndStopsRetrying) {
    driver.failOn = {"query"};
    DriverAction check = action(ActionKind::assert_);
    check.selector = selectorWith("AXButton", std::nullopt);
    auto response = run(request({check}));
    expectReceipts(response,
                   {receipt("assert", std::nullopt, true, sampleState(kTarget), false, true, "r-1",
                            std::nullopt, std::nullopt, "os failure: query")});
    EXPECT_EQ(driver.calls, (Calls{{"query", "role=AXButton"}, {"structuralState", kTarget}}));
    EXPECT_TRUE(pauses.pauses.empty());
}

TEST_F(ActionRouterTest, AssertRetriesAreClampedToOne) {
    for (int64_t retries : {0, -3}) {
        ObservedDriver local;
        PauseLog log;
        ActionRouter router(local, Clock::fixed(fixedDate(), "r"), retries, 0.3, log.sleep());
        EXPECT_EQ(router.assertRetries(), 1);
        EXPECT_EQ(router.assertRetryDelay(), 0.3);
        DriverAction check = action(ActionKind::assert_);
        check.selector = selectorWith("AXSheet", std::nullopt);
        auto response = router.run(request({check}));
        ASSERT_EQ(response.receipts.size(), 1u);
        EXPECT_FALSE(response.receipts[0].succeeded);
        EXPECT_EQ(local.calls, (Calls{{"query", "role=AXSheet"}, {"structuralState", kTarget}}));
        EXPECT_TRUE(log.pauses.empty());
    }
    ObservedDriver local;
    ActionRouter router(local, Clock::fixed(fixedDate(), "r"), 7, 0.25, pauses.sleep());
    EXPECT_EQ(router.assertRetries(), 7);
    EXPECT_EQ(router.assertRetryDelay(), 0.25);
}

// Screenshots

TEST_F(ActionRouterTest, AScreenshotDrawsItsFileIdBeforeTheReceiptId) {
    DriverRequest req(kSession, "lease", kTarget,
                      {action(ActionKind::screenshot), action(ActionKind::healthTick)},
                      std::nullopt, std::nullopt, {}, std::nullopt, "/shots");
    auto response = run(req);
    expectResponseHeader(response, true);
    expectReceipts(response,
                   {receipt("screenshot", std::nullopt, true, sampleState(kTarget), true, true,
                            "r-2", "/shots/sess-42-r-1.png", std::nullopt, std::nullopt),
                    receipt("healthTick", std::nullopt, true, sampleState(kTarget), true, true,
                            "r-3", std::nullopt, std::nullopt, std::nullopt)});
    EXPECT_EQ(driver.calls, (Calls{{"screenshot", "/shots/sess-42-r-1.png"},
                                   {"structuralState", kTarget},
                                   {"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, TheScreenshotDirectoryIsJoinedWithExactlyOneSeparator) {
    struct Case {
        std::string directory;
        std::string path;
    };
    for (const auto& c : std::vector<Case>{{"/shots", "/shots/sess-42-r-1.png"},
                                           {"/shots/", "/shots/sess-42-r-1.png"},
                                           {"/shots//", "/shots/sess-42-r-1.png"},
                                           {"/", "/sess-42-r-1.png"},
                                           {"relative/dir", "relative/dir/sess-42-r-1.png"},
                                           {"", "sess-42-r-1.png"}}) {
        ObservedDriver local;
        ActionRouter router(local, Clock::fixed(fixedDate(), "r"), 4, 0.3, pauses.sleep());
        DriverRequest req(kSession, "lease", kTarget, {action(ActionKind::screenshot)},
                          std::nullopt, std::nullopt, {}, std::nullopt, c.directory);
        auto response = router.run(req);
        ASSERT_EQ(response.receipts.size(), 1u);
        EXPECT_EQ(response.receipts[0].screenshotPath, std::optional<std::string>(c.path))
            << c.directory;
    }
}

#if !defined(__APPLE__)
// Elsewhere than on Apple platforms the temporary directory follows TMPDIR.
TEST_F(ActionRouterTest, WithoutADirectoryScreenshotsGoToTheTemporaryDirectory) {
    std::string made = ::testing::TempDir() + "router-tmp-XXXXXX";
    ASSERT_NE(mkdtemp(made.data()), nullptr);
    const char* previous = std::getenv("TMPDIR");
    std::optional<std::string> saved =
        previous ? std::optional<std::string>(previous) : std::nullopt;
    setenv("TMPDIR", (made + "/").c_str(), 1);
    auto response = run(request({action(ActionKind::screenshot)}));
    if (saved) {
        setenv("TMPDIR", saved->c_str(), 1);
    } else {
        unsetenv("TMPDIR");
    }
    std::filesystem::remove(made);
    expectReceipts(response,
                   {receipt("screenshot", std::nullopt, true, sampleState(kTarget), true, true,
                            "r-2", made + "/sess-42-r-1.png", std::nullopt, std::nullopt)});
}

#endif

// Sets environment variables for one test and puts back what was there.
class ScopedEnvironment {
  public:
    void set(const std::string& name, const std::optional<std::string>& value) {
        if (saved_.count(name) == 0) {
            const char* previous = std::getenv(name.c_str());
            saved_[name] = previous ? std::optional<std::string>(previous) : std::nullopt;
        }
        if (value) {
            setenv(name.c_str(), value->c_str(), 1);
        } else {
            unsetenv(name.c_str());
        }
    }
    ~ScopedEnvironment() {
        for (const auto& [name, value] : saved_) {
            if (value) {
                setenv(name.c_str(), value->c_str(), 1);
            } else {
                unsetenv(name.c_str());
            }
        }
    }

  private:
    std::map<std::string, std::optional<std::string>> saved_;
};

#if defined(__APPLE__)
TEST_F(ActionRouterTest, TheTemporaryDirectoryIsFoundationsPerUserFolder) {
    // NSTemporaryDirectory(): an absolute folder of the user's, with a trailing slash.
    const std::string directory = platformTemporaryDirectory();
    ASSERT_GT(directory.size(), 1u);
    EXPECT_EQ(directory.front(), '/');
    EXPECT_EQ(directory.back(), '/');
    auto response = run(request({action(ActionKind::screenshot)}));
    ASSERT_EQ(response.receipts.size(), 1u);
    EXPECT_EQ(response.receipts[0].screenshotPath, directory + "sess-42-r-1.png");
}
#else
TEST_F(ActionRouterTest, TheTemporaryDirectoryIsTmpdirAsGivenEvenWhenItDoesNotExist) {
    ScopedEnvironment environment;
    const std::string missing = ::testing::TempDir() + "velmora-no-such-dir/inner";
    ASSERT_FALSE(std::filesystem::exists(missing));
    environment.set("TMPDIR", missing);
    EXPECT_EQ(platformTemporaryDirectory(), missing + "/");
    auto response = run(request({action(ActionKind::screenshot)}));
    ASSERT_EQ(response.receipts.size(), 1u);
    EXPECT_EQ(response.receipts[0].screenshotPath, missing + "/sess-42-r-1.png");
    EXPECT_FALSE(std::filesystem::exists(missing));
}

TEST_F(ActionRouterTest, WithoutTmpdirTheTemporaryDirectoryIsTmpAndTmpOrTempAreIgnored) {
    ScopedEnvironment environment;
    environment.set("TMPDIR", std::nullopt);
    environment.set("TMP", std::nullopt);
    environment.set("TEMP", std::nullopt);
    EXPECT_EQ(platformTemporaryDirectory(), "/tmp/");
    environment.set("TMP", ::testing::TempDir());
    environment.set("TEMP", "/var/tmp");
    EXPECT_EQ(platformTemporaryDirectory(), "/tmp/");
    auto response = run(request({action(ActionKind::screenshot)}));
    ASSERT_EQ(response.receipts.size(), 1u);
    EXPECT_EQ(response.receipts[0].screenshotPath, "/tmp/sess-42-r-1.png");
}

TEST_F(ActionRouterTest, TmpdirIsTakenAsGivenWithOneSeparatorBeforeTheFileName) {
    ScopedEnvironment environment;
    environment.set("TMP", "/elsewhere");
    struct Case {
        std::string tmpdir;
        std::string directory;
        std::string path;
    };
    // A set but empty TMPDIR counts as set: the directory is then the root.
    for (const auto& c : std::vector<Case>{{"/shots", "/shots/", "/shots/sess-42-r-1.png"},
                                           {"/shots/", "/shots/", "/shots/sess-42-r-1.png"},
                                           {"/shots//", "/shots//", "/shots/sess-42-r-1.png"},
                                           {"relative", "relative/", "relative/sess-42-r-1.png"},
                                           {"", "/", "/sess-42-r-1.png"}}) {
        environment.set("TMPDIR", c.tmpdir);
        EXPECT_EQ(platformTemporaryDirectory(), c.directory) << c.tmpdir;
        ObservedDriver local;
        ActionRouter router(local, Clock::fixed(fixedDate(), "r"), 4, 0.3, pauses.sleep());
        auto response = router.run(request({action(ActionKind::screenshot)}));
        ASSERT_EQ(response.receipts.size(), 1u);
        EXPECT_EQ(response.receipts[0].screenshotPath, std::optional<std::string>(c.path))
            << c.tmpdir;
    }
}

#endif

TEST_F(ActionRouterTest, ScreenshotsRefusedByConsentNeverReachTheDriver) {
    DriverRequest req(kSession, "lease", kTarget, {action(ActionKind::screenshot)}, std::nullopt,
                      std::nullopt, {}, ConsentScope{false, true}, "/shots");
    auto response = run(req);
    expectResponseHeader(response, false);
    expectReceipts(response,
                   {receipt("screenshot", std::nullopt, true, sampleState(kTarget), false, true,
                            "r-1", std::nullopt, std::nullopt,
                            "consent denied for app: screenshots not permitted by consent scope")});
    EXPECT_EQ(driver.calls, (Calls{{"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, AConsentScopeThatAllowsScreenshotsIsHonoured) {
    DriverRequest req(kSession, "lease", kTarget, {action(ActionKind::screenshot)}, std::nullopt,
                      std::nullopt, {}, ConsentScope{true, false}, "/shots");
    auto response = run(req);
    expectResponseHeader(response, true);
    EXPECT_EQ(response.receipts.at(0).screenshotPath,
              std::optional<std::string>("/shots/sess-42-r-1.png"));
}

TEST_F(ActionRouterTest, AFailedCaptureHasNoPathButStillUsedAnId) {
    driver.screenshotShouldFail = true;
    DriverRequest req(kSession, "lease", kTarget, {action(ActionKind::screenshot)}, std::nullopt,
                      std::nullopt, {}, std::nullopt, "/shots");
    auto response = run(req);
    expectResponseHeader(response, false);
    expectReceipts(response,
                   {receipt("screenshot", std::nullopt, true, sampleState(kTarget), false, true,
                            "r-2", std::nullopt, std::nullopt, "screenshot failed: mock")});
    EXPECT_EQ(driver.calls,
              (Calls{{"screenshot", "/shots/sess-42-r-1.png"}, {"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, APlatformWriteErrorKeepsItsOwnText) {
    driver.screenshotThrows =
        std::make_exception_ptr(PlatformError("/shots/sess-42-r-1.png: Permission denied"));
    DriverRequest req(kSession, "lease", kTarget, {action(ActionKind::screenshot)}, std::nullopt,
                      std::nullopt, {}, std::nullopt, "/shots");
    auto response = run(req);
    expectReceipts(response, {receipt("screenshot", std::nullopt, true, sampleState(kTarget), false,
                                      true, "r-2", std::nullopt, std::nullopt,
                                      "/shots/sess-42-r-1.png: Permission denied")});
}

TEST_F(ActionRouterTest, OtherExceptionsAreRenderedWithTheirTypeAndMessage) {
    driver.screenshotThrows = std::make_exception_ptr(std::out_of_range("slot 9"));
    auto first = run(request({action(ActionKind::screenshot)}));
    EXPECT_EQ(first.receipts.at(0).errorMessage,
              std::optional<std::string>("std::out_of_range: slot 9"));
    driver.screenshotThrows = std::make_exception_ptr(42);
    auto second = run(request({action(ActionKind::screenshot)}));
    EXPECT_EQ(second.receipts.at(0).errorMessage, std::optional<std::string>("unknown error"));
    EXPECT_FALSE(second.receipts.at(0).succeeded);
    EXPECT_EQ(second.receipts.at(0).screenshotPath, std::nullopt);
}

// Input kinds

TEST_F(ActionRouterTest, AClickWithPointAndSelectorClicksThePoint) {
    DriverAction click = action(ActionKind::click);
    click.point = Point{100, 200};
    click.selector = selectorWith("AXButton", "Save");
    click.label = "save";
    auto response = run(request({click}));
    expectResponseHeader(response, true);
    expectReceipts(response, {receipt("click", "save", true, sampleState(kTarget), true, false,
                                      "r-1", std::nullopt, std::nullopt, std::nullopt)});
    EXPECT_EQ(driver.calls, (Calls{{"click", "100.0,200.0"}, {"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, AClickWithASelectorClicksTheCentreOfTheMatch) {
    DriverAction click = action(ActionKind::click);
    click.selector = selectorWith("AXButton", "save");
    auto response = run(request({click}));
    expectResponseHeader(response, true);
    expectReceipts(response, {receipt("click", std::nullopt, true, sampleState(kTarget), true,
                                      false, "r-1", std::nullopt, std::nullopt, std::nullopt)});
    EXPECT_EQ(driver.calls, (Calls{{"query", "role=AXButton,title~=save"},
                                   {"click", "120.0,210.0"},
                                   {"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, ADoubleClickDoublesTheClick) {
    DriverAction click = action(ActionKind::doubleClick);
    click.point = Point{0.5, 7.25};
    auto response = run(request({click}));
    expectReceipts(response, {receipt("doubleClick", std::nullopt, true, sampleState(kTarget), true,
                                      false, "r-1", std::nullopt, std::nullopt, std::nullopt)});
    EXPECT_EQ(driver.calls, (Calls{{"doubleClick", "0.5,7.25"}, {"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, AClickWhoseSelectorFindsNothingNamesTheSelector) {
    DriverAction click = action(ActionKind::doubleClick);
    click.selector = selectorWith("AXButton", "Nope");
    auto response = run(request({click}));
    expectResponseHeader(response, false);
    expectReceipts(response, {receipt("doubleClick", std::nullopt, true, sampleState(kTarget),
                                      false, false, "r-1", std::nullopt, std::nullopt,
                                      "element not found: role=AXButton,title~=Nope")});
    EXPECT_EQ(driver.calls,
              (Calls{{"query", "role=AXButton,title~=Nope"}, {"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, AClickOnAFramelessMatchIsNotFound) {
    DriverAction click = action(ActionKind::click);
    click.selector = selectorWith("AXStaticText", std::nullopt);
    auto response = run(request({click}));
    EXPECT_EQ(response.receipts.at(0).errorMessage,
              std::optional<std::string>("element not found: role=AXStaticText"));
}

TEST_F(ActionRouterTest, AClickWithoutPointOrSelectorFailsAfterBringingTheTargetForward) {
    ObservedDriver other("com.other.app");
    ActionRouter router(other, Clock::fixed(fixedDate(), "r"), 4, 0.3, pauses.sleep());
    auto response = router.run(request({action(ActionKind::click)}));
    expectResponseHeader(response, false);
    expectReceipts(response, {receipt("click", std::nullopt, true, sampleState(kTarget), false,
                                      false, "r-1", std::nullopt, std::nullopt,
                                      "os failure: click requires point or selector")});
    EXPECT_EQ(other.calls, (Calls{{"focus", kTarget}, {"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, TypeTextTypesEvenAnEmptyText) {
    DriverAction typeEmpty = action(ActionKind::typeText);
    typeEmpty.text = "";
    DriverAction typeHello = action(ActionKind::typeText);
    typeHello.text = "Hello, world";
    auto response = run(request({typeEmpty, typeHello}));
    expectResponseHeader(response, true);
    expectReceipts(response, {receipt("typeText", std::nullopt, true, sampleState(kTarget), true,
                                      false, "r-1", std::nullopt, std::nullopt, std::nullopt),
                              receipt("typeText", std::nullopt, true, sampleState(kTarget), true,
                                      false, "r-2", std::nullopt, std::nullopt, std::nullopt)});
    EXPECT_EQ(driver.calls, (Calls{{"typeText", ""},
                                   {"structuralState", kTarget},
                                   {"typeText", "Hello, world"},
                                   {"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, TypeTextWithoutTextFails) {
    auto response = run(request({action(ActionKind::typeText)}));
    expectReceipts(response, {receipt("typeText", std::nullopt, true, sampleState(kTarget), false,
                                      false, "r-1", std::nullopt, std::nullopt,
                                      "os failure: typeText requires text")});
    EXPECT_EQ(driver.calls, (Calls{{"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, KeyPressNeedsANonEmptyKeyList) {
    DriverAction emptyKeys = action(ActionKind::keyPress);
    emptyKeys.keys = std::vector<std::string>{};
    DriverAction noKeys = action(ActionKind::keyPress);
    DriverAction save = action(ActionKind::keyPress);
    save.keys = std::vector<std::string>{"cmd+s", "return"};
    auto response = run(request({emptyKeys, noKeys, save}));
    expectResponseHeader(response, false);
    expectReceipts(
        response, {receipt("keyPress", std::nullopt, true, sampleState(kTarget), false, false,
                           "r-1", std::nullopt, std::nullopt, "os failure: keyPress requires keys"),
                   receipt("keyPress", std::nullopt, true, sampleState(kTarget), false, false,
                           "r-2", std::nullopt, std::nullopt, "os failure: keyPress requires keys"),
                   receipt("keyPress", std::nullopt, true, sampleState(kTarget), true, false, "r-3",
                           std::nullopt, std::nullopt, std::nullopt)});
    EXPECT_EQ(driver.calls, (Calls{{"structuralState", kTarget},
                                   {"structuralState", kTarget},
                                   {"pressKeys", "cmd+s+return"},
                                   {"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, ScrollNeedsASpec) {
    DriverAction noSpec = action(ActionKind::scroll);
    DriverAction down = action(ActionKind::scroll);
    down.scroll = ScrollSpec{0, -3, Point{10, 10}};
    auto response = run(request({noSpec, down}));
    expectReceipts(response,
                   {receipt("scroll", std::nullopt, true, sampleState(kTarget), false, false, "r-1",
                            std::nullopt, std::nullopt, "os failure: scroll requires spec"),
                    receipt("scroll", std::nullopt, true, sampleState(kTarget), true, false, "r-2",
                            std::nullopt, std::nullopt, std::nullopt)});
    EXPECT_EQ(
        driver.calls,
        (Calls{{"structuralState", kTarget}, {"scroll", "0,-3"}, {"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, AnInputKindFocusesATargetThatIsNotInFront) {
    ObservedDriver other("com.other.app");
    ActionRouter router(other, Clock::fixed(fixedDate(), "r"), 4, 0.3, pauses.sleep());
    DriverAction type = action(ActionKind::typeText);
    type.text = "x";
    auto response = router.run(request({type, type}));
    expectResponseHeader(response, true);
    expectReceipts(response, {receipt("typeText", std::nullopt, true, sampleState(kTarget), true,
                                      false, "r-1", std::nullopt, std::nullopt, std::nullopt),
                              receipt("typeText", std::nullopt, true, sampleState(kTarget), true,
                                      false, "r-2", std::nullopt, std::nullopt, std::nullopt)});
    // Focused once; the second action finds the target already in front.
    EXPECT_EQ(other.calls, (Calls{{"focus", kTarget},
                                  {"typeText", "x"},
                                  {"structuralState", kTarget},
                                  {"typeText", "x"},
                                  {"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, AnInputKindThatCannotBringTheTargetForwardIsNotCalled) {
    ObservedDriver other("com.other.app");
    other.focusSucceeds = false;
    ActionRouter router(other, Clock::fixed(fixedDate(), "r"), 4, 0.3, pauses.sleep());
    DriverAction click = action(ActionKind::click);
    click.point = Point{1, 2};
    auto response = router.run(request({click}));
    expectResponseHeader(response, false);
    expectReceipts(
        response,
        {receipt("click", std::nullopt, false, sampleState("com.other.app"), false, false, "r-1",
                 std::nullopt, std::nullopt,
                 "target not frontmost: expected com.example.editor, got com.other.app")});
    EXPECT_EQ(other.calls, (Calls{{"focus", kTarget}, {"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, NotFrontmostWithNothingInFrontSaysNone) {
    ObservedDriver nothing(std::nullopt);
    nothing.focusSucceeds = false;
    ActionRouter router(nothing, Clock::fixed(fixedDate(), "r"), 4, 0.3, pauses.sleep());
    DriverAction keys = action(ActionKind::keyPress);
    keys.keys = std::vector<std::string>{"a"};
    auto response = router.run(request({keys}));
    expectReceipts(
        response, {receipt("keyPress", std::nullopt, false, sampleState(std::nullopt), false, false,
                           "r-1", std::nullopt, std::nullopt,
                           "target not frontmost: expected com.example.editor, got none")});
    EXPECT_EQ(nothing.calls, (Calls{{"focus", kTarget}, {"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, AFrontmostReadingThatThrowsMakesAnInputKindFocus) {
    driver.frontmostThrows = std::make_exception_ptr(std::runtime_error("workspace gone"));
    driver.focusSucceeds = false;
    DriverAction type = action(ActionKind::typeText);
    type.text = "x";
    auto response = run(request({type}));
    // The focus says the target is in front, so the input goes ahead.
    expectReceipts(response, {receipt("typeText", std::nullopt, true, sampleState(kTarget), true,
                                      false, "r-1", std::nullopt, std::nullopt, std::nullopt)});
    EXPECT_EQ(driver.calls,
              (Calls{{"focus", kTarget}, {"typeText", "x"}, {"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, AFocusErrorFailsTheInputKind) {
    ObservedDriver other("com.other.app");
    other.failOn = {"focus"};
    ActionRouter router(other, Clock::fixed(fixedDate(), "r"), 4, 0.3, pauses.sleep());
    DriverAction scroll = action(ActionKind::scroll);
    scroll.scroll = ScrollSpec{1, 1, std::nullopt};
    auto response = router.run(request({scroll}));
    expectReceipts(response,
                   {receipt("scroll", std::nullopt, false, sampleState("com.other.app"), false,
                            false, "r-1", std::nullopt, std::nullopt, "os failure: focus")});
    EXPECT_EQ(other.calls, (Calls{{"focus", kTarget}, {"structuralState", kTarget}}));
}

TEST_F(ActionRouterTest, InputKindsAreNeverReversibleAndFailuresDoNotStopTheRun) {
    driver.failOn = {"click", "typeText"};
    DriverAction click = action(ActionKind::click);
    click.point = Point{3, 4};
    DriverAction type = action(ActionKind::typeText);
    type.text = "t";
    auto response = run(request({click, type, action(ActionKind::healthTick)}));
    expectResponseHeader(response, false);
    expectReceipts(response,
                   {receipt("click", std::nullopt, true, sampleState(kTarget), false, false, "r-1",
                            std::nullopt, std::nullopt, "os failure: click"),
                    receipt("typeText", std::nullopt, true, sampleState(kTarget), false, false,
                            "r-2", std::nullopt, std::nullopt, "os failure: typeText"),
                    receipt("healthTick", std::nullopt, true, sampleState(kTarget), true, true,
                            "r-3", std::nullopt, std::nullopt, std::nullopt)});
}

// Structural state

TEST_F(ActionRouterTest, AMissingStructuralStateIsReplacedBySubstitute) {
    driver.failOn = {"structuralState"};
    auto response = run(request({action(ActionKind::healthTick)}));
    expectResponseHeader(response, true);
    expectReceipts(response,
                   {receipt("healthTick", std::nullopt, true, StructuralState{kTarget, 0, {}}, true,
                            true, "r-1", std::nullopt, std::nullopt, std::nullopt)});
    EXPECT_EQ(driver.frontmostReads, 2);
}

TEST_F(ActionRouterTest, TheSubstituteHasNoFrontmostWhenThatReadingFailsToo) {
    driver.stateThrows = std::make_exception_ptr(std::bad_alloc());
    driver.frontmostThrows = std::make_exception_ptr(DriverError::osFailure("workspace"));
    auto response = run(request({action(ActionKind::launch)}));
    expectResponseHeader(response, true);
    expectReceipts(response,
                   {receipt("launch", std::nullopt, false, StructuralState{std::nullopt, 0, {}},
                            true, true, "r-1", std::nullopt, std::nullopt, std::nullopt)});
}

// The run as a whole

TEST_F(ActionRouterTest, TheSessionAndProtocolAreTheRequestsAndTheConstant) {
    DriverRequest req("another-session", "lease", kTarget, {});
    ActionRouter router(driver, Clock::fixed(fixedDate(), "r"), 4, 0.3, pauses.sleep());
    auto response = router.run(req);
    EXPECT_EQ(response.sessionId, "another-session");
    EXPECT_EQ(response.protocolVersion, "velmora.driver_broker.v1");
    EXPECT_TRUE(response.ok);
    EXPECT_EQ(response.error, std::nullopt);
}

TEST_F(ActionRouterTest, RunningAgainContinuesTheClock) {
    ActionRouter router(driver, Clock::fixed(fixedDate(), "r"), 4, 0.3, pauses.sleep());
    auto first = router.run(request({action(ActionKind::healthTick)}));
    auto second = router.run(request({action(ActionKind::healthTick)}));
    EXPECT_EQ(first.receipts.at(0).receiptId, "r-1");
    EXPECT_EQ(second.receipts.at(0).receiptId, "r-2");
    EXPECT_EQ(driver.shaReads, 2);
}

TEST_F(ActionRouterTest, TimestampsComeFromTheClock) {
    int ticks = 0;
    Clock ticking{
        [&ticks] {
            return std::chrono::system_clock::time_point(std::chrono::seconds(ticks++ * 61));
        },
        [] { return std::string("id"); }};
    ActionRouter router(driver, ticking, 4, 0.3, pauses.sleep());
    auto response =
        router.run(request({action(ActionKind::healthTick), action(ActionKind::healthTick)}));
    EXPECT_EQ(response.receipts.at(0).ts, "1970-01-01T00:00:00Z");
    EXPECT_EQ(response.receipts.at(1).ts, "1970-01-01T00:01:01Z");
    EXPECT_EQ(response.receipts.at(1).receiptId, "id");
}

TEST_F(ActionRouterTest, NeverThrowsEvenWhenTheClockDoes) {
    Clock broken{[] { return fixedDate(); },
                 []() -> std::string { throw std::runtime_error("no ids left"); }};
    ActionRouter router(driver, broken, 4, 0.3, pauses.sleep());
    DriverResponse response("", false, {});
    EXPECT_NO_THROW(response = router.run(request({action(ActionKind::healthTick)})));
    expectResponseHeader(response, false, "std::runtime_error: no ids left");
    EXPECT_TRUE(response.receipts.empty());
}

TEST_F(ActionRouterTest, AScreenshotIdFromABrokenClockFailsOnlyThatAction) {
    int drawn = 0;
    Clock flaky{[] { return fixedDate(); },
                [&drawn]() -> std::string {
                    if (drawn++ == 0) {
                        throw std::runtime_error("first id lost");
                    }
                    return "id-" + std::to_string(drawn);
                }};
    ActionRouter router(driver, flaky, 4, 0.3, pauses.sleep());
    auto response = router.run(request({action(ActionKind::screenshot)}));
    expectResponseHeader(response, false);
    expectReceipts(response, {receipt("screenshot", std::nullopt, true, sampleState(kTarget), false,
                                      true, "id-2", std::nullopt, std::nullopt,
                                      "std::runtime_error: first id lost")});
}

TEST(DescribeFailureTest, RendersEachKindOfFailure) {
    EXPECT_EQ(describeFailure(std::make_exception_ptr(DriverError::appNotRunning("com.a"))),
              "app not running: com.a");
    EXPECT_EQ(describeFailure(std::make_exception_ptr(PlatformError("disk full"))), "disk full");
    EXPECT_EQ(describeFailure(std::make_exception_ptr(std::runtime_error("boom"))),
              "std::runtime_error: boom");
    EXPECT_EQ(describeFailure(std::make_exception_ptr(std::string("text"))), "unknown error");
}

}  // namespace
}  // namespace velmora
