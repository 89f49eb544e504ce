#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "core/model/DriverError.h"
#include "core/native/AXCGDriver.h"
#include "tests/support/ScriptedPlatform.h"

namespace velmora::native {
namespace {

const std::string kApp = "com.example.editor";
const std::string kPath = "/tmp/shots/session-1.png";
const std::vector<uint8_t> kPng = {0x89, 'P', 'N', 'G', 1, 2, 3};

class AXCGDriverCaptureTest : public ::testing::Test {
  protected:
    AXCGDriverCaptureTest() {
        platform.setDisplays({ScriptedPlatform::display("main", 1512, 982)});
        platform.setCaptureImage(platform.image("frame"));
        platform.setPngEncoding(kPng);
    }

    // The DriverError a screenshot throws; fails the test when it throws none.
    DriverError screenshotError() {
        try {
            driver.screenshot(kApp, kPath);
        } catch (const DriverError& error) {
            return error;
        }
        ADD_FAILURE() << "screenshot did not throw";
        return DriverError::osFailure("none");
    }

    ScriptedPlatform platform;
    AXCGDriver driver{platform, 3000, 1.5};
};

TEST_F(AXCGDriverCaptureTest, CapturesTheFirstDisplayAndWritesThePng) {
    driver.screenshot(kApp, kPath);
    const auto captures = platform.captures();
    ASSERT_EQ(captures.size(), 1u);
    EXPECT_EQ(captures[0].display, "main");
    EXPECT_EQ(captures[0].width, 1512);
    EXPECT_EQ(captures[0].height, 982);
    EXPECT_EQ(platform.encodedImages(), (std::vector<std::string>{"frame"}));
    ASSERT_EQ(platform.writes().size(), 1u);
    EXPECT_EQ(platform.writes()[0].first, kPath);
    EXPECT_EQ(platform.writes()[0].second, kPng);
    const auto waits = platform.semaphoreWaits();
    ASSERT_EQ(waits.size(), 1u);
    EXPECT_EQ(waits[0].timeout, 8.0);
    EXPECT_TRUE(waits[0].signalled);
    EXPECT_EQ(platform.now(), 0.0);
}

TEST_F(AXCGDriverCaptureTest, TwoDisplaysCaptureOnlyTheFirstAtItsReportedSize) {
    platform.setDisplays({ScriptedPlatform::display("left", 2560, 1440),
                          ScriptedPlatform::display("right", 1920, 1080)});
    driver.screenshot(kApp, kPath);
    const auto captures = platform.captures();
    ASSERT_EQ(captures.size(), 1u);
    EXPECT_EQ(captures[0].display, "left");
    EXPECT_EQ(captures[0].width, 2560);
    EXPECT_EQ(captures[0].height, 1440);
}

TEST_F(AXCGDriverCaptureTest, TheBundleIdIsNotUsed) {
    platform.setFrontmost("com.example.other");
    driver.screenshot("com.example.not-even-running", kPath);
    EXPECT_EQ(platform.writes().size(), 1u);
    EXPECT_EQ(platform.runningLookups(), 0);
    EXPECT_TRUE(platform.installedLookups().empty());
    EXPECT_EQ(platform.frontmostPolls(), 0);
}

TEST_F(AXCGDriverCaptureTest, ShareableContentErrorIsScreenshotFailedWithItsText) {
    platform.setDisplaysError("The user declined TCCs for application, window, display capture");
    const DriverError error = screenshotError();
    EXPECT_EQ(error.errorCase(), DriverError::Case::screenshotFailed);
    EXPECT_EQ(error.description(),
              "screenshot failed: The user declined TCCs for application, window, display capture");
    EXPECT_TRUE(platform.captures().empty());
    EXPECT_TRUE(platform.writes().empty());
}

TEST_F(AXCGDriverCaptureTest, NoDisplayCarriesThePrefixTwice) {
    platform.setDisplays({});
    const DriverError error = screenshotError();
    EXPECT_EQ(error, DriverError::screenshotFailed("screenshot failed: no display"));
    EXPECT_EQ(error.description(), "screenshot failed: screenshot failed: no display");
    EXPECT_TRUE(platform.captures().empty());
    EXPECT_TRUE(platform.writes().empty());
}

TEST_F(AXCGDriverCaptureTest, CaptureErrorIsScreenshotFailedWithItsText) {
    platform.setCaptureError("Failed to start stream due to audio/video capture failure");
    EXPECT_EQ(screenshotError().description(),
              "screenshot failed: Failed to start stream due to audio/video capture failure");
    EXPECT_TRUE(platform.encodedImages().empty());
    EXPECT_TRUE(platform.writes().empty());
}

TEST_F(AXCGDriverCaptureTest, NothingWithinEightSecondsIsNilImageAfterTheFullWait) {
    platform.setCaptureImage(platform.image("frame"), Delivery::never());
    EXPECT_EQ(screenshotError().description(), "screenshot failed: nil image");
    EXPECT_EQ(platform.now(), 8.0);
    const auto waits = platform.semaphoreWaits();
    ASSERT_EQ(waits.size(), 1u);
    EXPECT_FALSE(waits[0].signalled);
    EXPECT_EQ(waits[0].elapsed, 8.0);
    EXPECT_TRUE(platform.writes().empty());
}

TEST_F(AXCGDriverCaptureTest, AnImageArrivingAfterTheDeadlineIsNilImageAndLandsHarmlessly) {
    platform.setCaptureImage(platform.image("late frame"), Delivery::after(9.5));
    EXPECT_EQ(screenshotError().description(), "screenshot failed: nil image");
    EXPECT_EQ(platform.now(), 8.0);
    EXPECT_EQ(platform.pendingDeliveries(), 1u);
    // The late completion still owns the semaphore it will signal.
    EXPECT_TRUE(platform.semaphoreAlive(0));
    EXPECT_EQ(platform.semaphoreSignals(0), 0);

    platform.runPendingDeliveries();
    EXPECT_EQ(platform.now(), 9.5);
    EXPECT_EQ(platform.semaphoreSignals(0), 1);
    EXPECT_FALSE(platform.semaphoreAlive(0));
    EXPECT_TRUE(platform.encodedImages().empty());
    EXPECT_TRUE(platform.writes().empty());
}

TEST_F(AXCGDriverCaptureTest, LateShareableContentIsNilImageAndStillCapturesAfterwards) {
    platform.setDisplays({ScriptedPlatform::display("main", 800, 600)}, Delivery::after(8.5));
    EXPECT_EQ(screenshotError().description(), "screenshot failed: nil image");
    EXPECT_TRUE(platform.captures().empty());

    platform.runPendingDeliveries();
    EXPECT_EQ(platform.captures().size(), 1u);
    EXPECT_EQ(platform.semaphoreSignals(0), 1);
    EXPECT_TRUE(platform.writes().empty());
}

TEST_F(AXCGDriverCaptureTest, AnAnswerWithinTheWaitEndsItEarly) {
    platform.setDisplays({ScriptedPlatform::display("main", 800, 600)}, Delivery::after(1.0));
    platform.setCaptureImage(platform.image("frame"), Delivery::after(2.5));
    driver.screenshot(kApp, kPath);
    EXPECT_EQ(platform.now(), 3.5);
    EXPECT_EQ(platform.writes().size(), 1u);
}

TEST_F(AXCGDriverCaptureTest, CompletionsOnOtherThreadsAreSeen) {
    platform.setDisplays({ScriptedPlatform::display("main", 800, 600)},
                         Delivery::onAnotherThread());
    platform.setCaptureImage(platform.image("frame"), Delivery::onAnotherThread());
    driver.screenshot(kApp, kPath);
    EXPECT_EQ(platform.writes().size(), 1u);

    platform.setCaptureError("stream stopped", Delivery::onAnotherThread());
    EXPECT_EQ(screenshotError().description(), "screenshot failed: stream stopped");
    EXPECT_EQ(platform.now(), 0.0);
}

TEST_F(AXCGDriverCaptureTest, PngEncodingFailure) {
    platform.setPngEncoding(std::nullopt);
    EXPECT_EQ(screenshotError().description(), "screenshot failed: png encode");
    EXPECT_EQ(platform.encodedImages().size(), 1u);
    EXPECT_TRUE(platform.writes().empty());
}

TEST_F(AXCGDriverCaptureTest, WriteErrorIsThePlatformsOwnUnwrapped) {
    const std::string text = "The folder \xE2\x80\x9Cshots\xE2\x80\x9D doesn\xE2\x80\x99t exist.";
    platform.setWriteError(text);
    try {
        driver.screenshot(kApp, "/no/such/dir/a.png");
        FAIL() << "screenshot did not throw";
    } catch (const DriverError& error) {
        FAIL() << "write error was wrapped: " << error.description();
    } catch (const PlatformError& error) {
        EXPECT_EQ(error.description(), text);
    }
}

using AXCGDriverCaptureDeathTest = AXCGDriverCaptureTest;

TEST_F(AXCGDriverCaptureDeathTest, ACaptureWithNeitherImageNorErrorIsFatal) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    platform.setCaptureNeither();
    EXPECT_DEATH(driver.screenshot(kApp, kPath), "neither an image nor an error");
}

// Content with no displays is "no display" (above); no content and no error at all
// is a broken platform, and the process stops rather than report a false reason.
TEST_F(AXCGDriverCaptureDeathTest, ShareableContentWithNeitherContentNorErrorIsFatal) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    platform.setDisplaysNeither();
    EXPECT_DEATH(driver.screenshot(kApp, kPath), "neither content nor an error");
}

