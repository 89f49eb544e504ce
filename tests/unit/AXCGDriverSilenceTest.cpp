#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/native/AXCGDriver.h"
#include "tests/support/ScriptedPlatform.h"

// An application that stops answering accessibility reads costs one time-out per
// process: afterwards each walk of it asks one short probe and, while it stays
// silent, fails every other read at once; once it answers, it is read normally.

namespace velmora::native {
namespace {

const std::string kApp = "com.example.editor";
const std::string kOther = "com.example.other";
constexpr int32_t kPid = 42;
constexpr int32_t kOtherPid = 43;
// The provider's own time-out, as macOS has it.
constexpr double kProviderTimeout = 6.0;

class AXCGDriverSilenceTest : public ::testing::Test {
  protected:
    AXCGDriverSilenceTest() {
        platform.addRunningApp(kApp, RunningApplication{kPid, {}, {}});
        app = node("app", "AXApplication");
        window = node("window", "AXWindow");
        button = node("button", "AXButton");
        platform.setApplicationElement(kPid, app);
        platform.setChildren(app, {window});
        platform.setChildren(window, {button});
        platform.setWindows(app, {window});
        platform.setFrame(button, Rect{1, 2, 3, 4});
    }

    AXElement node(const std::string& name, const std::string& role) {
        AXElement made = platform.element(name);
        platform.setText(made, "AXRole", role);
        platform.setText(made, "AXTitle", name);
        return made;
    }

    std::vector<ElementInfo> queryAll() { return driver.query(kApp, std::nullopt, true); }

    // What a walk gives when every read fails: the application element alone.
    static std::vector<ElementInfo> failedWalk() {
        ElementInfo unknown;
        unknown.role = "AXUnknown";
        return {unknown};
    }

