// The server's JSON-RPC and MCP lifecycle handling: every malformed message
// gets its error code and exactly one answer, versions are negotiated, and
// cancellation stops a call without an answer.

#include <gtest/gtest.h>

#include <fstream>

#include "mcp/JsonRpc.h"
#include "tests/mcp/unit/McpTestSupport.h"

namespace velmora::mcp::testing {
namespace {

// The one error a line gets: its code, and the id it carries.
struct ErrorCase {
    const char* line;
    int code;
    Json id;
};

class ServerProtocol : public ::testing::Test {
  protected:
    // The single message `line` is answered with.
    Json answerTo(const std::string& line) {
        harness.sendLine(line);
        auto messages = harness.take();
        EXPECT_EQ(messages.size(), 1u) << line;
        return messages.empty() ? Json() : messages[0];
    }

    Harness harness;
};

TEST_F(ServerProtocol, MalformedMessagesGetTheirJsonRpcErrorCodes) {
    harness.initialize();
    const ErrorCase cases[] = {
        {"{", rpc::kParseError, nullptr},
        {"not json", rpc::kParseError, nullptr},
        {"{\"jsonrpc\": \"2.0\", \"id\": 1, \"method\": \"ping\"} trailing", rpc::kParseError,
         nullptr},
        {"{\"jsonrpc\": \"2.0\", \"id\": 1, \"method\": \"\xff\"}", rpc::kParseError, nullptr},
        {"42", rpc::kInvalidRequest, nullptr},
        {"\"ping\"", rpc::kInvalidRequest, nullptr},
        {"null", rpc::kInvalidRequest, nullptr},
        {"{}", rpc::kInvalidRequest, nullptr},
        {"{\"id\": 3, \"method\": \"ping\"}", rpc::kInvalidRequest, 3},
        {"{\"jsonrpc\": \"1.0\", \"id\": 3, \"method\": \"ping\"}", rpc::kInvalidRequest, 3},
        {"{\"jsonrpc\": 2, \"id\": \"x\", \"method\": \"ping\"}", rpc::kInvalidRequest, "x"},
        {"{\"jsonrpc\": \"2.0\", \"id\": null, \"method\": \"ping\"}", rpc::kInvalidRequest,
         nullptr},
        {"{\"jsonrpc\": \"2.0\", \"id\": {\"a\": 1}, \"method\": \"ping\"}", rpc::kInvalidRequest,
         nullptr},
        {"{\"jsonrpc\": \"2.0\", \"id\": true, \"method\": \"ping\"}", rpc::kInvalidRequest,
         nullptr},
        {"{\"jsonrpc\": \"2.0\", \"id\": 4, \"method\": 5}", rpc::kInvalidRequest, 4},
        {"{\"jsonrpc\": \"2.0\", \"id\": 4}", rpc::kInvalidRequest, 4},
        {"{\"jsonrpc\": \"2.0\", \"id\": 4, \"method\": \"ping\", \"params\": \"x\"}",
         rpc::kInvalidRequest, 4},
        {"{\"jsonrpc\": \"2.0\", \"id\": 5, \"method\": \"resources/list\"}", rpc::kMethodNotFound,
         5},
        {"{\"jsonrpc\": \"2.0\", \"id\": \"s\", \"method\": \"Ping\"}", rpc::kMethodNotFound, "s"},
        {"{\"jsonrpc\": \"2.0\", \"id\": 6, \"method\": \"tools/call\"}", rpc::kInvalidParams, 6},
        {"{\"jsonrpc\": \"2.0\", \"id\": 6, \"method\": \"tools/call\", \"params\": []}",
         rpc::kInvalidParams, 6},
        {"{\"jsonrpc\": \"2.0\", \"id\": 6, \"method\": \"tools/call\", \"params\": {\"name\": 1}}",
         rpc::kInvalidParams, 6},
        {"{\"jsonrpc\": \"2.0\", \"id\": 6, \"method\": \"tools/list\", \"params\": {\"cursor\": "
         "\"next\"}}",
         rpc::kInvalidParams, 6},
    };
    for (const auto& errorCase : cases) {
        Json answer = answerTo(errorCase.line);
        EXPECT_EQ(answer.value("jsonrpc", ""), "2.0") << errorCase.line;
        EXPECT_EQ(answer["id"], errorCase.id) << errorCase.line;
        EXPECT_FALSE(answer.contains("result")) << errorCase.line;
        EXPECT_EQ(answer["error"].value("code", 0), errorCase.code)
            << errorCase.line << " -> " << answer.dump();
        EXPECT_FALSE(answer["error"].value("message", "").empty()) << errorCase.line;
    }
    EXPECT_TRUE(harness.runner.requests.empty());
}

TEST_F(ServerProtocol, ABatchIsOneInvalidRequestAndNoneOfItsMessagesRuns) {
    harness.initialize();
    Json batch =
        Json::array({request(1, "ping"),
                     request(2, "tools/call",
                             {{"name", "launch_app"}, {"arguments", {{"target", "galculator"}}}})});
    Json answer = answerTo(batch.dump());
    EXPECT_EQ(answer["id"], nullptr);
    EXPECT_EQ(answer["error"]["code"], rpc::kInvalidRequest);
    EXPECT_NE(answer["error"]["message"].get<std::string>().find("batch"), std::string::npos);
    EXPECT_FALSE(harness.server->runNextCall());
    EXPECT_TRUE(harness.runner.requests.empty());

    Json empty = answerTo("[]");
    EXPECT_EQ(empty["error"]["code"], rpc::kInvalidRequest);
}

TEST_F(ServerProtocol, NotificationsAndResponsesAreNeverAnswered) {
    harness.initialize();
    harness.sendLine(R"({"jsonrpc": "2.0", "method": "notifications/initialized"})");
    harness.sendLine(
        R"({"jsonrpc": "2.0", "method": "notifications/unknown", "params": {"a": 1}})");
    harness.sendLine(
        R"({"jsonrpc": "2.0", "method": "notifications/cancelled", "params": {"requestId": 99}})");
    harness.sendLine(R"({"jsonrpc": "2.0", "method": "notifications/cancelled"})");
    harness.sendLine(R"({"jsonrpc": "2.0", "id": 5, "result": {}})");
    harness.sendLine(R"({"jsonrpc": "2.0", "id": 5, "error": {"code": 1, "message": "x"}})");
    EXPECT_TRUE(harness.take().empty());
}

TEST_F(ServerProtocol, ToolsNeedInitializeFirstButPingDoesNot) {
    Json ping = answerTo(request("p", "ping").dump());
    EXPECT_EQ(ping["id"], "p");
    EXPECT_EQ(ping["result"], Json::object());

    Json list = answerTo(request(1, "tools/list").dump());
    EXPECT_EQ(list["error"]["code"], rpc::kInvalidRequest);
    Json call = answerTo(
        request(2, "tools/call", {{"name", "frontmost"}, {"arguments", {{"target", "galculator"}}}})
            .dump());
    EXPECT_EQ(call["error"]["code"], rpc::kInvalidRequest);
    EXPECT_FALSE(harness.server->runNextCall());

    Json noVersion = answerTo(request(3, "initialize", {{"capabilities", Json::object()}}).dump());
    EXPECT_EQ(noVersion["error"]["code"], rpc::kInvalidParams);
    Json numberVersion = answerTo(request(3, "initialize", {{"protocolVersion", 20250618}}).dump());
    EXPECT_EQ(numberVersion["error"]["code"], rpc::kInvalidParams);

    harness.initialize();
    Json again = answerTo(request(4, "initialize", {{"protocolVersion", "2025-06-18"}}).dump());
    EXPECT_EQ(again["error"]["code"], rpc::kInvalidRequest);
    EXPECT_EQ(harness.server->revision(), "2025-06-18");
}

TEST_F(ServerProtocol, InitializeAnswersWithCapabilitiesAndServerInfo) {
    Json result = harness.initialize("2025-06-18");
    EXPECT_EQ(result["protocolVersion"], "2025-06-18");
    EXPECT_EQ(result["capabilities"], Json::parse(R"({"tools": {"listChanged": false}})"));
    EXPECT_EQ(result["serverInfo"]["name"], "velmora-mcp");
    EXPECT_EQ(result["serverInfo"]["version"], "0.1.0");
    EXPECT_TRUE(result["serverInfo"].contains("title"));
    EXPECT_FALSE(result.value("instructions", "").empty());
}

struct Negotiation {
    const char* requested;
    const char* agreed;
    bool structured;
};

TEST(ServerNegotiation, AgreesOnTheClientsRevisionWhenSpokenElseOffersTheNewest) {
    const Negotiation cases[] = {
        {"2025-06-18", "2025-06-18", true},  {"2025-03-26", "2025-03-26", false},
        {"2024-11-05", "2024-11-05", false}, {"2025-11-25", "2025-06-18", true},
        {"2024-10-07", "2025-06-18", true},  {"", "2025-06-18", true},
        {"garbage", "2025-06-18", true},
    };
    for (const auto& negotiation : cases) {
        Harness harness;
        Json result = harness.initialize(negotiation.requested);
        EXPECT_EQ(result["protocolVersion"], negotiation.agreed) << negotiation.requested;
        EXPECT_EQ(result["serverInfo"].contains("title"), negotiation.structured);

        harness.send(request(1, "tools/list"));
        auto listed = harness.take();
        ASSERT_EQ(listed.size(), 1u);
        const Json& tools = listed[0]["result"]["tools"];
        ASSERT_EQ(tools.size(), 11u);
        for (const auto& tool : tools) {
            EXPECT_EQ(tool.contains("outputSchema"), negotiation.structured) << tool["name"];
            EXPECT_EQ(tool["inputSchema"]["type"], "object");
        }
        EXPECT_FALSE(listed[0]["result"].contains("nextCursor"));

        // Structured content only for the revision that has it; older ones get
        // the same data as JSON text.
        Json answer = harness.call("frontmost", {{"target", "galculator"}});
        const Json& callResult = answer["result"];
        EXPECT_EQ(callResult.contains("structuredContent"), negotiation.structured);
        if (negotiation.structured) {
            EXPECT_EQ(callResult["content"].size(), 1u);
        } else {
            ASSERT_EQ(callResult["content"].size(), 2u);
            Json data = Json::parse(callResult["content"][1]["text"].get<std::string>());
            EXPECT_EQ(data["target"], "galculator");
            EXPECT_EQ(data["receipts"].size(), 1u);
        }
    }
}

TEST_F(ServerProtocol, EveryToolIsListedWithItsSchemas) {
    harness.initialize();
    harness.send(request(1, "tools/list", Json::object()));
    auto listed = harness.take();
    ASSERT_EQ(listed.size(), 1u);
    std::vector<std::string> names;
    for (const auto& tool : listed[0]["result"]["tools"]) {
        names.push_back(tool["name"]);
        EXPECT_FALSE(tool.value("description", "").empty());
        EXPECT_EQ(tool["inputSchema"]["required"][0], "target") << tool["name"];
        EXPECT_EQ(tool["outputSchema"]["required"],
                  Json::parse(R"(["ok", "sessionId", "target", "receipts"])"));
    }
    EXPECT_EQ(names, (std::vector<std::string>{"run_actions", "launch_app", "focus_app", "click",
                                               "type_text", "press_keys", "scroll", "find_elements",
                                               "wait_for", "screenshot", "frontmost"}));
}

TEST_F(ServerProtocol, APingIsAnsweredWhileACallWaits) {
    harness.initialize();
    harness.send(request(1, "tools/call",
                         {{"name", "launch_app"}, {"arguments", {{"target", "galculator"}}}}));
    harness.send(request(2, "ping"));
    auto first = harness.take();
    ASSERT_EQ(first.size(), 1u);
    EXPECT_EQ(first[0]["id"], 2);
    EXPECT_TRUE(harness.server->runNextCall());
    auto second = harness.take();
    ASSERT_EQ(second.size(), 1u);
    EXPECT_EQ(second[0]["id"], 1);
    EXPECT_EQ(second[0]["result"]["isError"], false);
}

TEST_F(ServerProtocol, ACancelledQueuedCallNeverRunsAndIsNotAnswered) {
    harness.initialize();
    harness.send(request("a", "tools/call",
                         {{"name", "launch_app"}, {"arguments", {{"target", "galculator"}}}}));
    harness.send(request("b", "tools/call",
                         {{"name", "focus_app"}, {"arguments", {{"target", "galculator"}}}}));
    harness.send(Json{{"jsonrpc", "2.0"},
                      {"method", "notifications/cancelled"},
                      {"params", {{"requestId", "a"}, {"reason", "changed my mind"}}}});
    while (harness.server->runNextCall()) {
    }
    auto messages = harness.take();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0]["id"], "b");
    ASSERT_EQ(harness.runner.requests.size(), 1u);
    EXPECT_EQ(harness.runner.requests[0]["actions"][0]["kind"], "focus");
}

