#include "tests/mcp/unit/McpTestSupport.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>

#include "core/model/Protocol.h"

namespace velmora::mcp::testing {

namespace fs = std::filesystem;

TempDir::TempDir() {
    std::string pattern = (fs::temp_directory_path() / "velmora-mcp-test.XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

Json receiptFor(const Json& action, const std::string& target) {
    Json receipt = {{"schema", kNativeAppRuntimeReceiptSchema},
                    {"action", action.value("kind", "")},
                    {"bundleIdentifier", target},
                    {"binarySha256", std::string(64, 'a')},
                    {"frontmostTargetMatch", true},
                    {"postActionStructuralState",
                     {{"frontmostBundleId", target},
                      {"elementCount", 12},
                      {"roleHistogram", {{"AXWindow", 1}, {"AXButton", 11}}}}},
                    {"succeeded", true},
                    {"reversible", false},
                    {"ts", "2026-11-16T03:04:05Z"},
                    {"receiptId", "receipt-1"}};
    if (action.contains("label")) {
        receipt["label"] = action["label"];
    }
    return receipt;
}

Json agentResponse(const Json& request, bool ok, const std::string& errorMessage) {
    Json receipts = Json::array();
    for (const auto& action : request["actions"]) {
        receipts.push_back(receiptFor(action, request["targetBundleId"]));
    }
    if (!ok && !receipts.empty()) {
        receipts.back()["succeeded"] = false;
        receipts.back()["errorMessage"] = errorMessage;
    }
    return {{"protocolVersion", kDriverBrokerProtocol},
            {"sessionId", request["sessionId"]},
            {"ok", ok},
            {"receipts", receipts}};
}

AgentOutcome exitedWith(const Json& response, int exitStatus) {
    AgentOutcome outcome;
    outcome.ending = AgentOutcome::Ending::exited;
    outcome.processId = 4242;
    outcome.exitStatus = exitStatus >= 0 ? exitStatus : (response.value("ok", false) ? 0 : 2);
    outcome.out = response.dump(2) + "\n";
    return outcome;
}

AgentOutcome FakeRunner::run(const std::string& requestText, std::chrono::milliseconds timeLimit,
                             const Cancellation& cancellation) {
    Json request = Json::parse(requestText);
    requests.push_back(request);
    timeLimits.push_back(timeLimit);
    if (answer) {
        return answer(request, cancellation);
    }
    return exitedWith(agentResponse(request));
}

Config Harness::testConfig(const std::string& auditPath) {
    Config config;
    config.agentPath = "/nonexistent/velmora-agent";
    config.seatLease = "lease-7";
    config.approvedApps = {"galculator", "org.xfce.mousepad"};
    config.deniedApps = {"xterm"};
    config.auditLogPath = auditPath;
    config.callTimeoutSeconds = 12.5;
    config.maxElements = 50;
    return config;
}

Harness::Harness(Config given) : config(std::move(given)) {
    if (config.auditLogPath.empty()) {
        config.auditLogPath = dir.file("audit.jsonl");
    }
    Clock clock = Clock::fixed(
        std::chrono::system_clock::time_point(std::chrono::seconds(1'790'000'000)), "r");
    audit = std::make_unique<AuditLog>(config.auditLogPath, clock);
    server = std::make_unique<Server>(config, runner, *audit, clock,
                                      [this](const Json& message) { sent.push_back(message); });
}

Json Harness::initialize(const std::string& revision) {
    send(request(0, "initialize",
                 {{"protocolVersion", revision},
                  {"capabilities", Json::object()},
                  {"clientInfo", {{"name", "test"}, {"version", "1"}}}}));
    send(Json{{"jsonrpc", "2.0"}, {"method", "notifications/initialized"}});
    auto messages = take();
    EXPECT_EQ(messages.size(), 1u);
    return messages.empty() ? Json() : messages[0].value("result", Json());
}

Json Harness::call(const std::string& tool, const Json& arguments, const Json& id) {
    send(request(id, "tools/call", {{"name", tool}, {"arguments", arguments}}));
    while (server->runNextCall()) {
    }
    auto messages = take();
    EXPECT_EQ(messages.size(), 1u) << Json(messages).dump();
    return messages.empty() ? Json() : messages[0];
}

std::vector<Json> Harness::take() {
    std::vector<Json> messages;
    messages.swap(sent);
    return messages;
}

Json request(const Json& id, const std::string& method, const Json& params) {
    Json message = {{"jsonrpc", "2.0"}, {"id", id}, {"method", method}};
    if (!params.is_null()) {
        message["params"] = params;
    }
    return message;
}

}  // namespace velmora::mcp::testing
