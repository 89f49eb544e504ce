#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "core/driver/MockDriver.h"
#include "core/driver/SelectorMatch.h"
#include "core/driver/UIDriver.h"

namespace velmora {
namespace {

ElementInfo element(std::string role, std::optional<std::string> title, std::optional<Rect> frame) {
    ElementInfo info;
    info.role = std::move(role);
    info.title = std::move(title);
    info.frame = frame;
    return info;
}

ElementSelector byRole(std::string role) {
    ElementSelector selector;
    selector.role = std::move(role);
    return selector;
}

// Remembers what each query asked for.
class RecordingDriver : public MockDriver {
  public:
    using MockDriver::MockDriver;

    struct Asked {
        std::string bundleId;
        std::optional<ElementSelector> selector;
        bool includeValues;
    };
    std::vector<Asked> asked;

    std::vector<ElementInfo> query(const std::string& bundleId,
                                   const std::optional<ElementSelector>& selector,
                                   bool includeValues) override {
        asked.push_back({bundleId, selector, includeValues});
        return MockDriver::query(bundleId, selector, includeValues);
    }
};

// Applies a selector index the way the native driver does: a negative index keeps
// every match instead of stopping the process.
class NativeLikeDriver : public MockDriver {
  public:
    using MockDriver::MockDriver;

    std::vector<ElementInfo> query(const std::string&,
                                   const std::optional<ElementSelector>& selector, bool) override {
        return selectIndex(filterBySelector(elements, *selector), selector->index);
    }
};

TEST(ResolveClickPointTest, ReturnsTheCentreOfTheFirstMatch) {
    MockDriver driver("com.a", {element("AXButton", "Save", Rect{100, 200, 40, 20})}, "sha");
    EXPECT_EQ(resolveClickPoint(driver, "com.a", byRole("AXButton")), (Point{120, 210}));
}

TEST(ResolveClickPointTest, KeepsFractionalCentres) {
    MockDriver driver("com.a", {element("AXButton", "Save", Rect{0.5, 1, 3, 5})}, "sha");
    EXPECT_EQ(resolveClickPoint(driver, "com.a", byRole("AXButton")), (Point{2.0, 3.5}));
}

TEST(ResolveClickPointTest, AsksForTheSelectorWithoutValues) {
    RecordingDriver driver("com.a", {element("AXButton", "Save", Rect{0, 0, 10, 10})}, "sha");
    resolveClickPoint(driver, "com.target", byRole("AXButton"));
    ASSERT_EQ(driver.asked.size(), 1u);
    EXPECT_EQ(driver.asked[0].bundleId, "com.target");
    EXPECT_EQ(driver.asked[0].selector, std::optional<ElementSelector>(byRole("AXButton")));
    EXPECT_FALSE(driver.asked[0].includeValues);
    EXPECT_EQ(driver.calls, (std::vector<MockDriver::Call>{{"query", "role=AXButton"}}));
}

TEST(ResolveClickPointTest, NothingFoundIsElementNotFoundWithTheDescription) {
    MockDriver driver("com.a", {element("AXButton", "Save", Rect{0, 0, 10, 10})}, "sha");
    ElementSelector selector = byRole("AXButton");
    selector.title = "Nope";
    try {
        resolveClickPoint(driver, "com.a", selector);
        FAIL() << "expected elementNotFound";
    } catch (const DriverError& error) {
        EXPECT_EQ(error, DriverError::elementNotFound("role=AXButton,title~=Nope"));
        EXPECT_EQ(error.description(), "element not found: role=AXButton,title~=Nope");
    }
}

TEST(ResolveClickPointTest, OnlyTheFirstMatchCountsEvenWhenLaterOnesHaveFrames) {
    MockDriver driver("com.a",
                      {element("AXButton", "First", std::nullopt),
                       element("AXButton", "Second", Rect{0, 0, 10, 10})},
                      "sha");
    try {
        resolveClickPoint(driver, "com.a", byRole("AXButton"));
        FAIL() << "expected elementNotFound";
    } catch (const DriverError& error) {
        EXPECT_EQ(error, DriverError::elementNotFound("role=AXButton"));
    }
}

TEST(ResolveClickPointTest, EmptyFrameGivesItsOrigin) {
    MockDriver driver("com.a", {element("AXButton", "Dot", Rect{37.25, -12, 0, 0})}, "sha");
    EXPECT_EQ(resolveClickPoint(driver, "com.a", byRole("AXButton")), (Point{37.25, -12}));
}

TEST(ResolveClickPointTest, IndexBeyondTheMatchesClicksTheFirstMatch) {
    MockDriver driver("com.a",
                      {element("AXButton", "A", Rect{0, 0, 10, 10}),
                       element("AXButton", "B", Rect{100, 100, 10, 10})},
                      "sha");
    ElementSelector selector = byRole("AXButton");
    selector.index = 5;
    EXPECT_EQ(resolveClickPoint(driver, "com.a", selector), (Point{5, 5}));
}

TEST(ResolveClickPointTest, IndexInRangeClicksThatMatch) {
    MockDriver driver("com.a",
                      {element("AXButton", "A", Rect{0, 0, 10, 10}),
                       element("AXButton", "B", Rect{100, 100, 10, 10})},
                      "sha");
    ElementSelector selector = byRole("AXButton");
    selector.index = 1;
    EXPECT_EQ(resolveClickPoint(driver, "com.a", selector), (Point{105, 105}));
}

TEST(ResolveClickPointTest, NegativeIndexAgainstTheNativeRulesClicksTheFirstMatch) {
    NativeLikeDriver driver("com.a",
                            {element("AXButton", "A", Rect{0, 0, 10, 10}),
                             element("AXButton", "B", Rect{100, 100, 10, 10})},
                            "sha");
    ElementSelector selector = byRole("AXButton");
    selector.index = -1;
    EXPECT_EQ(resolveClickPoint(driver, "com.a", selector), (Point{5, 5}));
}

TEST(ResolveClickPointTest, QueryErrorsPassThroughUnchanged) {
    MockDriver driver("com.a", {element("AXButton", "A", Rect{0, 0, 10, 10})}, "sha");
    driver.failOn = {"query"};
    try {
        resolveClickPoint(driver, "com.a", byRole("AXButton"));
        FAIL() << "expected the query failure";
    } catch (const DriverError& error) {
        EXPECT_EQ(error, DriverError::osFailure("query"));
    }
}

}  // namespace
}  // namespace velmora
