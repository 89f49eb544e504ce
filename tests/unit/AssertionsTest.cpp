#include "core/routing/Assertions.h"

#include <gtest/gtest.h>

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "core/driver/MockDriver.h"

namespace velmora {
namespace {

using Calls = std::vector<MockDriver::Call>;
using Elements = std::vector<ElementInfo>;

ElementInfo valued(std::string role, std::optional<std::string> value) {
    ElementInfo info;
    info.role = std::move(role);
    info.valuePresent = value.has_value();
    info.value = std::move(value);
    return info;
}

Expectation expecting(std::optional<bool> exists, std::optional<std::string> valueEquals,
                      std::optional<std::string> valueContains, std::optional<int64_t> minCount) {
    Expectation expectation;
    expectation.exists = exists;
    expectation.valueEquals = std::move(valueEquals);
    expectation.valueContains = std::move(valueContains);
    expectation.minCount = minCount;
    return expectation;
}

constexpr std::nullopt_t none = std::nullopt;

// A mock whose element list moves on to the next scripted list at every query,
// so a test can make the UI "settle" between attempts.
class SettlingDriver : public MockDriver {
  public:
    explicit SettlingDriver(std::deque<Elements> script)
        : MockDriver("com.a", {}, "sha"), script_(std::move(script)) {}

    std::vector<ElementInfo> query(const std::string& bundleId,
                                   const std::optional<ElementSelector>& selector,
                                   bool includeValues) override {
        if (!script_.empty()) {
            elements = script_.front();
            script_.pop_front();
        }
        return MockDriver::query(bundleId, selector, includeValues);
    }