    ScriptedPlatform platform;
    AXElement app;
    AXElement window;
    AXElement button;
    AXCGDriver driver{platform, 3000, 1.5};
};

TEST_F(AXCGDriverSilenceTest, AnApplicationThatAnswersIsNeverProbed) {
    const auto first = queryAll();
    const auto second = queryAll();
    EXPECT_EQ(first.size(), 5u);
    EXPECT_EQ(first, second);
    EXPECT_TRUE(platform.messagingTimeouts().empty());
    EXPECT_EQ(platform.now(), 0.0);
}

TEST_F(AXCGDriverSilenceTest, TheFirstUnansweredReadCostsOneTimeOutAndEndsTheWalk) {
    platform.setAnswering(false, kProviderTimeout);

    EXPECT_EQ(queryAll(), failedWalk());
    // One read was made and waited the provider's whole time-out; every other read
    // of the walk, windows included, failed without asking the application.
    EXPECT_EQ(platform.readLog(), (std::vector<std::string>{"app.AXRole"}));
    EXPECT_EQ(platform.timeline(), (std::vector<std::string>{"unanswered app.AXRole 6"}));
    EXPECT_EQ(platform.now(), kProviderTimeout);
    EXPECT_TRUE(platform.messagingTimeouts().empty());
}

TEST_F(AXCGDriverSilenceTest, LaterWalksOfASilentApplicationCostOneShortProbeEach) {
    platform.setAnswering(false, kProviderTimeout);
    queryAll();

    for (int walk = 1; walk <= 3; ++walk) {
        const double started = platform.now();
        EXPECT_EQ(queryAll(), failedWalk());
        EXPECT_DOUBLE_EQ(platform.now() - started, AXCGDriver::kProbeTimeout);
    }
    EXPECT_EQ(AXCGDriver::kProbeTimeout, 0.25);
    EXPECT_EQ(platform.timeline(), (std::vector<std::string>{
                                       "unanswered app.AXRole 6",
                                       "timeout app 0.25",
                                       "unanswered app.AXRole 0.25",
                                       "timeout app 0.25",
                                       "unanswered app.AXRole 0.25",
                                       "timeout app 0.25",
                                       "unanswered app.AXRole 0.25",
                                   }));
    EXPECT_EQ(platform.readCount("AXRole"), 4);
    EXPECT_EQ(platform.readLog().size(), 4u);
}

TEST_F(AXCGDriverSilenceTest, AnApplicationThatAnswersTheProbeIsReadNormallyAgain) {
    const auto normal = queryAll();
    platform.setAnswering(false, kProviderTimeout);
    queryAll();
    platform.setAnswering(true);

    const size_t readsBefore = platform.readLog().size();
    const double started = platform.now();
    EXPECT_EQ(queryAll(), normal);
    EXPECT_EQ(platform.now(), started);
    // The probe set the short time-out; its answer gave the provider's back.
    ASSERT_EQ(platform.messagingTimeouts().size(), 2u);
    EXPECT_EQ(platform.messagingTimeouts()[0].element, "app");
    EXPECT_EQ(platform.messagingTimeouts()[0].seconds, AXCGDriver::kProbeTimeout);
    EXPECT_EQ(platform.messagingTimeouts()[1].element, "app");
    EXPECT_EQ(platform.messagingTimeouts()[1].seconds, 0.0);
    // The probe is the walk's first read, not an extra one: seven reads of each of
    // app, window and button, and the window list (the window's second record,
    // with the button's, is the first one's copy).
    ASSERT_EQ(normal.size(), 5u);
    EXPECT_EQ(platform.readLog().size() - readsBefore, 3 * 7 + 1);

    // No longer silent: the next walk sets nothing.
    EXPECT_EQ(queryAll(), normal);
    EXPECT_EQ(platform.messagingTimeouts().size(), 2u);
}

TEST_F(AXCGDriverSilenceTest, ASilentApplicationIsRememberedUntilItAnswers) {
    platform.setAnswering(false, kProviderTimeout);
    queryAll();
    queryAll();
    platform.setAnswering(true);
    queryAll();
    // Silent again later: the whole time-out once more, then probes.
    platform.setAnswering(false, kProviderTimeout);
    const double started = platform.now();
    EXPECT_EQ(queryAll(), failedWalk());
    EXPECT_EQ(platform.now() - started, kProviderTimeout);
    EXPECT_EQ(queryAll(), failedWalk());
    EXPECT_DOUBLE_EQ(platform.now() - started, kProviderTimeout + AXCGDriver::kProbeTimeout);
}

TEST_F(AXCGDriverSilenceTest, AnApplicationThatStopsMidWalkKeepsWhatWasRead) {
    // The application element's record is answered; the request for its children
    // is the first that goes unanswered.
    platform.setAnswering(false, kProviderTimeout, 6);
    const auto elements = queryAll();
    ASSERT_EQ(elements.size(), 1u);
    EXPECT_EQ(elements[0].role, "AXApplication");
    EXPECT_EQ(elements[0].title, "app");
    EXPECT_FALSE(elements[0].frame);
    EXPECT_EQ(platform.readLog().size(), 7u);
    EXPECT_EQ(platform.now(), kProviderTimeout);
}

TEST_F(AXCGDriverSilenceTest, AWindowAfterTheApplicationFellSilentIsWalkedNotCopied) {
    // Another window comes first in the window list; the application stops
    // answering with its record, after the whole tree and the window list.
    AXElement other = node("other", "AXWindow");
    platform.setWindows(app, {other, window});
    platform.setAnswering(false, kProviderTimeout, 3 * 7 + 1);
    const auto elements = queryAll();
    ASSERT_EQ(elements.size(), 5u);
    EXPECT_EQ(elements[2].title, "button");
    // Both windows' walks fail: the second one's reads at once, without a copy
    // of what the tree walk read before.
    EXPECT_EQ(elements[3], failedWalk().front());
    EXPECT_EQ(elements[4], failedWalk().front());
    EXPECT_EQ(platform.now(), kProviderTimeout);
}

TEST_F(AXCGDriverSilenceTest, AFailureThatCameQuicklyIsAnAnswer) {
    // An element that went away fails at once, the way an unanswered read fails.
    platform.setRead(window, "AXTitle", AttributeRead::failure(kAXErrorCannotComplete));
    const auto elements = queryAll();
    EXPECT_EQ(elements.size(), 5u);
    EXPECT_FALSE(elements[1].title);
    queryAll();
    EXPECT_TRUE(platform.messagingTimeouts().empty());
}

TEST_F(AXCGDriverSilenceTest, AProbeAnsweredWithAnErrorIsAnAnswer) {
    platform.setAnswering(false, kProviderTimeout);
    queryAll();
    platform.setAnswering(true);
    platform.setRead(app, "AXRole", AttributeRead::failure(kAXErrorCannotComplete));
    const auto elements = queryAll();
    EXPECT_EQ(elements.size(), 5u);
    EXPECT_EQ(elements[0].role, "AXUnknown");
    EXPECT_EQ(platform.messagingTimeouts().back().seconds, 0.0);
}

TEST_F(AXCGDriverSilenceTest, SilenceIsRememberedPerApplication) {
    platform.addRunningApp(kOther, RunningApplication{kOtherPid, {}, {}});
    AXElement other = node("other", "AXApplication");
    platform.setApplicationElement(kOtherPid, other);

    platform.setAnswering(false, kProviderTimeout);
    queryAll();
    platform.setAnswering(true);
    // The other application was never silent: read without a probe.
    const auto elements = driver.query(kOther, std::nullopt, true);
    ASSERT_EQ(elements.size(), 1u);
    EXPECT_EQ(elements[0].role, "AXApplication");
    EXPECT_TRUE(platform.messagingTimeouts().empty());
}

TEST_F(AXCGDriverSilenceTest, TheStructuralStateOfASilentApplicationCountsTheFailedWalk) {
    platform.setFrontmost(kApp);
    platform.setAnswering(false, kProviderTimeout);
    const StructuralState first = driver.structuralState(kApp);
    EXPECT_EQ(first.elementCount, 1);
    EXPECT_EQ(first.roleHistogram, (std::map<std::string, int64_t>{{"AXUnknown", 1}}));
    EXPECT_EQ(first.frontmostBundleId, kApp);
    const double started = platform.now();
    const StructuralState second = driver.structuralState(kApp);
    EXPECT_EQ(second, first);
    EXPECT_DOUBLE_EQ(platform.now() - started, AXCGDriver::kProbeTimeout);
}

}  // namespace
}  // namespace velmora::native
