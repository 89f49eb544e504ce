#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "core/model/DriverError.h"
#include "core/native/AXCGDriver.h"
#include "tests/support/ScriptedPlatform.h"

namespace velmora::native {
namespace {

const std::string kApp = "com.example.editor";
constexpr int32_t kPid = 42;

class AXCGDriverQueryTest : public ::testing::Test {
  protected:
    AXCGDriverQueryTest() {
        platform.addRunningApp(kApp, RunningApplication{kPid, {}, {}});
        app = node("app", "AXApplication");
        platform.setApplicationElement(kPid, app);
    }

    // An element whose role and title are both `role`/`name`, to tell them apart.
    AXElement node(const std::string& name, const std::string& role) {
        AXElement made = platform.element(name);
        platform.setText(made, "AXRole", role);
        platform.setText(made, "AXTitle", name);
        return made;
    }

    std::vector<std::string> titles(const std::vector<ElementInfo>& elements) {
        std::vector<std::string> result;
        for (const auto& element : elements) {
            result.push_back(element.title.value_or("-"));
        }
        return result;
    }

    // A chain below `top`: each element the only child of the one before.
    std::vector<AXElement> chainBelow(const AXElement& top, const std::string& prefix, int count) {
        std::vector<AXElement> chain;
        AXElement parent = top;
        for (int i = 1; i <= count; ++i) {
            AXElement child = node(prefix + std::to_string(i), "AXGroup");
            platform.setChildren(parent, {child});
            chain.push_back(child);
            parent = child;
        }
        return chain;
    }

    std::vector<ElementInfo> queryAll(AXCGDriver& driver) {
        return driver.query(kApp, std::nullopt, true);
    }

