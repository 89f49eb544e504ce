#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "core/model/DriverError.h"
#include "core/native/AXCGDriver.h"
#include "tests/support/ScriptedPlatform.h"

namespace velmora::native {
namespace {

using EventKind = ScriptedPlatform::EventKind;
using Lines = std::vector<std::string>;

class AXCGDriverInputTest : public ::testing::Test {
  protected:
    std::string failureOf(const std::function<void()>& operation) {
        try {
            operation();
        } catch (const DriverError& error) {
            return error.description();
        }
        return "no error";
    }

    std::vector<std::u16string> unicodeOf(
        const std::vector<ScriptedPlatform::PostedEvent>& events) {
        std::vector<std::u16string> result;
        for (const auto& event : events) {
            result.push_back(event.unicode.value_or(u"<none>"));
        }
        return result;
    }

    // The workspace answers as the run loop last left it, as AppKit's does, and the
    // system has since brought another application forward. Whether the frontmost
    // read after `action` sees it.
    bool seesTheNewFrontmostAfter(const std::function<void()>& action) {
        platform.setFrontmost("com.example.before");
        platform.setWorkspaceRefreshedByRunLoop(true);
        platform.setFrontmost("com.example.after");
        action();
        return driver.frontmostBundleId() == "com.example.after";
    }

