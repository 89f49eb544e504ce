#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/model/DriverError.h"
#include "core/native/AXCGDriver.h"
#include "core/native/OsascriptActivation.h"
#include "tests/support/ScriptedPlatform.h"

namespace velmora::native {
namespace {

const std::string kApp = "com.example.editor";
const std::string kOther = "com.example.other";
constexpr int32_t kPid = 42;

class AXCGDriverAppControlTest : public ::testing::Test {
  protected:
    AXCGDriverAppControlTest() { platform.addRunningApp(kApp, RunningApplication{kPid, {}, {}}); }

    int countIn(const std::vector<double>& values, double value) {
        int count = 0;
        for (double v : values) {
            count += v == value ? 1 : 0;
        }
        return count;
    }

    ScriptedPlatform platform;
    AXCGDriver driver{platform, 3000, 1.5};
};

TEST_F(AXCGDriverAppControlTest, ConstructionTouchesNothingAndKeepsTheSettings) {
    ScriptedPlatform untouched;
    AXCGDriver made(untouched, 17, 2.25);
    EXPECT_EQ(made.nodeBudget(), 17);
    EXPECT_EQ(made.focusTimeout(), 2.25);
    EXPECT_TRUE(untouched.timeline().empty());
    EXPECT_EQ(untouched.runningLookups(), 0);
    EXPECT_EQ(untouched.frontmostPolls(), 0);
    EXPECT_EQ(untouched.semaphoresMade(), 0u);
}

TEST_F(AXCGDriverAppControlTest, FrontmostIsThePlatformsAnswer) {
    platform.setFrontmost(kOther);
    EXPECT_EQ(driver.frontmostBundleId(), kOther);
    platform.setFrontmost(std::nullopt);
    EXPECT_EQ(driver.frontmostBundleId(), std::nullopt);
}

TEST_F(AXCGDriverAppControlTest, FocusOfTheFrontmostAppReturnsAfterTheFirstPoll) {
    platform.setFrontmost(kApp);
    EXPECT_TRUE(driver.focus(kApp));
    EXPECT_EQ(platform.timeline(),
              (std::vector<std::string>{"activate 42 options=0", "frontmost -> " + kApp}));
    EXPECT_TRUE(platform.forcedActivations().empty());
    EXPECT_TRUE(platform.runLoopWaits().empty());
    EXPECT_EQ(platform.now(), 0.0);
}

TEST_F(AXCGDriverAppControlTest, FocusActivatesTheFirstRunningInstance) {
    platform.addRunningApp(kApp, RunningApplication{77, {}, {}});
    platform.setFrontmost(kApp);
    driver.focus(kApp);
    ASSERT_EQ(platform.activations().size(), 1u);
    EXPECT_EQ(platform.activations()[0].processId, kPid);
    EXPECT_EQ(platform.activations()[0].options, 0u);
}

TEST_F(AXCGDriverAppControlTest, FocusOfAnAppThatIsNotRunningIsAnError) {
    try {
        driver.focus(kOther);
        FAIL() << "focus did not throw";
    } catch (const DriverError& error) {
        EXPECT_EQ(error, DriverError::appNotRunning(kOther));
        EXPECT_EQ(error.description(), "app not running: " + kOther);
    }
    EXPECT_TRUE(platform.activations().empty());
    EXPECT_TRUE(platform.forcedActivations().empty());
    EXPECT_EQ(platform.frontmostPolls(), 0);
}

TEST_F(AXCGDriverAppControlTest, FocusPollsEveryFiftyMillisecondsUntilFrontmost) {
    platform.setFrontmost(kOther);
    platform.setFrontmostAfterPolls(3, kApp);
    EXPECT_TRUE(driver.focus(kApp));
    EXPECT_EQ(platform.frontmostPolls(), 4);
    // Between two polls the run loop runs; the thread never merely sleeps.
    EXPECT_EQ(platform.runLoopWaits(), (std::vector<double>{0.05, 0.05, 0.05}));
    EXPECT_TRUE(platform.sleeps().empty());
    EXPECT_TRUE(platform.forcedActivations().empty());
}

// The workspace answers as the run loop last left it, as AppKit's does: the
// activation is seen on the poll after the first wait, without osascript.
TEST_F(AXCGDriverAppControlTest, FocusSeesTheAppComeForwardOnceTheRunLoopHasRun) {
    platform.setFrontmost(kOther);
    platform.setWorkspaceRefreshedByRunLoop(true);
    platform.setFrontmostAfterPolls(0, kApp);  // in front from the first poll on
    EXPECT_TRUE(driver.focus(kApp));
    EXPECT_EQ(platform.timeline(),
              (std::vector<std::string>{"activate 42 options=0", "frontmost -> " + kOther,
                                        "run loop 0.05", "frontmost -> " + kApp}));
    EXPECT_TRUE(platform.forcedActivations().empty());
}

TEST_F(AXCGDriverAppControlTest, StubbornAppIsForcedByThePlatformAndWaitedFor) {
    platform.setFrontmost(kOther);
    EXPECT_FALSE(driver.focus(kApp));

    // 0.6 s: twelve waits and thirteen checks (the last after the deadline); then
    // the forced activation; then 1.5 s: thirty waits and thirty-one checks.
    EXPECT_EQ(platform.runLoopWaits().size(), 42u);
    EXPECT_EQ(countIn(platform.runLoopWaits(), 0.05), 42);
    EXPECT_TRUE(platform.sleeps().empty());
    EXPECT_EQ(platform.frontmostPolls(), 13 + 31);
    EXPECT_DOUBLE_EQ(platform.now(), 2.1);

    // Forced once, for the instance the plain activation went to.
    ASSERT_EQ(platform.forcedActivations().size(), 1u);
    EXPECT_EQ(platform.forcedActivations()[0].bundleId, kApp);
    EXPECT_EQ(platform.forcedActivations()[0].processId, kPid);
    ASSERT_EQ(platform.activations().size(), 1u);

    // Forced only after the first wait has run out, and waited for after.
    const auto timeline = platform.timeline();
    auto force = std::find(timeline.begin(), timeline.end(), "force " + kApp + " 42");
    ASSERT_NE(force, timeline.end());
    EXPECT_EQ(std::count(timeline.begin(), force, "run loop 0.05"), 12);
    EXPECT_EQ(*(force - 1), "frontmost -> " + kOther);
    EXPECT_EQ(*(force + 1), "frontmost -> " + kOther);
    EXPECT_EQ(std::count(force, timeline.end(), "run loop 0.05"), 30);
}

TEST_F(AXCGDriverAppControlTest, ForcedActivationThatWorksEndsTheSecondWaitAtOnce) {
    platform.setFrontmost(kOther);
    platform.onForcedActivation([this] { platform.setFrontmost(kApp); });
    EXPECT_TRUE(driver.focus(kApp));
    EXPECT_EQ(platform.runLoopWaits().size(), 12u);
    EXPECT_EQ(platform.frontmostPolls(), 14);
    EXPECT_EQ(platform.forcedActivations().size(), 1u);
}

TEST_F(AXCGDriverAppControlTest, ForcedActivationThatDoesNothingStillGetsItsWholeWait) {
    platform.setFrontmost(kOther);
    platform.setFrontmostAfterPolls(20, kApp);
    EXPECT_TRUE(driver.focus(kApp));
    ASSERT_EQ(platform.forcedActivations().size(), 1u);
    EXPECT_EQ(platform.frontmostPolls(), 21);
}

TEST_F(AXCGDriverAppControlTest, ZeroFocusTimeoutChecksExactlyOnceAfterForcing) {
    AXCGDriver impatient(platform, 3000, 0.0);
    platform.setFrontmost(kOther);
    EXPECT_FALSE(impatient.focus(kApp));
    EXPECT_EQ(platform.frontmostPolls(), 13 + 1);
    EXPECT_EQ(platform.runLoopWaits().size(), 12u);
    EXPECT_EQ(platform.timeline().back(), "frontmost -> " + kOther);
}

TEST_F(AXCGDriverAppControlTest, NegativeFocusTimeoutStillChecksOnce) {
    AXCGDriver impatient(platform, 3000, -1.0);
    platform.setFrontmost(kOther);
    platform.onForcedActivation([this] { platform.setFrontmost(kApp); });
    EXPECT_TRUE(impatient.focus(kApp));
    EXPECT_EQ(platform.frontmostPolls(), 14);
}

TEST_F(AXCGDriverAppControlTest, NoFrontmostAppNeverMatches) {
    AXCGDriver impatient(platform, 3000, 0.0);
    platform.setFrontmost(std::nullopt);
    EXPECT_FALSE(impatient.focus(kApp));
}

TEST_F(AXCGDriverAppControlTest, TheBundleIdGoesIntoTheScriptUnescaped) {
    const std::string odd = "com.x\" to quit --";
    EXPECT_EQ(osascriptActivationScript(odd),
              "tell application id \"com.x\" to quit --\" to activate");
    EXPECT_EQ(osascriptActivationArguments(kApp),
              (std::vector<std::string>{"-e", "tell application id \"" + kApp + "\" to activate"}));
    EXPECT_STREQ(kOsascriptPath, "/usr/bin/osascript");
    // The driver hands the identifier to the platform as it is.
    platform.addRunningApp(odd, RunningApplication{7, {}, {}});
    AXCGDriver impatient(platform, 3000, 0.0);
    impatient.focus(odd);
    ASSERT_EQ(platform.forcedActivations().size(), 1u);
    EXPECT_EQ(platform.forcedActivations()[0].bundleId, odd);
    EXPECT_EQ(platform.forcedActivations()[0].processId, 7);
}

TEST_F(AXCGDriverAppControlTest, LaunchOfAnUnknownIdIsAppNotRunning) {
    try {
        driver.launch(kOther);
        FAIL() << "launch did not throw";
    } catch (const DriverError& error) {
        EXPECT_EQ(error.description(), "app not running: " + kOther);
    }
    EXPECT_TRUE(platform.opens().empty());
    EXPECT_EQ(platform.semaphoresMade(), 0u);
}

TEST_F(AXCGDriverAppControlTest, LaunchLooksTheAppUpAmongInstalledOnesOnly) {
    // Running but unknown to the workspace: still not launchable.
    EXPECT_THROW(driver.launch(kApp), DriverError);
    EXPECT_EQ(platform.runningLookups(), 0);
    EXPECT_EQ(platform.installedLookups(), (std::vector<std::string>{kApp}));
}

TEST_F(AXCGDriverAppControlTest, LaunchOpensWithActivationAndReturnsOnTheAnswer) {
    platform.addInstalledApp(kApp, "/Applications/Editor.app");
    platform.setOpenAnswer(std::nullopt, Delivery::immediately());
    driver.launch(kApp);
    ASSERT_EQ(platform.opens().size(), 1u);
    EXPECT_EQ(platform.opens()[0].location, "/Applications/Editor.app");
    EXPECT_TRUE(platform.opens()[0].activates);
    const auto waits = platform.semaphoreWaits();
    ASSERT_EQ(waits.size(), 1u);
    EXPECT_EQ(waits[0].timeout, 10.0);
    EXPECT_TRUE(waits[0].signalled);
    EXPECT_EQ(waits[0].elapsed, 0.0);
    EXPECT_TRUE(waits[0].runLoop);
    // Launch does not wait for the app to come to the front.
    EXPECT_EQ(platform.frontmostPolls(), 0);
    EXPECT_TRUE(platform.activations().empty());
}

TEST_F(AXCGDriverAppControlTest, LaunchErrorIsAnOsFailure) {
    platform.addInstalledApp(kApp, "/Applications/Editor.app");
    platform.setOpenAnswer("The application cannot be opened.", Delivery::immediately());
    try {
        driver.launch(kApp);
        FAIL() << "launch did not throw";
    } catch (const DriverError& error) {
        EXPECT_EQ(error, DriverError::osFailure("launch: The application cannot be opened."));
        EXPECT_EQ(error.description(), "os failure: launch: The application cannot be opened.");
    }
}

TEST_F(AXCGDriverAppControlTest, LaunchAnswerFromAnotherThreadIsSeen) {
    platform.addInstalledApp(kApp, "/Applications/Editor.app");
    platform.setOpenAnswer("denied", Delivery::onAnotherThread());
    EXPECT_THROW(driver.launch(kApp), DriverError);
    platform.setOpenAnswer(std::nullopt, Delivery::onAnotherThread());
    EXPECT_NO_THROW(driver.launch(kApp));
    EXPECT_EQ(platform.now(), 0.0);
}

TEST_F(AXCGDriverAppControlTest, LaunchWithoutAnswerContinuesAfterTenSeconds) {
    platform.addInstalledApp(kApp, "/Applications/Editor.app");
    platform.setOpenAnswer("too late to matter", Delivery::never());
    EXPECT_NO_THROW(driver.launch(kApp));
    EXPECT_EQ(platform.now(), 10.0);
    const auto waits = platform.semaphoreWaits();
    ASSERT_EQ(waits.size(), 1u);
    EXPECT_FALSE(waits[0].signalled);
    EXPECT_EQ(waits[0].elapsed, 10.0);
    EXPECT_TRUE(waits[0].runLoop);
    // The completion still owns its semaphore.
    EXPECT_TRUE(platform.semaphoreAlive(0));
    EXPECT_EQ(platform.heldCompletions(), 1u);
}

TEST_F(AXCGDriverAppControlTest, LateLaunchErrorIsIgnoredAndLandsHarmlessly) {
    platform.addInstalledApp(kApp, "/Applications/Editor.app");
    platform.setOpenAnswer("late failure", Delivery::after(12.0));
    EXPECT_NO_THROW(driver.launch(kApp));
    EXPECT_EQ(platform.now(), 10.0);
    EXPECT_TRUE(platform.semaphoreAlive(0));
    EXPECT_EQ(platform.semaphoreSignals(0), 0);

    platform.runPendingDeliveries();
    EXPECT_EQ(platform.now(), 12.0);
    EXPECT_EQ(platform.semaphoreSignals(0), 1);
    EXPECT_FALSE(platform.semaphoreAlive(0));
}

TEST_F(AXCGDriverAppControlTest, AnswerWithinTheWaitEndsItEarly) {
    platform.addInstalledApp(kApp, "/Applications/Editor.app");
    platform.setOpenAnswer("crashed on start", Delivery::after(2.5));
    EXPECT_THROW(driver.launch(kApp), DriverError);
    EXPECT_EQ(platform.now(), 2.5);

    platform.setOpenAnswer(std::nullopt, Delivery::after(9.0));
    EXPECT_NO_THROW(driver.launch(kApp));
    EXPECT_EQ(platform.now(), 11.5);
    const auto waits = platform.semaphoreWaits();
    ASSERT_EQ(waits.size(), 2u);
    EXPECT_TRUE(waits[1].signalled);
    EXPECT_EQ(waits[1].elapsed, 9.0);
}

// The launched application reaches the workspace's answers only through the run
// loop; the launch wait runs it, so the focus that follows finds the application.
TEST_F(AXCGDriverAppControlTest, AnAppLaunchedDuringTheWaitIsFoundByTheNextFocus) {
    const std::string fresh = "com.example.fresh";
    platform.addInstalledApp(fresh, "/Applications/Fresh.app");
    platform.setFrontmost(kOther);
    platform.setWorkspaceRefreshedByRunLoop(true);
    platform.onOpen([&] {
        platform.addRunningApp(fresh, RunningApplication{99, {}, {}});
        platform.setFrontmost(fresh);
    });
    platform.setOpenAnswer(std::nullopt, Delivery::onAnotherThread());
    driver.launch(fresh);
    EXPECT_TRUE(driver.focus(fresh));
    EXPECT_EQ(platform.timeline(), (std::vector<std::string>{
                                       "open /Applications/Fresh.app activating",
                                       "run-loop wait 10 signalled",
                                       "activate 99 options=0",
                                       "frontmost -> " + fresh,
                                   }));
}

}  // namespace
}  // namespace velmora::native
