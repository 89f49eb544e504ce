// The macOS provider's waits on a real Mac: a run-loop wait lasts its full length
// and still lets the workspace's answers change, and a semaphore wait with the run
// loop running ends at the signal.

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "core/native/Platform.h"
#include "core/native/SystemPlatform.h"

extern char** environ;

namespace velmora::native {
namespace {

const std::string kCalculator = "com.apple.calculator";

// Runs /usr/bin/open for a bundle identifier and waits for it with waitpid, so
// that nothing here turns the run loop.
bool openByBundleId(const std::string& bundleId) {
    const char* arguments[] = {"/usr/bin/open", "-b", bundleId.c_str(), nullptr};
    pid_t pid = 0;
    if (posix_spawn(&pid, "/usr/bin/open", nullptr, nullptr, const_cast<char**>(arguments),
                    environ) != 0) {
        return false;
    }
    int status = 0;
    return waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

class MacRunLoopWaitTest : public ::testing::Test {
  protected:
    std::unique_ptr<Platform> platform = makeSystemPlatform();
};

TEST_F(MacRunLoopWaitTest, ARunLoopWaitLastsItsWholeLength) {
    // Nothing else is scheduled on the loop: the wait must sleep, not return early.
    const double start = platform->monotonicSeconds();
    platform->waitRunningLoop(0.2);
    EXPECT_GE(platform->monotonicSeconds() - start, 0.2);
}

TEST_F(MacRunLoopWaitTest, ASemaphoreWaitWithTheRunLoopEndsAtTheSignal) {
    auto semaphore = platform->makeSemaphore();
    std::thread signaller([semaphore] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        semaphore->signal();
    });
    const double start = platform->monotonicSeconds();
    EXPECT_TRUE(semaphore->waitRunningLoop(30.0));
    EXPECT_LT(platform->monotonicSeconds() - start, 30.0);
    signaller.join();
}

TEST_F(MacRunLoopWaitTest, ASemaphoreWaitWithTheRunLoopTimesOutUnsignalled) {
    auto semaphore = platform->makeSemaphore();
    const double start = platform->monotonicSeconds();
    EXPECT_FALSE(semaphore->waitRunningLoop(0.2));
    EXPECT_GE(platform->monotonicSeconds() - start, 0.2);
}

TEST_F(MacRunLoopWaitTest, TheFrontmostApplicationChangesAcrossRunLoopWaits) {
    const std::optional<std::string> before = platform->frontmostApplicationBundleId();
    if (!before) {
        GTEST_SKIP() << "no frontmost application: this runner has no graphical session";
    }
    if (*before == kCalculator) {
        GTEST_SKIP() << "Calculator is already in front";
    }
    const bool wasRunning = !platform->runningApplications(kCalculator).empty();
    if (!openByBundleId(kCalculator)) {
        GTEST_SKIP() << "Calculator cannot be opened here";
    }

    // Without the run loop the process may keep reading the old answer; what it
    // reads is reported, not required, since the system decides when to refresh.
    int blockedPolls = 0;
    std::optional<std::string> blocked;
    for (; blockedPolls < 20; ++blockedPolls) {
        blocked = platform->frontmostApplicationBundleId();
        if (blocked == kCalculator) {
            break;
        }
        platform->sleep(0.05);
    }
    std::cout << "after " << blockedPolls << " blocked polls the frontmost read was "
              << blocked.value_or("none") << "\n";

    // With the run loop running between polls, the change is seen.
    std::optional<std::string> seen;
    const double deadline = platform->monotonicSeconds() + 10.0;
    while (platform->monotonicSeconds() < deadline) {
        seen = platform->frontmostApplicationBundleId();
        if (seen == kCalculator) {
            break;
        }
        platform->waitRunningLoop(0.05);
    }
    EXPECT_EQ(seen, kCalculator);

    // Calculator goes again if this test started it, by its process id.
    if (!wasRunning) {
        for (const RunningApplication& app : platform->runningApplications(kCalculator)) {
            kill(app.processId, SIGTERM);
        }
    }
}

}  // namespace
}  // namespace velmora::native