    ScriptedPlatform platform;
    AXCGDriver driver{platform, 3000, 1.5};
};

// An input action may bring another application forward (a click on its window, a
// chord that switches applications); the frontmost reads after it (its structural
// state, the next input's check) must see that, so each settling wait runs the loop.
TEST_F(AXCGDriverInputTest, AfterAClickTheFrontmostReadIsCurrent) {
    EXPECT_TRUE(seesTheNewFrontmostAfter([&] { driver.click(Point{1, 1}, false); }));
}

TEST_F(AXCGDriverInputTest, AfterTypingTheFrontmostReadIsCurrent) {
    EXPECT_TRUE(seesTheNewFrontmostAfter([&] { driver.typeText("x"); }));
}

TEST_F(AXCGDriverInputTest, AfterAChordTheFrontmostReadIsCurrent) {
    EXPECT_TRUE(seesTheNewFrontmostAfter([&] { driver.pressKeys({"cmd+tab"}); }));
}

TEST_F(AXCGDriverInputTest, WithoutAnyWaitTheFrontmostReadIsTheOldOne) {
    // The model itself: a scroll has no settling wait, so nothing refreshes.
    EXPECT_FALSE(seesTheNewFrontmostAfter([&] { driver.scroll(ScrollSpec{0, 1, std::nullopt}); }));
}

// Click ------------------------------------------------------------------------

TEST_F(AXCGDriverInputTest, ClickWarpsPostsDownAndUpThenSettles) {
    driver.click(Point{10.5, 20}, false);
    EXPECT_EQ(platform.timeline(),
              (Lines{"warp 10.5,20", "burst of 2", "post hid mouse-down 10.5,20 click=1",
                     "post hid mouse-up 10.5,20 click=1", "run loop 0.4"}));
    for (const auto& event : platform.posted()) {
        EXPECT_EQ(event.kind, EventKind::mouse);
        EXPECT_EQ(event.button, kCGMouseButtonLeft);
        EXPECT_EQ(event.tap, kCGHIDEventTap);
        EXPECT_EQ(event.sourceState, std::nullopt);
        EXPECT_EQ(event.point, (Point{10.5, 20}));
    }
    EXPECT_EQ(platform.posted()[0].mouseType, kCGEventLeftMouseDown);
    EXPECT_EQ(platform.posted()[1].mouseType, kCGEventLeftMouseUp);
}

// Both clicks go in one burst: where the application counts a double click by
// its own clock, the second press must not wait on anything this process does.
TEST_F(AXCGDriverInputTest, DoubleClickPostsTwoClicksWithRisingClickStateInOneBurstAndOneWait) {
    driver.click(Point{3, 4}, true);
    EXPECT_EQ(platform.timeline(),
              (Lines{"warp 3,4", "burst of 4", "post hid mouse-down 3,4 click=1",
                     "post hid mouse-up 3,4 click=1", "post hid mouse-down 3,4 click=2",
                     "post hid mouse-up 3,4 click=2", "run loop 0.4"}));
    std::vector<int64_t> states;
    for (const auto& event : platform.posted()) {
        states.push_back(event.clickState().value_or(-1));
    }
    EXPECT_EQ(states, (std::vector<int64_t>{1, 1, 2, 2}));
    EXPECT_EQ(platform.runLoopWaits(), (std::vector<double>{0.4}));
}

TEST_F(AXCGDriverInputTest, MouseEventThatCannotBeCreatedIsSkipped) {
    platform.failEventCreation(EventKind::mouse, 1);  // the first mouse-up
    EXPECT_NO_THROW(driver.click(Point{1, 1}, true));
    EXPECT_EQ(platform.timeline(),
              (Lines{"warp 1,1", "burst of 3", "post hid mouse-down 1,1 click=1",
                     "post hid mouse-down 1,1 click=2", "post hid mouse-up 1,1 click=2",
                     "run loop 0.4"}));
}

TEST_F(AXCGDriverInputTest, ClickNeverFailsEvenWithoutAnyEvent) {
    for (int i = 0; i < 4; ++i) {
        platform.failEventCreation(EventKind::mouse, i);
    }
    EXPECT_NO_THROW(driver.click(Point{1, 1}, true));
    EXPECT_TRUE(platform.posted().empty());
    EXPECT_EQ(platform.runLoopWaits(), (std::vector<double>{0.4}));
}

TEST_F(AXCGDriverInputTest, EveryCreatedEventIsReleased) {
    driver.click(Point{1, 1}, true);
    driver.typeText("ab");
    driver.pressKeys({"cmd+a"});
    driver.scroll(ScrollSpec{1, 1, std::nullopt});
    EXPECT_EQ(platform.eventsCreated(), 4 + 4 + 2 + 1);
    EXPECT_EQ(platform.eventsReleased(), platform.eventsCreated());
}

// Type text --------------------------------------------------------------------

TEST_F(AXCGDriverInputTest, EachCharacterIsAKeyPairOnTheSessionTapThenAShortWait) {
    driver.typeText("ab");
    EXPECT_EQ(platform.eventSourceRequests(),
              (std::vector<int32_t>{kCGEventSourceStateCombinedSessionState}));
    EXPECT_EQ(
        platform.timeline(),
        (Lines{"post session key 0 down unicode=U+0061", "post session key 0 up unicode=U+0061",
               "sleep 0.012", "post session key 0 down unicode=U+0062",
               "post session key 0 up unicode=U+0062", "sleep 0.012", "run loop 0.3"}));
    for (const auto& event : platform.posted()) {
        EXPECT_EQ(event.kind, EventKind::keyboard);
        EXPECT_EQ(event.keyCode, 0);
        EXPECT_EQ(event.tap, kCGSessionEventTap);
        EXPECT_EQ(event.sourceState, kCGEventSourceStateCombinedSessionState);
        EXPECT_EQ(event.flags, std::nullopt);
    }
}

TEST_F(AXCGDriverInputTest, EmptyTextPostsNothingAndStillWaits) {
    driver.typeText("");
    EXPECT_TRUE(platform.posted().empty());
    EXPECT_EQ(platform.runLoopWaits(), (std::vector<double>{0.3}));
    EXPECT_TRUE(platform.sleeps().empty());
}

TEST_F(AXCGDriverInputTest, AnEmojiSequenceIsOneKeyPairWithAllItsUnits) {
    // man, zero-width joiner, woman, zero-width joiner, girl: five code points, eight units.
    const std::string family =
        "\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA7";
    driver.typeText(family);
    const std::u16string units = u"\U0001F468\u200D\U0001F469\u200D\U0001F467";
    ASSERT_EQ(units.size(), 8u);
    EXPECT_EQ(unicodeOf(platform.posted()), (std::vector<std::u16string>{units, units}));
    EXPECT_TRUE(platform.posted()[0].keyDown);
    EXPECT_FALSE(platform.posted()[1].keyDown);
    EXPECT_EQ(platform.sleeps(), (std::vector<double>{0.012}));
    EXPECT_EQ(platform.runLoopWaits(), (std::vector<double>{0.3}));
}

TEST_F(AXCGDriverInputTest, CombiningMarksAndFlagsStayWithTheirCharacter) {
    // e + combining acute, a regional-indicator flag, and a plain x.
    driver.typeText("e\xCC\x81\xF0\x9F\x87\xA9\xF0\x9F\x87\xAAx");
    EXPECT_EQ(unicodeOf(platform.posted()),
              (std::vector<std::u16string>{u"e\u0301", u"e\u0301", u"\U0001F1E9\U0001F1EA",
                                           u"\U0001F1E9\U0001F1EA", u"x", u"x"}));
    EXPECT_EQ(platform.sleeps(), (std::vector<double>{0.012, 0.012, 0.012}));
    EXPECT_EQ(platform.runLoopWaits(), (std::vector<double>{0.3}));
}

TEST_F(AXCGDriverInputTest, ACharacterOutsideTheBasicPlaneCarriesItsSurrogatePair) {
    driver.typeText("\xF0\x9F\x98\x80");  // grinning face
    ASSERT_EQ(platform.posted().size(), 2u);
    EXPECT_EQ(platform.posted()[0].unicode, (std::u16string{0xD83D, 0xDE00}));
}

TEST_F(AXCGDriverInputTest, InvalidUtf8IsTypedAsReplacementCharacter) {
    driver.typeText("a\xFF");
    EXPECT_EQ(unicodeOf(platform.posted()),
              (std::vector<std::u16string>{u"a", u"a", u"\uFFFD", u"\uFFFD"}));
}

TEST_F(AXCGDriverInputTest, WithoutAnEventSourceEventsAreMadeWithoutOne) {
    platform.failEventSourceCreation(true);
    driver.typeText("a");
    ASSERT_EQ(platform.posted().size(), 2u);
    EXPECT_EQ(platform.posted()[0].sourceState, std::nullopt);
    EXPECT_EQ(platform.posted()[0].unicode, u"a");
}

TEST_F(AXCGDriverInputTest, KeyDownAllocationFailureStopsTypingWithoutTheFinalWait) {
    platform.failEventCreation(EventKind::keyboard, 2);  // the second character's key-down
    EXPECT_EQ(failureOf([&] { driver.typeText("abc"); }), "os failure: cgevent keyboard alloc");
    EXPECT_EQ(unicodeOf(platform.posted()), (std::vector<std::u16string>{u"a", u"a"}));
    EXPECT_EQ(platform.sleeps(), (std::vector<double>{0.012}));
    EXPECT_TRUE(platform.runLoopWaits().empty());
}

TEST_F(AXCGDriverInputTest, KeyUpAllocationFailureReleasesTheKeyDown) {
    platform.failEventCreation(EventKind::keyboard, 1);  // the first character's key-up
    EXPECT_EQ(failureOf([&] { driver.typeText("ab"); }), "os failure: cgevent keyboard alloc");
    EXPECT_TRUE(platform.posted().empty());
    EXPECT_TRUE(platform.sleeps().empty());
    EXPECT_TRUE(platform.runLoopWaits().empty());
    EXPECT_EQ(platform.eventsCreated(), 1);
    EXPECT_EQ(platform.eventsReleased(), 1);
}

// Press keys -------------------------------------------------------------------

TEST_F(AXCGDriverInputTest, ModifiersAreFlagsOnTheKeysOwnEvents) {
    driver.pressKeys({"CMD+Shift+A"});
    EXPECT_EQ(platform.timeline(), (Lines{"post hid key 0 down flags=0x120000",
                                          "post hid key 0 up flags=0x120000", "run loop 0.4"}));
    for (const auto& event : platform.posted()) {
        EXPECT_EQ(event.sourceState, std::nullopt);
        EXPECT_EQ(event.unicode, std::nullopt);
    }
}

TEST_F(AXCGDriverInputTest, EmptyKeyListOnlyWaits) {
    driver.pressKeys({});
    EXPECT_TRUE(platform.posted().empty());
    EXPECT_EQ(platform.runLoopWaits(), (std::vector<double>{0.4}));
}

TEST_F(AXCGDriverInputTest, SeparateKeyNamesAreNotAChord) {
    EXPECT_EQ(failureOf([&] { driver.pressKeys({"cmd", "c"}); }), "os failure: unknown key: cmd");
    EXPECT_TRUE(platform.posted().empty());
    EXPECT_TRUE(platform.sleeps().empty());
    EXPECT_TRUE(platform.runLoopWaits().empty());
}

TEST_F(AXCGDriverInputTest, UnknownModifierWordIsIgnored) {
    driver.pressKeys({"ctrl+hyper+c"});
    ASSERT_EQ(platform.posted().size(), 2u);
    EXPECT_EQ(platform.posted()[0].keyCode, 8);
    EXPECT_EQ(platform.posted()[0].flags, 0x40000u);
    EXPECT_EQ(platform.posted()[1].flags, 0x40000u);
}

TEST_F(AXCGDriverInputTest, FunctionKeysAreUnknown) {
    EXPECT_EQ(failureOf([&] { driver.pressKeys({"f5"}); }), "os failure: unknown key: f5");
    EXPECT_EQ(failureOf([&] { driver.pressKeys({"Shift+F5"}); }), "os failure: unknown key: f5");
}

TEST_F(AXCGDriverInputTest, AChordOfOnlyPlusSignsIsSkipped) {
    driver.pressKeys({"+", "++", "tab"});
    EXPECT_EQ(platform.timeline(), (Lines{"post hid key 48 down flags=0x0",
                                          "post hid key 48 up flags=0x0", "run loop 0.4"}));
}

TEST_F(AXCGDriverInputTest, ChordsFollowEachOtherWithoutWaiting) {
    driver.pressKeys({"return", "shift+tab", "fn+left"});
    EXPECT_EQ(platform.timeline(),
              (Lines{"post hid key 36 down flags=0x0", "post hid key 36 up flags=0x0",
                     "post hid key 48 down flags=0x20000", "post hid key 48 up flags=0x20000",
                     "post hid key 123 down flags=0x800000", "post hid key 123 up flags=0x800000",
                     "run loop 0.4"}));
}

TEST_F(AXCGDriverInputTest, ALaterFailingChordLeavesEarlierOnesPressedAndSkipsTheWait) {
    EXPECT_EQ(failureOf([&] {
                  driver.pressKeys({"a", "b", "nosuchkey"});
              }),
              "os failure: unknown key: nosuchkey");
    EXPECT_EQ(platform.posted().size(), 4u);
    EXPECT_TRUE(platform.sleeps().empty());
    EXPECT_TRUE(platform.runLoopWaits().empty());
}

TEST_F(AXCGDriverInputTest, KeyEventAllocationFailures) {
    platform.failEventCreation(EventKind::keyboard, 0);
    EXPECT_EQ(failureOf([&] { driver.pressKeys({"a"}); }), "os failure: cgevent key alloc");
    platform.failEventCreation(EventKind::keyboard, 2);  // the next key-up
    EXPECT_EQ(failureOf([&] { driver.pressKeys({"a"}); }), "os failure: cgevent key alloc");
    EXPECT_TRUE(platform.posted().empty());
    EXPECT_TRUE(platform.sleeps().empty());
    EXPECT_TRUE(platform.runLoopWaits().empty());
    EXPECT_EQ(platform.eventsReleased(), platform.eventsCreated());
}

// Scroll -----------------------------------------------------------------------

TEST_F(AXCGDriverInputTest, ScrollWithoutAPointDoesNotMoveThePointer) {
    driver.scroll(ScrollSpec{3, -10, std::nullopt});
    EXPECT_TRUE(platform.warps().empty());
    ASSERT_EQ(platform.posted().size(), 1u);
    const auto& event = platform.posted()[0];
    EXPECT_EQ(event.kind, EventKind::scrollWheel);
    EXPECT_EQ(event.wheel1, -10);
    EXPECT_EQ(event.wheel2, 3);
    EXPECT_EQ(event.wheel3, 0);
    EXPECT_EQ(event.wheelCount, 2u);
    EXPECT_EQ(event.units, kCGScrollEventUnitPixel);
    EXPECT_EQ(event.tap, kCGHIDEventTap);
    EXPECT_EQ(event.sourceState, std::nullopt);
    EXPECT_TRUE(platform.sleeps().empty());
    EXPECT_TRUE(platform.runLoopWaits().empty());
}

TEST_F(AXCGDriverInputTest, ScrollAtAPointWarpsThere) {
    driver.scroll(ScrollSpec{0, 5, Point{100, 200}});
    EXPECT_EQ(platform.timeline(), (Lines{"warp 100,200", "post hid scroll 5,0,0"}));
}

TEST_F(AXCGDriverInputTest, ScrollAcceptsTheWholeSigned32BitRange) {
    driver.scroll(ScrollSpec{std::numeric_limits<int32_t>::min(),
                             std::numeric_limits<int32_t>::max(), std::nullopt});
    EXPECT_EQ(platform.posted()[0].wheel1, std::numeric_limits<int32_t>::max());
    EXPECT_EQ(platform.posted()[0].wheel2, std::numeric_limits<int32_t>::min());
}

TEST_F(AXCGDriverInputTest, ScrollEventAllocationFailure) {
    platform.failEventCreation(EventKind::scrollWheel, 0);
    EXPECT_EQ(failureOf([&] {
                  driver.scroll(ScrollSpec{1, 1, Point{5, 5}});
              }),
              "os failure: cgevent scroll alloc");
    EXPECT_EQ(platform.warps().size(), 1u);
    EXPECT_TRUE(platform.posted().empty());
}

using AXCGDriverInputDeathTest = AXCGDriverInputTest;

TEST_F(AXCGDriverInputDeathTest, DxBeyondSigned32BitsStopsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(driver.scroll(ScrollSpec{2147483648LL, 0, std::nullopt}),
                 "scroll dx 2147483648 does not fit in 32 bits");
}

TEST_F(AXCGDriverInputDeathTest, DyBelowSigned32BitsStopsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(driver.scroll(ScrollSpec{0, -2147483649LL, std::nullopt}),
                 "scroll dy -2147483649 does not fit in 32 bits");
}

}  // namespace
}  // namespace velmora::native
