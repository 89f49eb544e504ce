// velmora-agent: reads one request on standard input, drives the target
// application, writes one response. Side modes: version, self-check, register.

#include <cstdio>
#include <string>

#include "agent/JsonWriter.h"
#include "agent/Modes.h"
#include "agent/RunMode.h"
#include "core/model/Json.h"
#include "core/model/Protocol.h"
#include "core/native/AXCGDriver.h"
#include "core/native/Permissions.h"
#include "core/native/SystemPlatform.h"
#include "core/routing/ActionRouter.h"
#include "core/routing/Clock.h"

namespace {

// The platform lives as long as the process: a capture or launch completion that
// arrives after its deadline may still reach it while the process is ending.
velmora::native::Platform& systemPlatform() {
    static velmora::native::Platform* platform = velmora::native::makeSystemPlatform().release();
    return *platform;
}

int runMode() {
    std::string input = velmora::readAll(stdin);
    // Creating the platform touches nothing, so an undecodable request or a
    // failed gate never needs a display or a bus.
    return velmora::runRequest(input, [&](const velmora::DriverRequest& request) {
        velmora::native::AXCGDriver driver(systemPlatform(), velmora::kNodeBudget,
                                           velmora::kFocusTimeoutSeconds);
        velmora::ActionRouter router(driver, velmora::Clock::system(), velmora::kAssertRetries,
                                     velmora::kAssertRetryDelaySeconds);
        return router.run(request);
    });
}

int selfCheckMode() {
    bool trusted = velmora::native::Permissions::accessibilityTrusted(systemPlatform());
    bool screen = velmora::native::Permissions::screenRecordingGranted(systemPlatform());
    velmora::writeDocument(velmora::Json(velmora::makeSelfCheck(trusted, screen)));
    return velmora::kExitOk;
}

int registerMode() {
    auto manifest = velmora::DriverInstanceManifest::makeDefault(velmora::kAgentBundleIdentifier);
    velmora::writeDocument(velmora::Json(manifest));
    return velmora::kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = velmora::modeFromArguments(argc, argv);
    int status = velmora::kExitUsage;
    if (mode == "version") {
        std::printf("%s\n", velmora::kDriverBrokerProtocol);
        status = velmora::kExitOk;
    } else if (mode == "self-check") {
        status = selfCheckMode();
    } else if (mode == "register") {
        status = registerMode();
    } else if (mode == "run") {
        status = runMode();
    } else {
        std::fprintf(stderr, "unknown mode: %s\n", mode.c_str());
    }
    std::fflush(stdout);
    return status;
}