TEST_F(ServerProtocol, CancellingARunningCallEndsItsAgentAndSendsNoAnswer) {
    harness.initialize();
    bool sawCancellation = false;
    harness.runner.answer = [&](const Json&, const Cancellation& cancellation) {
        // The reader thread gets the cancellation while the agent runs.
        EXPECT_FALSE(cancellation.requested());
        harness.send(Json{{"jsonrpc", "2.0"},
                          {"method", "notifications/cancelled"},
                          {"params", {{"requestId", 11}}}});
        sawCancellation = cancellation.requested();
        AgentOutcome outcome;
        outcome.ending = AgentOutcome::Ending::cancelled;
        outcome.processId = 777;
        return outcome;
    };
    harness.send(request(11, "tools/call",
                         {{"name", "launch_app"}, {"arguments", {{"target", "galculator"}}}}));
    EXPECT_TRUE(harness.server->runNextCall());
    EXPECT_TRUE(sawCancellation);
    EXPECT_TRUE(harness.take().empty());

    // The audit log still records the call and how it ended.
    std::string report;
    EXPECT_EQ(verifyLogCommand(harness.config.auditLogPath, report), 0) << report;
    std::ifstream log(harness.config.auditLogPath);
    std::string first, second;
    std::getline(log, first);
    std::getline(log, second);
    EXPECT_EQ(Json::parse(second)["ending"], "cancelled");
    EXPECT_EQ(Json::parse(second)["processId"], 777);

    // Cancelling a call that has finished changes nothing.
    harness.send(Json{{"jsonrpc", "2.0"},
                      {"method", "notifications/cancelled"},
                      {"params", {{"requestId", 11}}}});
    EXPECT_TRUE(harness.take().empty());
}

TEST_F(ServerProtocol, AnswersEchoTheRequestsIdAsSent) {
    harness.initialize();
    for (const Json& id :
         {Json(0), Json(-5), Json(9007199254740993LL), Json("7"), Json(""), Json(1.5)}) {
        Json answer = answerTo(request(id, "ping").dump());
        EXPECT_EQ(answer["id"], id) << id.dump();
        EXPECT_EQ(answer["id"].dump(), id.dump());  // a string stays a string, a number a number
    }
}

TEST(JsonRpcFrame, AMessageIsOneLineWhateverItsStringsHold) {
    Json message = resultMessage(1, {{"text", "two\nlines\r\u2028 and \xff invalid"}});
    std::string line = frame(message);
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    EXPECT_EQ(line.find('\r'), std::string::npos);
    EXPECT_NO_THROW(Json::parse(line));
}

}  // namespace
}  // namespace velmora::mcp::testing