  private:
    std::deque<Elements> script_;
};

struct PauseLog {
    std::vector<double> pauses;
    Sleep sleep() {
        return [this](double seconds) { pauses.push_back(seconds); };
    }
};

DriverAction assertAction(std::optional<ElementSelector> selector,
                          std::optional<Expectation> expect) {
    DriverAction action;
    action.kind = ActionKind::assert_;
    action.selector = std::move(selector);
    action.expect = std::move(expect);
    return action;
}

ElementSelector byRole(std::string role) {
    ElementSelector selector;
    selector.role = std::move(role);
    return selector;
}

// checkExpectation

TEST(CheckExpectationTest, ExistsTrueNeedsAnElement) {
    EXPECT_TRUE(checkExpectation(expecting(true, none, none, none), {valued("AXCell", none)}));
    EXPECT_FALSE(checkExpectation(expecting(true, none, none, none), {}));
}

TEST(CheckExpectationTest, ExistsFalseWithZeroElementsStillFails) {
    EXPECT_FALSE(checkExpectation(expecting(false, none, none, none), {}));
}

TEST(CheckExpectationTest, ExistsFalseWithElementsFails) {
    EXPECT_FALSE(checkExpectation(expecting(false, none, none, none), {valued("AXCell", none)}));
}

TEST(CheckExpectationTest, EmptyExpectationNeedsAnElement) {
    EXPECT_TRUE(checkExpectation(Expectation{}, {valued("AXCell", none)}));
    EXPECT_FALSE(checkExpectation(Expectation{}, {}));
}

TEST(CheckExpectationTest, MinCountIsALowerBound) {
    Elements two{valued("AXCell", none), valued("AXCell", none)};
    EXPECT_FALSE(checkExpectation(expecting(true, none, none, 3), two));
    EXPECT_TRUE(checkExpectation(expecting(none, none, none, 2), two));
    EXPECT_TRUE(checkExpectation(expecting(none, none, none, 1), two));
    // minCount 0 holds for no elements, but the final "some element" test does not.
    EXPECT_FALSE(checkExpectation(expecting(none, none, none, 0), {}));
    EXPECT_TRUE(checkExpectation(expecting(none, none, none, -4), two));
}

TEST(CheckExpectationTest, ValueEqualsIsExactAndCaseSensitive) {
    EXPECT_FALSE(checkExpectation(expecting(none, "OK", none, none), {valued("AXCell", "ok")}));
    EXPECT_TRUE(checkExpectation(expecting(none, "ok", none, none),
                                 {valued("AXCell", "nope"), valued("AXCell", "ok")}));
    EXPECT_FALSE(checkExpectation(expecting(none, "ok", none, none), {valued("AXCell", "ok ")}));
}

TEST(CheckExpectationTest, EmptyValueEqualsMatchesAnAbsentValue) {
    EXPECT_TRUE(checkExpectation(expecting(none, "", none, none), {valued("AXCell", none)}));
    EXPECT_FALSE(checkExpectation(expecting(none, "", none, none), {valued("AXCell", "x")}));
    EXPECT_FALSE(checkExpectation(expecting(none, "", none, none), {}));
}

TEST(CheckExpectationTest, ValueContainsFoldsCase) {
    EXPECT_TRUE(
        checkExpectation(expecting(none, none, "OK", none), {valued("AXCell", "ok, done")}));
    EXPECT_FALSE(checkExpectation(expecting(none, none, "OK", none), {valued("AXCell", "o k")}));
    EXPECT_FALSE(checkExpectation(expecting(none, none, "OK", none), {valued("AXCell", none)}));
}

TEST(CheckExpectationTest, ValuesCompareInEitherCanonicalForm) {
    // "Café" with "é" as one code point, and as "e" and a combining accent.
    const std::string precomposed = "Caf\u00E9";
    const std::string decomposed = "Cafe\u0301";
    EXPECT_TRUE(checkExpectation(expecting(none, decomposed, none, none),
                                 {valued("AXTextField", precomposed)}));
    EXPECT_TRUE(checkExpectation(expecting(none, precomposed, none, none),
                                 {valued("AXTextField", decomposed)}));
    EXPECT_TRUE(checkExpectation(expecting(none, none, "CAF\u00C9", none),
                                 {valued("AXTextField", decomposed + " au lait")}));
    EXPECT_TRUE(checkExpectation(expecting(none, none, "cafe\u0301 au", none),
                                 {valued("AXTextField", precomposed + " au lait")}));
    // Equality stays whole and case-sensitive; the accent still counts.
    EXPECT_FALSE(checkExpectation(expecting(none, "CAFE\u0301", none, none),
                                  {valued("AXTextField", precomposed)}));
    EXPECT_FALSE(checkExpectation(expecting(none, "Cafe", none, none),
                                  {valued("AXTextField", precomposed)}));
    EXPECT_FALSE(
        checkExpectation(expecting(none, none, "cafe", none), {valued("AXTextField", decomposed)}));
}

TEST(CheckExpectationTest, EmptyValueContainsMatchesNothing) {
    EXPECT_FALSE(checkExpectation(expecting(none, none, "", none), {valued("AXCell", "anything")}));
    EXPECT_FALSE(checkExpectation(expecting(none, none, "", none), {valued("AXCell", none)}));
}

TEST(CheckExpectationTest, ValueEqualsWinsOverValueContains) {
    Elements elements{valued("AXCell", "Report")};
    EXPECT_TRUE(checkExpectation(expecting(none, "Report", "absent-text", none), elements));
    EXPECT_FALSE(checkExpectation(expecting(none, "report", "REPORT", none), elements));
}

TEST(CheckExpectationTest, EarlierChecksStillApplyBeforeValues) {
    Elements one{valued("AXCell", "ok")};
    EXPECT_FALSE(checkExpectation(expecting(false, "ok", none, none), one));
    EXPECT_FALSE(checkExpectation(expecting(none, "ok", none, 2), one));
    EXPECT_TRUE(checkExpectation(expecting(true, "ok", none, 1), one));
}

// evaluateAssert

TEST(EvaluateAssertTest, FailingAssertQueriesEveryAttemptAndPausesBetween) {
    MockDriver driver("com.a", {valued("AXCell", "a"), valued("AXCell", "b")}, "sha");
    PauseLog log;
    auto outcome =
        evaluateAssert(driver, assertAction(byRole("AXCell"), expecting(true, none, none, 3)),
                       "com.a", 4, 0.3, log.sleep());
    EXPECT_FALSE(outcome.passed);
    EXPECT_EQ(outcome.elements, (Elements{valued("AXCell", "a"), valued("AXCell", "b")}));
    EXPECT_EQ(driver.calls, (Calls(4, {"query", "role=AXCell"})));
    EXPECT_EQ(log.pauses, (std::vector<double>{0.3, 0.3, 0.3}));
}

TEST(EvaluateAssertTest, PassingOnTheSecondAttemptStopsThere) {
    SettlingDriver driver({{}, {valued("AXSheet", none)}, {}});
    PauseLog log;
    auto outcome =
        evaluateAssert(driver, assertAction(byRole("AXSheet"), none), "com.a", 4, 0.3, log.sleep());
    EXPECT_TRUE(outcome.passed);
    EXPECT_EQ(outcome.elements, (Elements{valued("AXSheet", none)}));
    EXPECT_EQ(driver.calls, (Calls(2, {"query", "role=AXSheet"})));
    EXPECT_EQ(log.pauses, (std::vector<double>{0.3}));
}

TEST(EvaluateAssertTest, PassingAtOnceNeverPauses) {
    MockDriver driver("com.a", {valued("AXCell", "x")}, "sha");
    PauseLog log;
    auto outcome = evaluateAssert(driver, assertAction(none, none), "com.a", 4, 0.3, log.sleep());
    EXPECT_TRUE(outcome.passed);
    EXPECT_EQ(driver.calls.size(), 1u);
    EXPECT_TRUE(log.pauses.empty());
}

TEST(EvaluateAssertTest, ReturnsTheElementsOfTheLastAttempt) {
    SettlingDriver driver(
        {{valued("AXCell", "1")}, {valued("AXCell", "2")}, {valued("AXCell", "3")}});
    PauseLog log;
    auto outcome = evaluateAssert(driver, assertAction(none, expecting(none, "never", none, none)),
                                  "com.a", 3, 0.05, log.sleep());
    EXPECT_FALSE(outcome.passed);
    EXPECT_EQ(outcome.elements, (Elements{valued("AXCell", "3")}));
    EXPECT_EQ(log.pauses, (std::vector<double>{0.05, 0.05}));
}

TEST(EvaluateAssertTest, AbsentSelectorIsTheEmptySelectorAndValuesAreRequested) {
    MockDriver driver("com.a", {valued("AXCell", "secret value")}, "sha");
    PauseLog log;
    auto outcome = evaluateAssert(driver, assertAction(none, expecting(none, none, "SECRET", none)),
                                  "com.a", 4, 0.3, log.sleep());
    EXPECT_TRUE(outcome.passed);
    // Values came back: the query asked for them.
    EXPECT_EQ(outcome.elements, (Elements{valued("AXCell", "secret value")}));
    EXPECT_EQ(driver.calls, (Calls{{"query", "<any>"}}));
}

TEST(EvaluateAssertTest, AbsentExpectationMeansExists) {
    MockDriver driver("com.a", {}, "sha");
    PauseLog log;
    auto outcome = evaluateAssert(driver, assertAction(none, none), "com.a", 2, 1.5, log.sleep());
    EXPECT_FALSE(outcome.passed);
    EXPECT_TRUE(outcome.elements.empty());
    EXPECT_EQ(driver.calls.size(), 2u);
    EXPECT_EQ(log.pauses, (std::vector<double>{1.5}));
}

TEST(EvaluateAssertTest, ExistsFalseNeverPassesEvenWhenNothingMatches) {
    MockDriver driver("com.a", {}, "sha");
    PauseLog log;
    auto outcome =
        evaluateAssert(driver, assertAction(byRole("AXSheet"), expecting(false, none, none, none)),
                       "com.a", 4, 0.3, log.sleep());
    EXPECT_FALSE(outcome.passed);
    EXPECT_EQ(driver.calls.size(), 4u);
    EXPECT_EQ(log.pauses.size(), 3u);
}

TEST(EvaluateAssertTest, AQueryErrorStopsAtOnceAndPropagates) {
    MockDriver driver("com.a", {}, "sha");
    driver.failOn = {"query"};
    PauseLog log;
    try {
        evaluateAssert(driver, assertAction(byRole("AXCell"), none), "com.a", 4, 0.3, log.sleep());
        FAIL() << "expected the query error";
    } catch (const DriverError& error) {
        EXPECT_EQ(error, DriverError::osFailure("query"));
    }
    EXPECT_EQ(driver.calls, (Calls{{"query", "role=AXCell"}}));
    EXPECT_TRUE(log.pauses.empty());
}

// Fails on the second query, after a first one that did not satisfy.
class FailingLaterDriver : public MockDriver {
  public:
    FailingLaterDriver() : MockDriver("com.a", {}, "sha") {}
    std::vector<ElementInfo> query(const std::string& bundleId,
                                   const std::optional<ElementSelector>& selector,
                                   bool includeValues) override {
        if (calls.size() == 1) {
            failOn.insert("query");
        }
        return MockDriver::query(bundleId, selector, includeValues);
    }
};

TEST(EvaluateAssertTest, AQueryErrorOnALaterAttemptEndsTheLoop) {
    FailingLaterDriver driver;
    PauseLog log;
    EXPECT_THROW(evaluateAssert(driver, assertAction(none, none), "com.a", 4, 0.3, log.sleep()),
                 DriverError);
    EXPECT_EQ(driver.calls.size(), 2u);
    EXPECT_EQ(log.pauses, (std::vector<double>{0.3}));
}

TEST(EvaluateAssertTest, NoAttemptsChecksAnEmptyListWithoutQuerying) {
    MockDriver driver("com.a", {valued("AXCell", "x")}, "sha");
    PauseLog log;
    auto outcome = evaluateAssert(driver, assertAction(none, none), "com.a", 0, 0.3, log.sleep());
    EXPECT_FALSE(outcome.passed);
    EXPECT_TRUE(outcome.elements.empty());
    EXPECT_TRUE(driver.calls.empty());
    EXPECT_TRUE(log.pauses.empty());
}

TEST(EvaluateAssertTest, OneAttemptNeverPauses) {
    MockDriver driver("com.a", {}, "sha");
    PauseLog log;
    auto outcome = evaluateAssert(driver, assertAction(none, none), "com.a", 1, 0.3, log.sleep());
    EXPECT_FALSE(outcome.passed);
    EXPECT_EQ(driver.calls.size(), 1u);
    EXPECT_TRUE(log.pauses.empty());
}

TEST(EvaluateAssertTest, SelectorIndexNarrowsWhatIsChecked) {
    MockDriver driver("com.a", {valued("AXCell", "first"), valued("AXCell", "second")}, "sha");
    PauseLog log;
    ElementSelector selector = byRole("AXCell");
    selector.index = 1;
    auto outcome =
        evaluateAssert(driver, assertAction(selector, expecting(none, "first", none, none)),
                       "com.a", 2, 0.3, log.sleep());
    EXPECT_FALSE(outcome.passed);
    EXPECT_EQ(outcome.elements, (Elements{valued("AXCell", "second")}));
}

}  // namespace
}  // namespace velmora
