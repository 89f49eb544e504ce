#include "core/native/AXCGDriver.h"

#include <memory>
#include <utility>

#include "core/model/DriverError.h"
#include "core/native/SharedCell.h"

namespace velmora::native {

AXCGDriver::AXCGDriver(Platform& platform, int64_t nodeBudget, double focusTimeout)
    : platform_(platform), nodeBudget_(nodeBudget), focusTimeout_(focusTimeout) {}

std::optional<std::string> AXCGDriver::frontmostBundleId() {
    return platform_.frontmostApplicationBundleId();
}

RunningApplication AXCGDriver::runningApp(const std::string& bundleId) {
    auto running = platform_.runningApplications(bundleId);
    if (running.empty()) {
        throw DriverError::appNotRunning(bundleId);
    }
    return running.front();
}

void AXCGDriver::launch(const std::string& bundleId) {
    auto location = platform_.applicationLocation(bundleId);
    if (!location) {
        // Not installed reads the same as not running, on purpose.
        throw DriverError::appNotRunning(bundleId);
    }

    // The workspace answers on a thread of its own, possibly after we gave up
    // waiting; the completion therefore owns what it touches.
    auto semaphore = platform_.makeSemaphore();
    auto errorCell = SharedCell<std::string>::make();
    platform_.openApplication(*location, /*activates=*/true,
                              [semaphore, errorCell](std::optional<std::string> error) {
                                  if (error) {
                                      errorCell->set(std::move(*error));
                                  }
                                  semaphore->signal();
                              });

    // A workspace that does not answer in time is taken as a successful open.
    // The answer itself crosses over through the semaphore, but the application it
    // started reaches this process's workspace state (the running applications, the
    // frontmost one) only through the main run loop: blocked here, the thread
    // would come back to a workspace that has not yet heard of the launch, and
    // the `focus` that usually follows would not find the new application.
    semaphore->waitRunningLoop(kLaunchWait);
    if (auto error = errorCell->get()) {
        throw DriverError::osFailure("launch: " + *error);
    }
}

bool AXCGDriver::focus(const std::string& bundleId) {
    const RunningApplication app = runningApp(bundleId);
    platform_.activateApplication(app.processId, /*options=*/0);
    if (waitFrontmost(bundleId, kActivationWait)) {
        return true;
    }
    forceActivate(bundleId, app.processId);
    return waitFrontmost(bundleId, focusTimeout_);
}

bool AXCGDriver::waitFrontmost(const std::string& bundleId, double timeoutSeconds) {
    const double deadline = platform_.monotonicSeconds() + timeoutSeconds;
    while (platform_.monotonicSeconds() < deadline) {
        if (frontmostBundleId() == bundleId) {
            return true;
        }
        // Not a plain sleep: the frontmost application is refreshed only while the
        // run loop turns, and a blocked poll would read the old one to the end.
        platform_.waitRunningLoop(kFrontmostPollInterval);
    }
    // One last look, so that even a zero time-out tests once.
    return frontmostBundleId() == bundleId;
}

void AXCGDriver::forceActivate(const std::string& bundleId, int32_t processId) {
    // Some applications, and some window managers, ignore a plain activation
    // request but give in to the system's stronger one (AppleScript on macOS, a
    // pager's request on X11). Its outcome is not examined: the following
    // frontmost wait is the test.
    platform_.forceActivateApplication(bundleId, processId);
}

}  // namespace velmora::native
