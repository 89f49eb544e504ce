#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>

#include "core/driver/UIDriver.h"
#include "core/model/Request.h"
#include "core/model/Response.h"
#include "core/routing/Assertions.h"
#include "core/routing/Clock.h"

namespace velmora {

// Runs one request against a driver: three gates (protocol, seat lease, approved
// apps), then every action in order, each yielding one receipt. Never throws and
// never stops early: failures become receipt or response data.
class ActionRouter {
  public:
    // `assertRetries` is the number of query attempts of an assert, at least 1;
    // `assertRetryDelay` the pause between two of them, in seconds, taken with
    // `sleep` (a real thread sleep unless a caller injects another).
    ActionRouter(UIDriver& driver, Clock clock, int64_t assertRetries, double assertRetryDelay,
                 Sleep sleep = threadSleep);

    DriverResponse run(const DriverRequest& request);

    int64_t assertRetries() const { return assertRetries_; }
    double assertRetryDelay() const { return assertRetryDelay_; }

    // Blocks the calling thread; non-positive or non-finite pauses return at once.
    static void threadSleep(double seconds);

  private:
    ActionReceipt execute(const DriverAction& action, const DriverRequest& request,
                          const std::string& sha, const ConsentScope& consent);
    bool ensureFrontmost(const std::string& bundleId);
    std::optional<std::string> frontmostOrNone();
    StructuralState stateAfterAction(const std::string& target);
    std::string screenshotDestination(const DriverRequest& request);

    UIDriver& driver_;
    Clock clock_;
    int64_t assertRetries_;
    double assertRetryDelay_;
    Sleep sleep_;
};

// The text a failure is reported with: a DriverError's description, a platform
// file error's own text, "<type>: <message>" for any other exception, and a fixed
// text for anything that is not an exception at all.
std::string describeFailure(std::exception_ptr failure);

}  // namespace velmora