    ScriptedPlatform platform;
    AXElement app;
    AXCGDriver driver{platform, 3000, 1.5};
};

TEST_F(AXCGDriverQueryTest, ElementsComeInPreOrderFromTheApplicationElement) {
    AXElement window = node("window", "AXWindow");
    AXElement save = node("save", "AXButton");
    AXElement cancel = node("cancel", "AXButton");
    AXElement menu = node("menubar", "AXMenuBar");
    platform.setChildren(app, {window, menu});
    platform.setChildren(window, {save, cancel});

    const auto elements = queryAll(driver);
    EXPECT_EQ(titles(elements),
              (std::vector<std::string>{"app", "window", "save", "cancel", "menubar"}));
    EXPECT_EQ(elements[0].role, "AXApplication");
    EXPECT_EQ(elements[2].role, "AXButton");
    EXPECT_EQ(platform.applicationElementRequests(), (std::vector<int32_t>{kPid}));
}

TEST_F(AXCGDriverQueryTest, EachElementCostsOneRequestForItsRecordAndOneForItsChildren) {
    queryAll(driver);
    // The value is read once: its presence and its text come from the same answer.
    EXPECT_EQ(platform.readLog(),
              (std::vector<std::string>{"app.AXRole", "app.AXTitle", "app.AXIdentifier",
                                        "app.AXValue", "app.AXPosition", "app.AXSize",
                                        "app.AXChildren", "app.AXWindows"}));
    // The children are asked for only as far as the remaining budget reaches.
    EXPECT_EQ(platform.requestLog(),
              (std::vector<std::string>{"app AXRole,AXTitle,AXIdentifier,AXValue,AXPosition,AXSize",
                                        "app AXChildren[0+2999]"}));
}

TEST_F(AXCGDriverQueryTest, WindowsAreWalkedAfterTheTreeAndRecordedTwice) {
    AXElement window = node("window", "AXWindow");
    AXElement field = node("field", "AXTextField");
    platform.setChildren(app, {window});
    platform.setChildren(window, {field});
    platform.setWindows(app, {window});

    const auto elements = queryAll(driver);
    EXPECT_EQ(titles(elements),
              (std::vector<std::string>{"app", "window", "field", "window", "field"}));
    const auto state = driver.structuralState(kApp);
    EXPECT_EQ(state.elementCount, 5);
    EXPECT_EQ(state.roleHistogram, (std::map<std::string, int64_t>{
                                       {"AXApplication", 1}, {"AXWindow", 2}, {"AXTextField", 2}}));
}

TEST_F(AXCGDriverQueryTest, AWindowRecordedAsAChildOfTheApplicationIsCopiedNotAskedAgain) {
    AXElement window = node("window", "AXWindow");
    AXElement field = node("field", "AXTextField");
    platform.setText(field, "AXValue", "text");
    platform.setFrame(field, Rect{1, 2, 3, 4});
    platform.setChildren(app, {window});
    platform.setChildren(window, {field});
    platform.setWindows(app, {window});

    const auto elements = queryAll(driver);
    ASSERT_EQ(elements.size(), 5u);
    EXPECT_EQ(elements[3], elements[1]);
    EXPECT_EQ(elements[4], elements[2]);
    EXPECT_EQ(elements[4].value, "text");
    // One record and one child list of each: the second records are copies.
    EXPECT_EQ(platform.readCount(window), 7);
    EXPECT_EQ(platform.readCount(field), 7);
    EXPECT_EQ(platform.readLog().back(), "app.AXWindows");
}

TEST_F(AXCGDriverQueryTest, TheCopyOfAWindowStopsWhereTheBudgetRunsOut) {
    AXCGDriver five(platform, 5, 1.5);
    AXElement window = node("window", "AXWindow");
    AXElement a = node("a", "AXButton");
    AXElement b = node("b", "AXButton");
    platform.setChildren(app, {window});
    platform.setChildren(window, {a, b});
    platform.setWindows(app, {window});

    // A second walk of the window would record the window alone, with one
    // element of budget left.
    EXPECT_EQ(titles(queryAll(five)),
              (std::vector<std::string>{"app", "window", "a", "b", "window"}));
    EXPECT_EQ(platform.readCount(window, "AXRole"), 1);
}

TEST_F(AXCGDriverQueryTest, AWindowReachedDeeperThanTheApplicationsChildrenIsWalkedAgain) {
    AXCGDriver shallow(platform, 3000, 1.5);
    AXElement group = node("group", "AXGroup");
    AXElement window = node("window", "AXWindow");
    platform.setChildren(app, {group});
    platform.setChildren(group, {window});
    platform.setWindows(app, {window});
    // Below the window a chain as deep as the depth limit allows from depth 1:
    // reached at depth 2 the chain's last element is cut; at depth 1 it is not.
    auto chain = chainBelow(window, "w", 59);

    const auto elements = queryAll(shallow);
    // app, group, window, w1..w58 (depth 60); then window, w1..w59.
    ASSERT_EQ(elements.size(), 3u + 58u + 1u + 59u);
    EXPECT_EQ(elements[60].title, "w58");
    EXPECT_EQ(elements.back().title, "w59");
    EXPECT_EQ(platform.readCount(window, "AXRole"), 2);
}

TEST_F(AXCGDriverQueryTest, WindowsStartAtDepthOne) {
    AXElement window = node("window", "AXWindow");
    platform.setWindows(app, {window});
    // window is depth 1, w1..w59 are depths 2..60, w60 would be depth 61.
    auto chain = chainBelow(window, "w", 60);
    const auto elements = queryAll(driver);
    ASSERT_EQ(elements.size(), 1u + 1u + 59u);
    EXPECT_EQ(elements.back().title, "w59");
    EXPECT_EQ(platform.readCount(chain[57], "AXChildren"), 1);
    // Nothing below depth 60 is recorded, so its child list is not asked for.
    EXPECT_EQ(platform.readCount(chain[58], "AXChildren"), 0);
    EXPECT_EQ(platform.readCount(chain[59]), 0);
}

TEST_F(AXCGDriverQueryTest, DepthSixtyIsRecordedAndSixtyOneIsNot) {
    auto chain = chainBelow(app, "e", 61);  // e1 at depth 1 ... e61 at depth 61
    const auto elements = queryAll(driver);
    ASSERT_EQ(elements.size(), 61u);
    EXPECT_EQ(elements.back().title, "e60");
    // The child list of depth 60 is not asked for; its child is never looked at.
    EXPECT_EQ(platform.readCount(chain[58], "AXChildren"), 1);
    EXPECT_EQ(platform.readCount(chain[59], "AXChildren"), 0);
    EXPECT_EQ(platform.readCount(chain[60]), 0);
}

TEST_F(AXCGDriverQueryTest, BudgetZeroRecordsNothingAndReadsOnlyTheWindowList) {
    AXCGDriver none(platform, 0, 1.5);
    AXElement window = node("window", "AXWindow");
    platform.setWindows(app, {window});
    EXPECT_TRUE(queryAll(none).empty());
    EXPECT_EQ(platform.readLog(), (std::vector<std::string>{"app.AXWindows"}));

    const auto state = none.structuralState(kApp);
    EXPECT_EQ(state.elementCount, 0);
    EXPECT_TRUE(state.roleHistogram.empty());
}

TEST_F(AXCGDriverQueryTest, BudgetOneRecordsOnlyTheApplicationElement) {
    AXCGDriver one(platform, 1, 1.5);
    AXElement child = node("child", "AXGroup");
    AXElement window = node("window", "AXWindow");
    platform.setChildren(app, {child, window});
    platform.setWindows(app, {window});

    const auto elements = queryAll(one);
    EXPECT_EQ(titles(elements), (std::vector<std::string>{"app"}));
    // The budget is spent: no child could be recorded, so none is asked for.
    EXPECT_EQ(platform.readCount(app, "AXChildren"), 0);
    EXPECT_EQ(platform.readCount(app, "AXWindows"), 1);
    EXPECT_EQ(platform.readCount(child), 0);
    EXPECT_EQ(platform.readCount(window), 0);
}

TEST_F(AXCGDriverQueryTest, BudgetRunningOutMidChildListStopsBeforeTheNextChild) {
    AXCGDriver three(platform, 3, 1.5);
    AXElement a = node("a", "AXButton");
    AXElement b = node("b", "AXButton");
    AXElement c = node("c", "AXButton");
    AXElement window = node("window", "AXWindow");
    platform.setChildren(app, {a, b, c});
    platform.setWindows(app, {window});

    EXPECT_EQ(titles(queryAll(three)), (std::vector<std::string>{"app", "a", "b"}));
    EXPECT_EQ(platform.requestLog()[1], "app AXChildren[0+2]");
    EXPECT_EQ(platform.readCount(a, "AXChildren"), 1);
    EXPECT_EQ(platform.readCount(b, "AXChildren"), 0);  // the budget is spent
    EXPECT_EQ(platform.readCount(c), 0);
    EXPECT_EQ(platform.readCount(window), 0);
}

TEST_F(AXCGDriverQueryTest, OneBudgetCoversTheTreeAndTheWindows) {
    AXCGDriver four(platform, 4, 1.5);
    AXElement a = node("a", "AXButton");
    AXElement w1 = node("w1", "AXWindow");
    AXElement w2 = node("w2", "AXWindow");
    AXElement inner = node("inner", "AXButton");
    platform.setChildren(app, {a});
    platform.setChildren(w1, {inner});
    platform.setWindows(app, {w1, w2});

    EXPECT_EQ(titles(queryAll(four)), (std::vector<std::string>{"app", "a", "w1", "inner"}));
    EXPECT_EQ(platform.readCount(w2), 0);
}

TEST_F(AXCGDriverQueryTest, ChildrenAreAskedForOnlyAsFarAsTheBudgetReaches) {
    AXCGDriver ten(platform, 10, 1.5);
    AXElement list = node("list", "AXList");
    std::vector<AXElement> items;
    for (int i = 0; i < 50; ++i) {
        items.push_back(node("item" + std::to_string(i), "AXRow"));
    }
    platform.setChildren(app, {list});
    platform.setChildren(list, items);

    const auto elements = queryAll(ten);
    ASSERT_EQ(elements.size(), 10u);
    EXPECT_EQ(elements.back().title, "item7");
    // After the application element 9 more could be recorded, after the list 8.
    EXPECT_EQ(platform.requestLog()[1], "app AXChildren[0+9]");
    EXPECT_EQ(platform.requestLog()[3], "list AXChildren[0+8]");
    EXPECT_EQ(platform.readCount(items[8]), 0);
    // Each item's own (empty) child list is asked for while budget is left.
    EXPECT_EQ(platform.readCount(items[6], "AXChildren"), 1);
    EXPECT_EQ(platform.readCount(items[7], "AXChildren"), 0);
}

// The structural state reports what a query without selector reports: walks
// of the same elements, with the same budget, depth limit and window walks.
StructuralState summaryOf(const std::vector<ElementInfo>& elements) {
    StructuralState state;
    for (const auto& element : elements) {
        ++state.roleHistogram[element.role];
    }
    state.elementCount = static_cast<int64_t>(elements.size());
    return state;
}

TEST_F(AXCGDriverQueryTest, TheStructuralStateAsksOnlyForRolesAndChildLists) {
    AXElement window = node("window", "AXWindow");
    AXElement field = node("field", "AXTextField");
    platform.setText(field, "AXValue", "text");
    platform.setFrame(field, Rect{1, 2, 3, 4});
    platform.setChildren(app, {window});
    platform.setChildren(window, {field});
    platform.setWindows(app, {window});

    const StructuralState state = driver.structuralState(kApp);
    EXPECT_EQ(state.elementCount, 5);
    EXPECT_EQ(platform.readCount("AXTitle"), 0);
    EXPECT_EQ(platform.readCount("AXIdentifier"), 0);
    EXPECT_EQ(platform.readCount("AXValue"), 0);
    EXPECT_EQ(platform.readCount("AXPosition"), 0);
    EXPECT_EQ(platform.readCount("AXSize"), 0);
    EXPECT_EQ(platform.requestLog(), (std::vector<std::string>{
                                         "app AXRole",
                                         "app AXChildren[0+2999]",
                                         "window AXRole",
                                         "window AXChildren[0+2998]",
                                         "field AXRole",
                                         "field AXChildren[0+2997]",
                                     }));
    // The window's second record, the field's with it, is the first one's copy.
    EXPECT_EQ(platform.readLog().back(), "app.AXWindows");
    EXPECT_EQ(std::count(platform.readLog().begin(), platform.readLog().end(), "app.AXWindows"), 1);
}

TEST_F(AXCGDriverQueryTest, TheStructuralStateCountsWhatAQueryFindsAtEveryBudget) {
    AXElement window = node("window", "AXWindow");
    AXElement other = node("other", "AXWindow");
    platform.setChildren(app, {window, node("menubar", "AXMenuBar")});
    platform.setWindows(app, {window, other});
    auto deep = chainBelow(window, "d", 62);  // below depth 60 in both walks
    platform.setChildren(other, {node("unnamed", "AXUnknown"), node("ok", "AXButton")});
    for (int64_t budget : {0, 1, 2, 3, 30, 61, 62, 63, 125, 3000}) {
        AXCGDriver limited(platform, budget, 1.5);
        StructuralState expected = summaryOf(limited.query(kApp, std::nullopt, true));
        expected.frontmostBundleId = "com.example.front";
        platform.setFrontmost("com.example.front");
        EXPECT_EQ(limited.structuralState(kApp), expected) << "budget " << budget;
    }
}

TEST_F(AXCGDriverQueryTest, NumberValueIsPresentWithoutText) {
    AXElement box = node("box", "AXCheckBox");
    platform.setRead(box, "AXValue", AttributeRead::success(AttributeValue::ofNumber(1)));
    platform.setChildren(app, {box});

    const auto elements = queryAll(driver);
    ASSERT_EQ(elements.size(), 2u);
    EXPECT_TRUE(elements[1].valuePresent);
    EXPECT_EQ(elements[1].value, std::nullopt);
    EXPECT_EQ(platform.readCount(box, "AXValue"), 1);

    ElementSelector byValue;
    byValue.valueContains = "1";
    EXPECT_TRUE(driver.query(kApp, byValue, true).empty());
}

TEST_F(AXCGDriverQueryTest, ValuePresenceFollowsTheRawRead) {
    AXElement text = node("text", "AXTextField");
    AXElement null = node("null", "AXTextField");
    AXElement failing = node("failing", "AXTextField");
    AXElement boxed = node("boxed", "AXSlider");
    platform.setText(text, "AXValue", "hello");
    platform.setRead(null, "AXValue", AttributeRead::successNull());
    platform.setRead(failing, "AXValue", AttributeRead::failure(kAXErrorNoValue));
    platform.setRead(boxed, "AXValue", AttributeRead::success(AttributeValue::ofPoint({1, 2})));
    platform.setChildren(app, {text, null, failing, boxed});

    const auto elements = queryAll(driver);
    ASSERT_EQ(elements.size(), 5u);
    EXPECT_TRUE(elements[1].valuePresent);
    EXPECT_EQ(elements[1].value, "hello");
    EXPECT_FALSE(elements[2].valuePresent);
    EXPECT_FALSE(elements[3].valuePresent);
    EXPECT_TRUE(elements[4].valuePresent);
    EXPECT_EQ(elements[4].value, std::nullopt);
    EXPECT_FALSE(elements[0].valuePresent);  // app: unscripted
}

TEST_F(AXCGDriverQueryTest, TextAttributesAreAbsentUnlessTheyReadAsText) {
    AXElement odd = platform.element("odd");
    platform.setRead(odd, "AXRole", AttributeRead::success(AttributeValue::ofNumber(3)));
    platform.setRead(odd, "AXTitle", AttributeRead::successNull());
    platform.setRead(odd, "AXIdentifier",
                     AttributeRead::success(AttributeValue::ofElements({app})));
    AXElement plain = platform.element("plain");
    platform.setRead(plain, "AXRole", AttributeRead::failure(kAXErrorFailure));
    platform.setText(plain, "AXIdentifier", "plain-id");
    platform.setRead(plain, "AXTitle", AttributeRead::success(AttributeValue::ofBoolean(true)));
    platform.setChildren(app, {odd, plain});

    const auto elements = queryAll(driver);
    ASSERT_EQ(elements.size(), 3u);
    EXPECT_EQ(elements[1], (ElementInfo{"AXUnknown", {}, {}, false, {}, {}}));
    EXPECT_EQ(elements[2], (ElementInfo{"AXUnknown", {}, "plain-id", false, {}, {}}));
}

TEST_F(AXCGDriverQueryTest, FrameNeedsBothPositionAndSize) {
    AXElement full = node("full", "AXButton");
    platform.setFrame(full, Rect{10, 20, 30, 40});
    AXElement positionOnly = node("positionOnly", "AXButton");
    platform.setRead(positionOnly, "AXPosition",
                     AttributeRead::success(AttributeValue::ofPoint({5, 6})));
    platform.setRead(positionOnly, "AXSize", AttributeRead::failure(kAXErrorFailure));
    AXElement noPosition = node("noPosition", "AXButton");
    platform.setRead(noPosition, "AXSize", AttributeRead::success(AttributeValue::ofSize({1, 1})));
    platform.setChildren(app, {full, positionOnly, noPosition});

    const auto elements = queryAll(driver);
    ASSERT_EQ(elements.size(), 4u);
    EXPECT_EQ(elements[1].frame, (Rect{10, 20, 30, 40}));
    EXPECT_EQ(elements[2].frame, std::nullopt);
    EXPECT_EQ(platform.readCount(positionOnly, "AXSize"), 1);
    // The size is asked for with the position, and counts only when the position
    // read succeeded.
    EXPECT_EQ(elements[3].frame, std::nullopt);
    EXPECT_EQ(platform.readCount(noPosition, "AXSize"), 1);
}

TEST_F(AXCGDriverQueryTest, FrameNeedsNonNullBoxedValues) {
    AXElement nullPosition = node("nullPosition", "AXButton");
    platform.setRead(nullPosition, "AXPosition", AttributeRead::successNull());
    platform.setRead(nullPosition, "AXSize",
                     AttributeRead::success(AttributeValue::ofSize({1, 1})));
    AXElement textSize = node("textSize", "AXButton");
    platform.setRead(textSize, "AXPosition",
                     AttributeRead::success(AttributeValue::ofPoint({1, 1})));
    platform.setText(textSize, "AXSize", "big");
    platform.setChildren(app, {nullPosition, textSize});

    const auto elements = queryAll(driver);
    EXPECT_EQ(elements[1].frame, std::nullopt);
    // A successful read of null still leads to the size read.
    EXPECT_EQ(platform.readCount(nullPosition, "AXSize"), 1);
    EXPECT_EQ(elements[2].frame, std::nullopt);
}

TEST_F(AXCGDriverQueryTest, BoxOfAnotherKindLeavesZeros) {
    AXElement swapped = node("swapped", "AXButton");
    platform.setRead(swapped, "AXPosition", AttributeRead::success(AttributeValue::ofSize({7, 8})));
    platform.setRead(swapped, "AXSize", AttributeRead::success(AttributeValue::ofPoint({3, 4})));
    AXElement rect = node("rect", "AXButton");
    platform.setRead(rect, "AXPosition",
                     AttributeRead::success(AttributeValue::ofBoxed(
                         AXBoxedValue{kAXValueCGRectType, Point{1, 2}, Size{3, 4}})));
    platform.setRead(rect, "AXSize", AttributeRead::success(AttributeValue::ofSize({5, 6})));
    platform.setChildren(app, {swapped, rect});

    const auto elements = queryAll(driver);
    EXPECT_EQ(elements[1].frame, (Rect{0, 0, 0, 0}));
    EXPECT_EQ(elements[2].frame, (Rect{0, 0, 5, 6}));
}

TEST_F(AXCGDriverQueryTest, ChildListsThatAreNotElementListsAreEmpty) {
    AXElement single = node("single", "AXGroup");
    AXElement hidden = node("hidden", "AXButton");
    platform.setChildren(app, {single});
    platform.setRead(single, "AXChildren",
                     AttributeRead::success(AttributeValue::ofElement(hidden)));
    EXPECT_EQ(titles(queryAll(driver)), (std::vector<std::string>{"app", "single"}));

    platform.setRead(single, "AXChildren", AttributeRead::successNull());
    EXPECT_EQ(queryAll(driver).size(), 2u);
    platform.setRead(single, "AXChildren", AttributeRead::failure(kAXErrorFailure));
    EXPECT_EQ(queryAll(driver).size(), 2u);
    platform.setRead(app, "AXWindows", AttributeRead::success(AttributeValue::ofText("w")));
    EXPECT_EQ(queryAll(driver).size(), 2u);
    EXPECT_EQ(platform.readCount(hidden), 0);
}

TEST_F(AXCGDriverQueryTest, WithoutPermissionAQueryFindsOneUnknownElement) {
    AXElement window = node("window", "AXWindow");
    platform.setChildren(app, {window});
    platform.setWindows(app, {window});
    platform.setTrusted(false);

    const auto elements = queryAll(driver);
    ASSERT_EQ(elements.size(), 1u);
    EXPECT_EQ(elements[0], (ElementInfo{"AXUnknown", {}, {}, false, {}, {}}));

    platform.setFrontmost(kApp);
    const auto state = driver.structuralState(kApp);
    EXPECT_EQ(state.elementCount, 1);
    EXPECT_EQ(state.roleHistogram, (std::map<std::string, int64_t>{{"AXUnknown", 1}}));
    EXPECT_EQ(state.frontmostBundleId, kApp);
}

TEST_F(AXCGDriverQueryTest, QueryOfAnAppThatIsNotRunningIsAppNotRunning) {
    try {
        driver.query("com.example.absent", std::nullopt, false);
        FAIL() << "query did not throw";
    } catch (const DriverError& error) {
        EXPECT_EQ(error, DriverError::appNotRunning("com.example.absent"));
    }
    EXPECT_THROW(driver.structuralState("com.example.absent"), DriverError);
    EXPECT_TRUE(platform.applicationElementRequests().empty());
    EXPECT_TRUE(platform.readLog().empty());
    EXPECT_EQ(platform.frontmostPolls(), 0);
}

TEST_F(AXCGDriverQueryTest, QueryWalksTheFirstRunningInstance) {
    platform.addRunningApp(kApp, RunningApplication{99, {}, {}});
    queryAll(driver);
    EXPECT_EQ(platform.applicationElementRequests(), (std::vector<int32_t>{kPid}));
}

class AXCGDriverSelectorTest : public AXCGDriverQueryTest {
  protected:
    AXCGDriverSelectorTest() {
        AXElement window = node("Document", "AXWindow");
        AXElement saveAs = node("Save As", "AXButton");
        platform.setText(saveAs, "AXIdentifier", "save-as");
        AXElement save = node("Save", "AXButton");
        AXElement field = node("Name", "AXTextField");
        platform.setText(field, "AXValue", "Quarterly Report");
        platform.setFrame(field, Rect{0, 0, 100, 20});
        platform.setChildren(app, {window});
        platform.setChildren(window, {saveAs, save, field});
    }
};

TEST_F(AXCGDriverSelectorTest, TitleMatchesCaseInsensitiveSubstrings) {
    ElementSelector selector;
    selector.title = "save";
    EXPECT_EQ(titles(driver.query(kApp, selector, false)),
              (std::vector<std::string>{"Save As", "Save"}));
}

TEST_F(AXCGDriverSelectorTest, RoleMatchesExactlyAndCaseSensitively) {
    ElementSelector selector;
    selector.role = "axbutton";
    EXPECT_TRUE(driver.query(kApp, selector, false).empty());
    selector.role = "AXButton";
    EXPECT_EQ(driver.query(kApp, selector, false).size(), 2u);
    selector.role = "AXButt";
    EXPECT_TRUE(driver.query(kApp, selector, false).empty());
}

TEST_F(AXCGDriverSelectorTest, IdentifierNeverMatchesAnElementWithoutOne) {
    ElementSelector selector;
    selector.identifier = "save-as";
    EXPECT_EQ(titles(driver.query(kApp, selector, false)), (std::vector<std::string>{"Save As"}));
    selector.identifier = "";
    EXPECT_TRUE(driver.query(kApp, selector, false).empty());
}

TEST_F(AXCGDriverSelectorTest, IndexInRangeNarrowsToOneMatch) {
    ElementSelector selector;
    selector.role = "AXButton";
    selector.index = 1;
    EXPECT_EQ(titles(driver.query(kApp, selector, false)), (std::vector<std::string>{"Save"}));
}

TEST_F(AXCGDriverSelectorTest, IndexOutOfRangeOrNegativeKeepsEveryMatch) {
    ElementSelector selector;
    selector.role = "AXButton";
    selector.index = 5;
    EXPECT_EQ(driver.query(kApp, selector, false).size(), 2u);
    selector.index = 2;
    EXPECT_EQ(driver.query(kApp, selector, false).size(), 2u);
    selector.index = -1;
    EXPECT_EQ(titles(driver.query(kApp, selector, false)),
              (std::vector<std::string>{"Save As", "Save"}));
}

TEST_F(AXCGDriverSelectorTest, IndexZeroWithoutMatchesIsEmpty) {
    ElementSelector selector;
    selector.role = "AXSlider";
    selector.index = 0;
    EXPECT_TRUE(driver.query(kApp, selector, false).empty());
}

TEST_F(AXCGDriverSelectorTest, AnEmptySelectorKeepsEverything) {
    EXPECT_EQ(driver.query(kApp, ElementSelector{}, false).size(), 5u);
    ElementSelector onlyIndex;
    onlyIndex.index = 0;
    EXPECT_EQ(titles(driver.query(kApp, onlyIndex, false)), (std::vector<std::string>{"app"}));
}

TEST_F(AXCGDriverSelectorTest, ValuesMatchEvenWhenNotReturned) {
    ElementSelector selector;
    selector.valueContains = "quarterly";
    const auto withoutValues = driver.query(kApp, selector, false);
    ASSERT_EQ(withoutValues.size(), 1u);
    EXPECT_EQ(withoutValues[0].title, "Name");
    EXPECT_TRUE(withoutValues[0].valuePresent);
    EXPECT_EQ(withoutValues[0].value, std::nullopt);
    EXPECT_EQ(withoutValues[0].frame, (Rect{0, 0, 100, 20}));

    const auto withValues = driver.query(kApp, selector, true);
    ASSERT_EQ(withValues.size(), 1u);
    EXPECT_EQ(withValues[0].value, "Quarterly Report");
}

TEST_F(AXCGDriverSelectorTest, AbsentValueIsTheEmptyTextAndAnEmptyNeedleIsNeverFound) {
    ElementSelector selector;
    selector.valueContains = "";
    EXPECT_TRUE(driver.query(kApp, selector, true).empty());
    selector = ElementSelector{};
    selector.title = "";
    EXPECT_TRUE(driver.query(kApp, selector, true).empty());
}

TEST_F(AXCGDriverSelectorTest, EveryCriterionMustHold) {
    ElementSelector selector;
    selector.role = "AXButton";
    selector.title = "save";
    selector.identifier = "save-as";
    EXPECT_EQ(titles(driver.query(kApp, selector, false)), (std::vector<std::string>{"Save As"}));
}

TEST_F(AXCGDriverSelectorTest, WithoutValuesEveryValueIsCleared) {
    for (const auto& element : driver.query(kApp, std::nullopt, false)) {
        EXPECT_EQ(element.value, std::nullopt);
    }
    const auto all = driver.query(kApp, std::nullopt, true);
    EXPECT_EQ(all[4].value, "Quarterly Report");
}

TEST_F(AXCGDriverSelectorTest, StructuralStateSummarisesTheWholeSnapshot) {
    platform.setFrontmost("com.example.other");
    const auto state = driver.structuralState(kApp);
    EXPECT_EQ(state.elementCount, 5);
    EXPECT_EQ(state.roleHistogram,
              (std::map<std::string, int64_t>{
                  {"AXApplication", 1}, {"AXWindow", 1}, {"AXButton", 2}, {"AXTextField", 1}}));
    // The frontmost app is reported as it is, not compared with the target,
    // and read once, after the walk.
    EXPECT_EQ(state.frontmostBundleId, "com.example.other");
    EXPECT_EQ(platform.attributeReadsBeforeFrontmostPolls(),
              (std::vector<size_t>{platform.readLog().size()}));

    platform.setFrontmost(std::nullopt);
    EXPECT_EQ(driver.structuralState(kApp).frontmostBundleId, std::nullopt);
}

TEST_F(AXCGDriverQueryTest, SelectorsMatchInEitherCanonicalForm) {
    // "Café" with its "é" as one code point, and with "e" and a combining accent.
    AXElement precomposed = node("Caf\u00E9 Menu", "AXButton");
    platform.setText(precomposed, "AXIdentifier", "Caf\u00E9");
    platform.setText(precomposed, "AXValue", "Cafe\u0301 au lait");
    AXElement decomposed = node("Cafe\u0301 Bar", "AXButton");
    AXElement plain = node("Cafe", "AXButton");
    platform.setChildren(app, {precomposed, decomposed, plain});

    ElementSelector selector;
    selector.title = "CAFE\u0301";
    EXPECT_EQ(titles(driver.query(kApp, selector, false)),
              (std::vector<std::string>{"Caf\u00E9 Menu", "Cafe\u0301 Bar"}));
    selector.title = "caf\u00E9";
    EXPECT_EQ(titles(driver.query(kApp, selector, false)),
              (std::vector<std::string>{"Caf\u00E9 Menu", "Cafe\u0301 Bar"}));
    selector.title = "cafe";
    EXPECT_EQ(titles(driver.query(kApp, selector, false)), (std::vector<std::string>{"Cafe"}));

    ElementSelector byValue;
    byValue.valueContains = "CAF\u00C9 AU";
    EXPECT_EQ(titles(driver.query(kApp, byValue, false)),
              (std::vector<std::string>{"Caf\u00E9 Menu"}));

    ElementSelector byIdentifier;
    byIdentifier.identifier = "Cafe\u0301";
    EXPECT_EQ(titles(driver.query(kApp, byIdentifier, false)),
              (std::vector<std::string>{"Caf\u00E9 Menu"}));
}

}  // namespace
}  // namespace velmora::native