TEST_F(AXCGDriverCaptureDeathTest, NeitherContentNorErrorIsFatalOnTheCompletionsThreadToo) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    platform.setDisplaysNeither(Delivery::onAnotherThread());
    EXPECT_DEATH(driver.screenshot(kApp, kPath), "neither content nor an error");
}

// Fingerprint ------------------------------------------------------------------

class AXCGDriverFingerprintTest : public ::testing::Test {
  protected:
    std::string failureOf(const std::string& bundleId) {
        try {
            driver.binarySha256(bundleId);
        } catch (const DriverError& error) {
            return error.description();
        }
        return "no error";
    }

    ScriptedPlatform platform;
    AXCGDriver driver{platform, 3000, 1.5};
};

TEST_F(AXCGDriverFingerprintTest, TheRunningAppsBundleExecutableIsHashed) {
    platform.addRunningApp(
        kApp, RunningApplication{42, "/Applications/Editor.app", "/elsewhere/ignored"});
    platform.setBundleExecutable("/Applications/Editor.app",
                                 "/Applications/Editor.app/Contents/MacOS/Editor");
    platform.addFile("/Applications/Editor.app/Contents/MacOS/Editor", {'a', 'b', 'c'});
    EXPECT_EQ(driver.binarySha256(kApp),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_TRUE(platform.installedLookups().empty());
    EXPECT_EQ(platform.reads(),
              (std::vector<std::string>{"/Applications/Editor.app/Contents/MacOS/Editor"}));
}

TEST_F(AXCGDriverFingerprintTest, AnEmptyExecutableHasTheDigestOfNoBytes) {
    platform.addRunningApp(kApp, RunningApplication{42, "/A.app", {}});
    platform.setBundleExecutable("/A.app", "/A.app/Contents/MacOS/A");
    platform.addFile("/A.app/Contents/MacOS/A", {});
    EXPECT_EQ(driver.binarySha256(kApp),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST_F(AXCGDriverFingerprintTest, TheFirstRunningInstanceCounts) {
    platform.addRunningApp(kApp, RunningApplication{1, "/First.app", {}});
    platform.addRunningApp(kApp, RunningApplication{2, "/Second.app", {}});
    platform.setBundleExecutable("/First.app", "/first");
    platform.setBundleExecutable("/Second.app", "/second");
    platform.addFile("/first", {'a', 'b', 'c'});
    platform.addFile("/second", {});
    driver.binarySha256(kApp);
    EXPECT_EQ(platform.reads(), (std::vector<std::string>{"/first"}));
}

TEST_F(AXCGDriverFingerprintTest, AnInstalledAppThatIsNotRunningIsFoundThroughTheWorkspace) {
    platform.addInstalledApp(kApp, "/Applications/Editor.app");
    platform.setBundleExecutable("/Applications/Editor.app", "/Applications/Editor.app/Editor");
    platform.addFile("/Applications/Editor.app/Editor", {});
    EXPECT_EQ(driver.binarySha256(kApp),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(platform.installedLookups(), (std::vector<std::string>{kApp}));
}

TEST_F(AXCGDriverFingerprintTest, ARunningAppWithoutBundleOrExecutableFallsBackToTheWorkspace) {
    platform.addRunningApp(kApp, RunningApplication{42, std::nullopt, "/exe"});
    platform.addInstalledApp(kApp, "/Installed.app");
    platform.setBundleExecutable("/Installed.app", "/installed-exe");
    platform.addFile("/installed-exe", {});
    platform.addFile("/exe", {'a', 'b', 'c'});
    driver.binarySha256(kApp);
    EXPECT_EQ(platform.reads(), (std::vector<std::string>{"/installed-exe"}));

    ScriptedPlatform other;
    AXCGDriver otherDriver(other, 3000, 1.5);
    other.addRunningApp(kApp, RunningApplication{42, "/NoExecutable.app", {}});
    other.addInstalledApp(kApp, "/Installed.app");
    other.setBundleExecutable("/Installed.app", "/installed-exe");
    other.addFile("/installed-exe", {});
    otherDriver.binarySha256(kApp);
    EXPECT_EQ(other.reads(), (std::vector<std::string>{"/installed-exe"}));
}

TEST_F(AXCGDriverFingerprintTest, NeitherRunningNorInstalledIsAppNotRunning) {
    EXPECT_EQ(failureOf(kApp), "app not running: " + kApp);
    EXPECT_TRUE(platform.reads().empty());
}

TEST_F(AXCGDriverFingerprintTest, AnInstalledBundleWithoutExecutableIsAppNotRunning) {
    platform.addRunningApp(kApp, RunningApplication{42, "/Broken.app", {}});
    platform.addInstalledApp(kApp, "/Broken.app");
    EXPECT_EQ(failureOf(kApp), "app not running: " + kApp);
    EXPECT_TRUE(platform.reads().empty());
}

TEST_F(AXCGDriverFingerprintTest, ReadErrorIsThePlatformsOwnUnwrapped) {
    platform.addInstalledApp(kApp, "/A.app");
    platform.setBundleExecutable("/A.app", "/A.app/exe");
    platform.setReadError("/A.app/exe", "Permission denied");
    try {
        driver.binarySha256(kApp);
        FAIL() << "binarySha256 did not throw";
    } catch (const DriverError& error) {
        FAIL() << "read error was wrapped: " << error.description();
    } catch (const PlatformError& error) {
        EXPECT_EQ(error.description(), "Permission denied");
    }
}

}  // namespace
}  // namespace velmora::native
