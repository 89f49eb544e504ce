#include "core/driver/MockDriver.h"
#include "tests/support/Elements.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace velmora {
namespace {

using Calls = std::vector<MockDriver::Call>;

using testing::element;
using testing::withoutValue;

ElementSelector selectorWith(std::optional<std::string> role, std::optional<std::string> title,
                             std::optional<std::string> identifier = std::nullopt,
                             std::optional<std::string> valueContains = std::nullopt,
                             std::optional<int64_t> index = std::nullopt) {
    ElementSelector selector;
    selector.role = std::move(role);
    selector.title = std::move(title);
    selector.identifier = std::move(identifier);
    selector.valueContains = std::move(valueContains);
    selector.index = index;
    return selector;
}

template <typename Operation>
DriverError thrownBy(Operation operation) {
    try {
        operation();
    } catch (const DriverError& error) {
        return error;
    }
    ADD_FAILURE() << "expected a DriverError";
    return DriverError::osFailure("<nothing thrown>");
}

std::vector<ElementInfo> sampleElements() {
    return {
        element("AXButton", "Save As", "save-as", std::nullopt, Rect{0, 0, 10, 10}),
        element("AXTextField", "Name", "name", "Report, final"),
        element("AXButton", "Cancel", std::nullopt, std::nullopt, Rect{20, 0, 10, 10}),
        element("AXStaticText", std::nullopt, std::nullopt, "ok"),
    };
}

TEST(MockDriverTest, StartsWithTheGivenStateAndDefaults) {
    MockDriver driver("com.a", sampleElements(), "abc");
    EXPECT_EQ(driver.frontmost, std::optional<std::string>("com.a"));
    EXPECT_EQ(driver.elements, sampleElements());
    EXPECT_EQ(driver.sha, "abc");
    EXPECT_TRUE(driver.calls.empty());
    EXPECT_TRUE(driver.failOn.empty());
    EXPECT_TRUE(driver.focusSucceeds);
    EXPECT_FALSE(driver.screenshotShouldFail);
}

TEST(MockDriverTest, CallEquality) {
    EXPECT_EQ((MockDriver::Call{"a", "b"}), (MockDriver::Call{"a", "b"}));
    EXPECT_NE((MockDriver::Call{"a", "b"}), (MockDriver::Call{"a", "c"}));
    EXPECT_NE((MockDriver::Call{"a", "b"}), (MockDriver::Call{"x", "b"}));
}

TEST(MockDriverTest, FrontmostAndShaAreNotLoggedAndNeverFail) {
    MockDriver driver(std::nullopt, {}, "feed");
    driver.failOn = {"frontmostBundleId", "binarySha256", "frontmost", "sha"};
    EXPECT_EQ(driver.frontmostBundleId(), std::nullopt);
    EXPECT_EQ(driver.binarySha256("com.any"), "feed");
    EXPECT_EQ(driver.binarySha256("com.other"), "feed");
    driver.frontmost = "com.b";
    EXPECT_EQ(driver.frontmostBundleId(), std::optional<std::string>("com.b"));
    EXPECT_TRUE(driver.calls.empty());
}

TEST(MockDriverTest, FocusThatSucceedsBringsTheAppForward) {
    MockDriver driver("com.other", {}, "sha");
    EXPECT_TRUE(driver.focus("com.a"));
    EXPECT_EQ(driver.frontmost, std::optional<std::string>("com.a"));
    EXPECT_EQ(driver.calls, (Calls{{"focus", "com.a"}}));
}

TEST(MockDriverTest, FocusThatFailsWithNothingFrontmostReturnsFalse) {
    MockDriver driver(std::nullopt, {}, "sha");
    driver.focusSucceeds = false;
    EXPECT_FALSE(driver.focus("com.a"));
    EXPECT_EQ(driver.frontmost, std::nullopt);
    EXPECT_EQ(driver.calls, (Calls{{"focus", "com.a"}}));
}

TEST(MockDriverTest, FocusThatFailsReportsWhetherTheAppAlreadyWasFrontmost) {
    MockDriver driver("com.a", {}, "sha");
    driver.focusSucceeds = false;
    EXPECT_TRUE(driver.focus("com.a"));
    EXPECT_FALSE(driver.focus("com.b"));
    EXPECT_EQ(driver.frontmost, std::optional<std::string>("com.a"));
}

TEST(MockDriverTest, FailingFocusIsLoggedAndLeavesFrontmostAlone) {
    MockDriver driver("com.other", {}, "sha");
    driver.failOn = {"focus"};
    DriverError error = thrownBy([&] { driver.focus("com.a"); });
    EXPECT_EQ(error, DriverError::osFailure("focus"));
    EXPECT_EQ(error.description(), "os failure: focus");
    EXPECT_EQ(driver.calls, (Calls{{"focus", "com.a"}}));
    EXPECT_EQ(driver.frontmost, std::optional<std::string>("com.other"));
}

TEST(MockDriverTest, EveryLoggedOperationFailsAfterLoggingWhenNamed) {
    struct Case {
        std::string op;
        std::function<void(MockDriver&)> call;
        MockDriver::Call logged;
    };
    std::vector<Case> cases = {
        {"launch", [](MockDriver& d) { d.launch("com.a"); }, {"launch", "com.a"}},
        {"click",
         [](MockDriver& d) {
             d.click(Point{1, 2}, false);
         },
         {"click", "1.0,2.0"}},
        {"doubleClick",
         [](MockDriver& d) {
             d.click(Point{1, 2}, true);
         },
         {"doubleClick", "1.0,2.0"}},
        {"typeText", [](MockDriver& d) { d.typeText("hi"); }, {"typeText", "hi"}},
        {"pressKeys", [](MockDriver& d) { d.pressKeys({"cmd+s"}); }, {"pressKeys", "cmd+s"}},
        {"scroll",
         [](MockDriver& d) {
             d.scroll(ScrollSpec{1, 2, std::nullopt});
         },
         {"scroll", "1,2"}},
        {"query", [](MockDriver& d) { d.query("com.a", std::nullopt, true); }, {"query", "<all>"}},
        {"structuralState",
         [](MockDriver& d) { d.structuralState("com.a"); },
         {"structuralState", "com.a"}},
        {"screenshot",
         [](MockDriver& d) { d.screenshot("com.a", "/tmp/x.png"); },
         {"screenshot", "/tmp/x.png"}},
    };
    for (const auto& c : cases) {
        MockDriver driver("com.a", sampleElements(), "sha");
        driver.failOn = {c.op};
        DriverError error = thrownBy([&] { c.call(driver); });
        EXPECT_EQ(error, DriverError::osFailure(c.op)) << c.op;
        EXPECT_EQ(driver.calls, (Calls{c.logged})) << c.op;

        // The same call succeeds when another operation is named.
        MockDriver healthy("com.a", sampleElements(), "sha");
        healthy.failOn = {"something-else"};
        EXPECT_NO_THROW(c.call(healthy)) << c.op;
        EXPECT_EQ(healthy.calls, (Calls{c.logged})) << c.op;
    }
}

TEST(MockDriverTest, LaunchIsLoggedAndChangesNothingElse) {
    MockDriver driver("com.other", sampleElements(), "sha");
    driver.launch("com.a");
    EXPECT_EQ(driver.calls, (Calls{{"launch", "com.a"}}));
    EXPECT_EQ(driver.frontmost, std::optional<std::string>("com.other"));
}

TEST(MockDriverTest, ClickCoordinatesAlwaysHaveAFraction) {
    MockDriver driver("com.a", {}, "sha");
    driver.click(Point{100, 200}, false);
    driver.click(Point{0.1, 120.5}, true);
    driver.click(Point{-3, -0.25}, false);
    EXPECT_EQ(
        driver.calls,
        (Calls{{"click", "100.0,200.0"}, {"doubleClick", "0.1,120.5"}, {"click", "-3.0,-0.25"}}));
}

TEST(MockDriverTest, CoordinateTextIsTheShortestRoundTrip) {
    EXPECT_EQ(coordinateText(100), "100.0");
    EXPECT_EQ(coordinateText(0), "0.0");
    EXPECT_EQ(coordinateText(-0.0), "-0.0");
    EXPECT_EQ(coordinateText(0.1), "0.1");
    EXPECT_EQ(coordinateText(1.0 / 3.0), "0.3333333333333333");
    EXPECT_EQ(coordinateText(0.1 + 0.2), "0.30000000000000004");
    EXPECT_EQ(coordinateText(1e21), "1e+21");
    EXPECT_EQ(coordinateText(5e-324), "5e-324");
    EXPECT_EQ(coordinateText(std::numeric_limits<double>::infinity()), "inf");
    EXPECT_EQ(coordinateText(-std::numeric_limits<double>::infinity()), "-inf");
    EXPECT_EQ(coordinateText(std::nan("")), "nan");
    for (double value : {0.1, 1.0 / 3.0, 123456.789, -7.5e-7, 1e300}) {
        EXPECT_EQ(std::stod(coordinateText(value)), value);
    }
}

TEST(MockDriverTest, TypeTextIsLoggedAsGiven) {
    MockDriver driver("com.a", {}, "sha");
    driver.typeText("Hello, world / äöü\n");
    driver.typeText("");
    EXPECT_EQ(driver.calls, (Calls{{"typeText", "Hello, world / äöü\n"}, {"typeText", ""}}));
}

TEST(MockDriverTest, PressKeysJoinsWithPlus) {
    MockDriver driver("com.a", {}, "sha");
    driver.pressKeys({"cmd", "s"});
    driver.pressKeys({"cmd+shift+a", "return"});
    driver.pressKeys({});
    EXPECT_EQ(
        driver.calls,
        (Calls{{"pressKeys", "cmd+s"}, {"pressKeys", "cmd+shift+a+return"}, {"pressKeys", ""}}));
}

TEST(MockDriverTest, ScrollLogsWholeAmountsWithoutThePoint) {
    MockDriver driver("com.a", {}, "sha");
    driver.scroll(ScrollSpec{0, -3, Point{5, 6}});
    driver.scroll(ScrollSpec{12, 0, std::nullopt});
    EXPECT_EQ(driver.calls, (Calls{{"scroll", "0,-3"}, {"scroll", "12,0"}}));
}

TEST(MockDriverTest, QueryWithoutSelectorLogsAllAndReturnsEverything) {
    MockDriver driver("com.a", sampleElements(), "sha");
    EXPECT_EQ(driver.query("com.whatever", std::nullopt, true), sampleElements());
    EXPECT_EQ(driver.calls, (Calls{{"query", "<all>"}}));
}

TEST(MockDriverTest, QueryWithEmptySelectorLogsAnyAndReturnsEverything) {
    MockDriver driver("com.a", sampleElements(), "sha");
    EXPECT_EQ(driver.query("com.a", ElementSelector{}, true), sampleElements());
    EXPECT_EQ(driver.calls, (Calls{{"query", "<any>"}}));
}

TEST(MockDriverTest, QueryLogsTheSelectorDescription) {
    MockDriver driver("com.a", sampleElements(), "sha");
    driver.query("com.a", selectorWith("AXButton", "Save", "id", "v", 2), true);
    EXPECT_EQ(driver.calls, (Calls{{"query", "role=AXButton,title~=Save,id=id,value~=v,index=2"}}));
}

TEST(MockDriverTest, TitleMatchesAsAFoldedSubstring) {
    MockDriver driver("com.a", sampleElements(), "sha");
    EXPECT_EQ(driver.query("com.a", selectorWith(std::nullopt, "save"), true),
              (std::vector<ElementInfo>{sampleElements()[0]}));
    EXPECT_EQ(driver.query("com.a", selectorWith(std::nullopt, "AS"), true),
              (std::vector<ElementInfo>{sampleElements()[0]}));
}

TEST(MockDriverTest, RoleMatchesExactly) {
    MockDriver driver("com.a", sampleElements(), "sha");
    EXPECT_TRUE(driver.query("com.a", selectorWith("button", std::nullopt), true).empty());
    EXPECT_TRUE(driver.query("com.a", selectorWith("axbutton", std::nullopt), true).empty());
    EXPECT_EQ(driver.query("com.a", selectorWith("AXButton", std::nullopt), true),
              (std::vector<ElementInfo>{sampleElements()[0], sampleElements()[2]}));
}

TEST(MockDriverTest, IdentifierMatchesExactlyAndOnlyWhenPresent) {
    MockDriver driver("com.a", sampleElements(), "sha");
    EXPECT_EQ(driver.query("com.a", selectorWith(std::nullopt, std::nullopt, "name"), true),
              (std::vector<ElementInfo>{sampleElements()[1]}));
    EXPECT_TRUE(
        driver.query("com.a", selectorWith(std::nullopt, std::nullopt, "NAME"), true).empty());
    EXPECT_TRUE(
        driver.query("com.a", selectorWith(std::nullopt, std::nullopt, "nam"), true).empty());
    // Elements without an identifier never match one, not even the empty one.
    EXPECT_TRUE(driver.query("com.a", selectorWith(std::nullopt, std::nullopt, ""), true).empty());
}

TEST(MockDriverTest, ValueContainsIsAFoldedSubstringOfTheStoredValue) {
    MockDriver driver("com.a", sampleElements(), "sha");
    EXPECT_EQ(driver.query("com.a", selectorWith(std::nullopt, std::nullopt, std::nullopt, "FINAL"),
                           true),
              (std::vector<ElementInfo>{sampleElements()[1]}));
}

TEST(MockDriverTest, EmptyNeedlesMatchNothing) {
    MockDriver driver("com.a", sampleElements(), "sha");
    EXPECT_TRUE(driver.query("com.a", selectorWith(std::nullopt, ""), true).empty());
    EXPECT_TRUE(
        driver.query("com.a", selectorWith(std::nullopt, std::nullopt, std::nullopt, ""), true)
            .empty());
}

TEST(MockDriverTest, EveryPresentFieldMustMatch) {
    MockDriver driver("com.a", sampleElements(), "sha");
    EXPECT_EQ(driver.query("com.a", selectorWith("AXButton", "cancel"), true),
              (std::vector<ElementInfo>{sampleElements()[2]}));
    EXPECT_TRUE(driver.query("com.a", selectorWith("AXTextField", "cancel"), true).empty());
}

TEST(MockDriverTest, IndexBeyondTheMatchesReturnsThemAll) {
    MockDriver driver("com.a",
                      {element("AXRow", "a"), element("AXRow", "b"), element("AXRow", "c")}, "sha");
    auto all = driver.query(
        "com.a", selectorWith("AXRow", std::nullopt, std::nullopt, std::nullopt, 5), true);
    EXPECT_EQ(all, driver.elements);
    auto exactlyCount = driver.query(
        "com.a", selectorWith("AXRow", std::nullopt, std::nullopt, std::nullopt, 3), true);
    EXPECT_EQ(exactlyCount, driver.elements);
}

TEST(MockDriverTest, IndexInRangeReturnsThatMatchOnly) {
    MockDriver driver("com.a",
                      {element("AXRow", "a"), element("AXCell", "x"), element("AXRow", "b"),
                       element("AXRow", "c")},
                      "sha");
    auto second = driver.query(
        "com.a", selectorWith("AXRow", std::nullopt, std::nullopt, std::nullopt, 1), true);
    EXPECT_EQ(second, (std::vector<ElementInfo>{element("AXRow", "b")}));
    auto first = driver.query(
        "com.a", selectorWith("AXRow", std::nullopt, std::nullopt, std::nullopt, 0), true);
    EXPECT_EQ(first, (std::vector<ElementInfo>{element("AXRow", "a")}));
}

TEST(MockDriverTest, WithoutValuesKeepsValuePresent) {
    MockDriver driver("com.a", sampleElements(), "sha");
    auto found = driver.query("com.a", std::nullopt, false);
    std::vector<ElementInfo> expected;
    for (const auto& info : sampleElements()) {
        expected.push_back(withoutValue(info));
    }
    EXPECT_EQ(found, expected);
    EXPECT_TRUE(found[1].valuePresent);
    EXPECT_FALSE(found[1].value.has_value());
    // The stored elements keep their values.
    EXPECT_EQ(driver.elements, sampleElements());
}

TEST(MockDriverTest, ValuesAreClearedOnlyAfterMatchingAndIndexSelection) {
    MockDriver driver("com.a",
                      {element("AXCell", "a", std::nullopt, "done"),
                       element("AXCell", "b", std::nullopt, "Done too")},
                      "sha");
    auto found = driver.query(
        "com.a", selectorWith(std::nullopt, std::nullopt, std::nullopt, "done", 1), false);
    EXPECT_EQ(
        found,
        (std::vector<ElementInfo>{withoutValue(element("AXCell", "b", std::nullopt, "Done too"))}));
}

TEST(MockDriverTest, StructuralStateOfNoElements) {
    MockDriver driver(std::nullopt, {}, "sha");
    StructuralState state = driver.structuralState("com.a");
    EXPECT_EQ(state, (StructuralState{std::nullopt, 0, {}}));
    EXPECT_EQ(driver.calls, (Calls{{"structuralState", "com.a"}}));
}

TEST(MockDriverTest, StructuralStateCountsRolesOfEveryElement) {
    MockDriver driver("com.front", sampleElements(), "sha");
    StructuralState state = driver.structuralState("com.ignored");
    EXPECT_EQ(state,
              (StructuralState{
                  "com.front", 4, {{"AXButton", 2}, {"AXStaticText", 1}, {"AXTextField", 1}}}));
    EXPECT_EQ(driver.calls, (Calls{{"structuralState", "com.ignored"}}));
}

TEST(MockDriverTest, ScreenshotLogsThePathAndWritesNothing) {
    std::string path = ::testing::TempDir() + "mock-driver-shot.png";
    std::remove(path.c_str());
    MockDriver driver("com.a", {}, "sha");
    driver.screenshot("com.a", path);
    EXPECT_EQ(driver.calls, (Calls{{"screenshot", path}}));
    EXPECT_EQ(std::fopen(path.c_str(), "r"), nullptr);
}

TEST(MockDriverTest, ScreenshotCanBeToldToFail) {
    MockDriver driver("com.a", {}, "sha");
    driver.screenshotShouldFail = true;
    DriverError error = thrownBy([&] { driver.screenshot("com.a", "/x/y.png"); });
    EXPECT_EQ(error, DriverError::screenshotFailed("mock"));
    EXPECT_EQ(error.description(), "screenshot failed: mock");
    EXPECT_EQ(driver.calls, (Calls{{"screenshot", "/x/y.png"}}));
}

TEST(MockDriverTest, FailOnComesBeforeTheScreenshotFailure) {
    MockDriver driver("com.a", {}, "sha");
    driver.screenshotShouldFail = true;
    driver.failOn = {"screenshot"};
    EXPECT_EQ(thrownBy([&] { driver.screenshot("com.a", "/x/y.png"); }),
              DriverError::osFailure("screenshot"));
}

TEST(MockDriverTest, TheLogKeepsEveryCallInOrder) {
    MockDriver driver("com.a", sampleElements(), "sha");
    driver.launch("com.a");
    driver.frontmostBundleId();
    driver.typeText("x");
    driver.binarySha256("com.a");
    driver.structuralState("com.a");
    EXPECT_EQ(driver.calls,
              (Calls{{"launch", "com.a"}, {"typeText", "x"}, {"structuralState", "com.a"}}));
    driver.calls.clear();
    driver.launch("com.b");
    EXPECT_EQ(driver.calls, (Calls{{"launch", "com.b"}}));
}

TEST(MockDriverTest, ClickCoordinatesAreTheDoublesOwnDescription) {
    MockDriver driver("com.a", {}, "sha");
    driver.click(Point{100000, 0.0001}, false);
    driver.click(Point{1234567.25, -3}, false);
    // Past 2^53 and below 0.0001 the description has an exponent.
    driver.click(Point{1e16, 1e-5}, true);
    driver.click(Point{9007199254740992.0, 5e-324}, false);
    EXPECT_EQ(driver.calls, (Calls{{"click", "100000.0,0.0001"},
                                   {"click", "1234567.25,-3.0"},
                                   {"doubleClick", "1e+16,1e-05"},
                                   {"click", "9007199254740992.0,5e-324"}}));
}

// "Café" with its "é" as one code point, and with "e" and a combining accent.
const std::string kCafePrecomposed = "Caf\u00E9";
const std::string kCafeDecomposed = "Cafe\u0301";

TEST(MockDriverTest, TitlesAndValuesMatchInEitherCanonicalForm) {
    MockDriver driver("com.a",
                      {element("AXButton", kCafePrecomposed + " Menu", "menu", kCafeDecomposed),
                       element("AXButton", kCafeDecomposed + " Bar", "bar", kCafePrecomposed),
                       element("AXButton", "Cafe", "plain", "Cafe")},
                      "sha");
    auto titles = [&](const ElementSelector& selector) {
        std::vector<std::string> found;
        for (const auto& info : driver.query("com.a", selector, true)) {
            found.push_back(*info.identifier);
        }
        return found;
    };
    const std::vector<std::string> both{"menu", "bar"};
    EXPECT_EQ(titles(selectorWith(std::nullopt, "caf\u00E9")), both);
    EXPECT_EQ(titles(selectorWith(std::nullopt, "CAFE\u0301")), both);
    EXPECT_EQ(titles(selectorWith(std::nullopt, std::nullopt, std::nullopt, "caf\u00E9")), both);
    EXPECT_EQ(titles(selectorWith(std::nullopt, std::nullopt, std::nullopt, "cafe\u0301")), both);
    // "Cafe" without an accent is not found inside "Café".
    EXPECT_EQ(titles(selectorWith(std::nullopt, "cafe")), (std::vector<std::string>{"plain"}));
}

TEST(MockDriverTest, RolesAndIdentifiersAreTheSameTextInEitherCanonicalForm) {
    MockDriver driver("com.a",
                      {element("AX" + kCafePrecomposed, "t", "id-" + kCafeDecomposed, std::nullopt),
                       element("AXCafe", "u", "id-Cafe", std::nullopt)},
                      "sha");
    EXPECT_EQ(
        driver.query("com.a", selectorWith("AX" + kCafeDecomposed, std::nullopt), true).size(), 1u);
    EXPECT_EQ(driver
                  .query("com.a",
                         selectorWith(std::nullopt, std::nullopt, "id-" + kCafePrecomposed), true)
                  .size(),
              1u);
    // Still exact otherwise: no case folding, no substrings.
    EXPECT_TRUE(
        driver.query("com.a", selectorWith("ax" + kCafeDecomposed, std::nullopt), true).empty());
    EXPECT_TRUE(
        driver.query("com.a", selectorWith(std::nullopt, std::nullopt, "id-Caf"), true).empty());
}

TEST(MockDriverDeathTest, NegativeIndexStopsTheProcess) {
    MockDriver driver("com.a", sampleElements(), "sha");
    auto selector = selectorWith("AXButton", std::nullopt, std::nullopt, std::nullopt, -1);
    EXPECT_DEATH(driver.query("com.a", selector, true), "negative selector index -1");
}

TEST(MockDriverDeathTest, NegativeIndexStopsTheProcessEvenWithoutMatches) {
    MockDriver driver("com.a", {}, "sha");
    auto selector = selectorWith(std::nullopt, std::nullopt, std::nullopt, std::nullopt, -7);
    EXPECT_DEATH(driver.query("com.a", selector, false), "negative selector index -7");
}

}  // namespace
}  // namespace velmora
