#include "tests/e2e/AgentRequests.h"

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <thread>

#include "tests/support/KeptRun.h"
#include "tests/support/Subprocess.h"

namespace velmora::e2e {

namespace {

// Longer than the agent's own longest wait (a launch or capture deadline and a
// few settling pauses), so that a hung agent shows as a timeout.
constexpr double kAgentTimeoutSeconds = 60;

bool pastDeadline(std::chrono::steady_clock::time_point deadline) {
    return std::chrono::steady_clock::now() >= deadline;
}

std::chrono::steady_clock::time_point deadlineIn(double seconds) {
    return std::chrono::steady_clock::now() +
           std::chrono::duration_cast<std::chrono::steady_clock::duration>(
               std::chrono::duration<double>(seconds));
}

void sleepFor(double seconds) {
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

}  // namespace

AgentRun runAgent(const std::vector<std::string>& arguments, const std::string& input) {
    testing::KeptRun kept(
        "e2e", testing::KeptRun::modeOf(arguments.empty() ? nullptr : &arguments[0]), input);
    auto result =
        testing::runProcess(VELMORA_AGENT_PATH, arguments, input, {}, kAgentTimeoutSeconds);
    kept.finish(result.out, result.exitStatus);
    AgentRun run{.exitStatus = result.exitStatus, .response = nullptr, .err = result.err};
    EXPECT_FALSE(result.timedOut) << "the agent did not finish within " << kAgentTimeoutSeconds
                                  << " s";
    // One document and one newline: the parser refuses anything after the
    // document but blanks, so the text must end in exactly "}\n".
    const std::string& out = result.out;
    bool framed = out.size() >= 2 && out.compare(out.size() - 2, 2, "}\n") == 0;
    EXPECT_TRUE(framed) << "not a JSON object and a newline: " << out;
    if (framed) {
        try {
            run.response = Json::parse(out);
        } catch (const Json::exception& error) {
            ADD_FAILURE() << "not one JSON document: " << error.what() << "\n" << out;
        }
    }
    return run;
}

Json makeRequest(const std::string& target, const Json& actions, const Json& extra) {
    Json request = {
        {"protocolVersion", "velmora.driver_broker.v1"},
        {"sessionId", "e2e-session"},
        {"seatLease", "e2e-lease"},
        {"targetBundleId", target},
        {"actions", actions},
    };
    for (const auto& [key, value] : extra.items()) {
        request[key] = value;
    }
    return request;
}

AgentRun runRequest(const std::string& target, const Json& actions, const Json& extra) {
    return runAgent({"run"}, makeRequest(target, actions, extra).dump());
}

Json receiptAt(const AgentRun& run, size_t index) {
    const Json* receipts = run.response.is_object() && run.response.contains("receipts")
                               ? &run.response["receipts"]
                               : nullptr;
    if (receipts == nullptr || !receipts->is_array() || index >= receipts->size()) {
        ADD_FAILURE() << "no receipt " << index << " in " << run.response.dump();
        return Json::object();
    }
    return (*receipts)[index];
}

std::string summary(const AgentRun& run) {
    std::ostringstream text;
    text << "exit " << run.exitStatus;
    if (!run.response.is_object()) {
        return text.str() + ", no response";
    }
    if (run.response.contains("error")) {
        text << ", error " << run.response["error"].dump();
    }
    if (run.response.contains("receipts")) {
        for (const auto& receipt : run.response["receipts"]) {
            text << "; " << receipt.value("action", "?") << ' '
                 << (receipt.value("succeeded", false) ? "ok" : "FAILED");
            if (receipt.contains("errorMessage")) {
                text << " (" << receipt["errorMessage"].get<std::string>() << ")";
            }
        }
    }
    return text.str();
}

bool assertEventually(const std::string& target, const Json& selector, const Json& expect,
                      double seconds, AgentRun* last) {
    auto deadline = deadlineIn(seconds);
    Json actions = Json::array({{{"kind", "assert"}, {"selector", selector}, {"expect", expect}}});
    while (true) {
        AgentRun run = runRequest(target, actions);
        bool passed = run.exitStatus == 0 && run.response.value("ok", false);
        if (last != nullptr) {
            *last = run;
        }
        if (passed || pastDeadline(deadline)) {
            return passed;
        }
        sleepFor(0.1);
    }
}

std::optional<Rect> elementFrame(const Json& element) {
    if (!element.is_object() || !element.contains("frame")) {
        return std::nullopt;
    }
    const Json& frame = element["frame"];
    return Rect{.x = frame.value("x", 0.0),
                .y = frame.value("y", 0.0),
                .width = frame.value("width", 0.0),
                .height = frame.value("height", 0.0)};
}

std::optional<Rect> settledFrame(const std::string& target, const Json& selector, double seconds) {
    auto deadline = deadlineIn(seconds);
    Json actions = Json::array({{{"kind", "query"}, {"selector", selector}}});
    std::optional<Rect> last;
    int unchanged = 0;
    while (!pastDeadline(deadline)) {
        AgentRun run = runRequest(target, actions);
        std::optional<Rect> frame;
        if (run.exitStatus == 0 && run.response.value("ok", false)) {
            for (const auto& element : run.response["receipts"][0].value("queryResult", Json())) {
                if ((frame = elementFrame(element))) {
                    break;
                }
            }
        }
        unchanged = frame && frame == last ? unchanged + 1 : 0;
        last = frame;
        if (unchanged >= 2) {
            return frame;
        }
        sleepFor(0.1);
    }
    return std::nullopt;
}

std::string sha256OfFile(const std::string& path) {
    auto result = testing::runProcess("/usr/bin/sha256sum", {"--binary", path}, "", {}, 30);
    if (result.exitStatus != 0 || result.out.size() < 64) {
        return "";
    }
    return result.out.substr(0, 64);
}

}  // namespace velmora::e2e
