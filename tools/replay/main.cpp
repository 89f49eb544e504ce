// velmora-replay SCENARIO.json [--calls CALLS.json] < request.json
//
// Runs one request exactly as the agent does (same decoding, router, writer and
// exit statuses), but against the mock driver that SCENARIO.json describes, so
// that a request can be tried and its response compared without a desktop.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "agent/JsonWriter.h"
#include "agent/RunMode.h"
#include "core/driver/MockDriver.h"
#include "core/routing/ActionRouter.h"
#include "core/routing/Clock.h"
#include "tools/replay/Scenario.h"

namespace {

using namespace velmora;

constexpr const char* kUsage =
    "usage: velmora-replay SCENARIO.json [--calls CALLS.json] < request.json\n";

struct Arguments {
    std::string scenarioPath;
    std::optional<std::string> callsPath;
};

int usageError(const std::string& message) {
    std::fprintf(stderr, "velmora-replay: %s\n%s", message.c_str(), kUsage);
    return kExitUsage;
}

// None when the arguments are not usable; the message is then already written.
std::optional<Arguments> parseArguments(int argc, char** argv, int& status) {
    Arguments arguments;
    std::optional<std::string> scenario;
    for (int i = 1; i < argc; ++i) {
        std::string argument = argv[i];
        if (argument == "--calls") {
            if (i + 1 >= argc) {
                status = usageError("--calls needs a file name");
                return std::nullopt;
            }
            if (arguments.callsPath) {
                status = usageError("--calls given twice");
                return std::nullopt;
            }
            arguments.callsPath = argv[++i];
        } else if (argument.size() > 1 && argument[0] == '-') {
            status = usageError("unknown option " + argument);
            return std::nullopt;
        } else if (scenario) {
            status = usageError("more than one scenario file");
            return std::nullopt;
        } else {
            scenario = argument;
        }
    }
    if (!scenario) {
        status = usageError("no scenario file");
        return std::nullopt;
    }
    arguments.scenarioPath = *scenario;
    return arguments;
}

std::optional<std::string> readFile(const std::string& path, std::string& error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = std::strerror(errno);
        return std::nullopt;
    }
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad()) {
        error = "read error";
        return std::nullopt;
    }
    return text.str();
}

std::string readStandardInput() {
    std::string input;
    char buffer[65536];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, stdin)) > 0) {
        input.append(buffer, got);
    }
    return input;
}

Json callLog(const std::vector<MockDriver::Call>& calls) {
    Json log = Json::array();
    for (const auto& call : calls) {
        log.push_back(Json{{"op", call.op}, {"detail", call.detail}});
    }
    return log;
}

}  // namespace

int main(int argc, char** argv) {
    int status = kExitUsage;
    auto arguments = parseArguments(argc, argv, status);
    if (!arguments) {
        return status;
    }

    std::string error;
    auto text = readFile(arguments->scenarioPath, error);
    if (!text) {
        std::fprintf(stderr, "velmora-replay: cannot read scenario %s: %s\n",
                     arguments->scenarioPath.c_str(), error.c_str());
        return kExitUsage;
    }
    replay::Scenario scenario;
    try {
        scenario = replay::decodeScenario(*text);
    } catch (const replay::ScenarioError& failure) {
        std::fprintf(stderr, "velmora-replay: bad scenario %s: %s\n",
                     arguments->scenarioPath.c_str(), failure.what());
        return kExitUsage;
    }

    // Opened before the run, so that an unusable path is reported before anything runs.
    std::FILE* callsFile = nullptr;
    if (arguments->callsPath) {
        callsFile = std::fopen(arguments->callsPath->c_str(), "wb");
        if (!callsFile) {
            std::fprintf(stderr, "velmora-replay: cannot write calls file %s: %s\n",
                         arguments->callsPath->c_str(), std::strerror(errno));
            return kExitUsage;
        }
    }

    MockDriver driver(scenario.frontmost, scenario.elements, scenario.sha);
    driver.failOn = scenario.failOn;
    driver.focusSucceeds = scenario.focusSucceeds;
    driver.screenshotShouldFail = scenario.screenshotShouldFail;
    Clock clock = scenario.clock ? Clock::fixed(scenario.clock->date, scenario.clock->idPrefix)
                                 : Clock::system();
    ActionRouter router(driver, clock, scenario.assertRetries, scenario.assertRetryDelay);

    int exitStatus = runRequest(readStandardInput(), [&router](const DriverRequest& request) {
        return router.run(request);
    });

    if (callsFile) {
        writeDocument(callLog(driver.calls), callsFile);
        std::fclose(callsFile);
    }
    return exitStatus;
}
