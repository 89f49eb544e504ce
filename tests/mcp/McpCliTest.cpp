// The built velmora-mcp over its real standard streams, with stand-in agents
// (small shell scripts) that answer, crash, hang or ignore SIGTERM: the
// framing, the answers, and the child ended by its process id. These run real
// processes and real time-outs of a fraction of a second.

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>

#include <cerrno>
#include <fstream>
#include <map>
#include <sstream>

#include "core/model/Json.h"
#include "tests/mcp/unit/McpTestSupport.h"
#include "tests/support/Subprocess.h"

namespace velmora::mcp::testing {
namespace {

using velmora::testing::ProcessResult;
using velmora::testing::runProcess;

const std::string kServer = VELMORA_MCP_PATH;

const char* const kAnswer =
    R"({"ok": true, "protocolVersion": "velmora.driver_broker.v1", "receipts": [{"action": "frontmost", "binarySha256": "unavailable", "bundleIdentifier": "galculator", "frontmostTargetMatch": false, "postActionStructuralState": {"elementCount": 0, "roleHistogram": {}}, "receiptId": "r-1", "reversible": true, "schema": "velmora.native_app_runtime_receipt.v1", "succeeded": true, "ts": "2026-11-16T03:04:05Z"}], "sessionId": "canned"})";

class McpCli : public ::testing::Test {
  protected:
    // An executable script in the test's folder.
    std::string script(const std::string& name, const std::string& body) {
        std::string path = dir.file(name);
        std::ofstream(path) << "#!/bin/sh\n" << body << "\n";
        ::chmod(path.c_str(), 0755);
        return path;
    }

    ProcessResult serve(const std::string& agent, const std::vector<Json>& messages,
                        std::vector<std::string> extra = {}, const std::string& tail = "") {
        std::string input;
        for (const auto& message : messages) {
            input += message.dump() + "\n";
        }
        input += tail;
        std::vector<std::string> arguments = {
            "--agent", agent, "--audit-log", dir.file("audit.jsonl"), "--approve", "galculator"};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        return runProcess(kServer, arguments, input, {}, 60);
    }

    // Every line of standard output as a message, by id (responses only).
    std::map<std::string, Json> answers(const ProcessResult& result) {
        std::map<std::string, Json> byId;
        std::istringstream out(result.out);
        for (std::string line; std::getline(out, line);) {
            Json message;
            EXPECT_NO_THROW(message = Json::parse(line)) << line;
            EXPECT_EQ(message.value("jsonrpc", ""), "2.0") << line;
            std::string id = message["id"].dump();
            EXPECT_TRUE(id == "null" || byId.count(id) == 0) << "answered twice: " << line;
            byId[id] = message;
        }
        return byId;
    }

    static Json call(const Json& id, const std::string& tool, const Json& arguments) {
        return request(id, "tools/call", {{"name", tool}, {"arguments", arguments}});
    }

    static std::vector<Json> opening() {
        return {request(0, "initialize",
                        {{"protocolVersion", "2025-06-18"}, {"capabilities", Json::object()}}),
                Json{{"jsonrpc", "2.0"}, {"method", "notifications/initialized"}}};
    }

    static bool processGone(pid_t processId) { return ::kill(processId, 0) != 0 && errno == ESRCH; }

    pid_t pidFrom(const std::string& file) {
        pid_t processId = 0;
        std::ifstream(dir.file(file)) >> processId;
        return processId;
    }

    TempDir dir;
};

TEST_F(McpCli, EveryRequestIsAnsweredOnceAndStandardOutputHoldsOnlyMessages) {
    std::string agent =
        script("agent", std::string("cat >/dev/null\necho 'noise on stderr' >&2\ncat <<'JSON'\n") +
                            kAnswer + "\nJSON");
    auto messages = opening();
    messages.push_back(request(1, "tools/list"));
    messages.push_back(call(2, "frontmost", {{"target", "galculator"}}));
    messages.push_back(Json::array({request(3, "ping")}));
    messages.push_back(request("four", "nonexistent/method"));
    messages.push_back(call(5, "click", {{"target", "galculator"}}));
    ProcessResult result =
        serve(agent, messages, {}, "\r\n  \n{broken\n" + request(6, "ping").dump());
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    auto byId = answers(result);
    EXPECT_EQ(byId.size(), 7u) << result.out;  // 0, 1, 2, "four", 5, 6 and null
    EXPECT_EQ(byId["0"]["result"]["protocolVersion"], "2025-06-18");
    EXPECT_EQ(byId["1"]["result"]["tools"].size(), 11u);
    EXPECT_EQ(byId["2"]["result"]["isError"], false);
    EXPECT_EQ(byId["2"]["result"]["structuredContent"]["receipts"][0]["action"], "frontmost");
    EXPECT_EQ(byId["\"four\""]["error"]["code"], -32601);
    EXPECT_EQ(byId["5"]["error"]["code"], -32602);
    EXPECT_EQ(byId["6"]["result"], Json::object());  // the last line had no newline
    // Two answers with a null id: the batch and the broken line.
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 8);
    EXPECT_NE(result.out.find("\"code\":-32600"), std::string::npos);
    EXPECT_NE(result.out.find("\"code\":-32700"), std::string::npos);
    EXPECT_EQ(result.out.find("noise"), std::string::npos);

    std::string report;
    EXPECT_EQ(verifyLogCommand(dir.file("audit.jsonl"), report), 0) << report;
}

TEST_F(McpCli, AHungAgentIsEndedByItsProcessIdAtTheTimeLimit) {
    std::string agent = script("hang", "echo $$ > " + dir.file("hang.pid") + "\nexec sleep 600");
    auto messages = opening();
    messages.push_back(call(2, "frontmost", {{"target", "galculator"}}));
    ProcessResult result = serve(agent, messages, {"--timeout", "0.5"});
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    auto byId = answers(result);
    pid_t processId = pidFrom("hang.pid");
    ASSERT_GT(processId, 0);
    EXPECT_TRUE(processGone(processId));
    const Json& answer = byId["2"]["result"];
    EXPECT_EQ(answer["isError"], true);
    EXPECT_EQ(answer["content"][0]["text"],
              "velmora-agent (process " + std::to_string(processId) +
                  ") did not answer within 0.5 s, the call's time limit, and was ended by its "
                  "process id; its actions may have been done in part");
}

TEST_F(McpCli, AnAgentThatIgnoresTerminationIsKilled) {
    std::string agent = script("stubborn", "trap '' TERM\necho $$ > " + dir.file("stubborn.pid") +
                                               "\nwhile :; do sleep 0.2; done");
    auto messages = opening();
    messages.push_back(call(2, "frontmost", {{"target", "galculator"}}));
    ProcessResult result = serve(agent, messages, {"--timeout", "0.3"});
    auto byId = answers(result);
    pid_t processId = pidFrom("stubborn.pid");
    ASSERT_GT(processId, 0);
    EXPECT_TRUE(processGone(processId));
    EXPECT_EQ(byId["2"]["result"]["isError"], true);
    EXPECT_NE(byId["2"]["result"]["content"][0]["text"].get<std::string>().find(
                  "did not answer within 0.3 s"),
              std::string::npos);
}

TEST_F(McpCli, ACrashingAgentIsAClearToolError) {
    std::string agent = script("crash", "echo 'about to fail' >&2\nkill -SEGV $$");
    auto messages = opening();
    messages.push_back(call(2, "frontmost", {{"target", "galculator"}}));
    ProcessResult result = serve(agent, messages);
    auto byId = answers(result);
    std::string text = byId["2"]["result"]["content"][0]["text"];
    EXPECT_NE(text.find("was ended by signal 11 (Segmentation fault) without a response; its "
                        "standard error ends: about to fail"),
              std::string::npos)
        << text;
}

TEST_F(McpCli, ACancelledCallEndsItsAgentAndIsNotAnswered) {
    std::string agent = script("slow", "echo $$ > " + dir.file("slow.pid") + "\nexec sleep 600");
    auto messages = opening();
    messages.push_back(call(2, "frontmost", {{"target", "galculator"}}));
    messages.push_back(Json{
        {"jsonrpc", "2.0"}, {"method", "notifications/cancelled"}, {"params", {{"requestId", 2}}}});
    messages.push_back(request(3, "ping"));
    ProcessResult result = serve(agent, messages, {"--timeout", "30"});
    EXPECT_FALSE(result.timedOut);
    auto byId = answers(result);
    EXPECT_EQ(byId.count("2"), 0u) << result.out;
    EXPECT_EQ(byId["3"]["result"], Json::object());
    pid_t processId = pidFrom("slow.pid");
    if (processId > 0) {  // cancelled before it started, or ended by its id
        EXPECT_TRUE(processGone(processId));
    }
}

TEST_F(McpCli, HelpBadFlagsAndVerifyLog) {
    ProcessResult help = runProcess(kServer, {"--help"});
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_EQ(help.out.rfind("usage: velmora-mcp", 0), 0u);
    ProcessResult version = runProcess(kServer, {"--version"});
    EXPECT_EQ(version.out, "velmora-mcp 0.1.0\n");

    ProcessResult bad = runProcess(kServer, {"--approve"});
    EXPECT_EQ(bad.exitStatus, 64);
    EXPECT_EQ(bad.out, "");
    EXPECT_NE(bad.err.find("--approve needs a value"), std::string::npos);

    std::ofstream(dir.file("log.jsonl"))
        << "{\"prev\": \"" << std::string(64, '0') << "\", \"seq\": 1}\n";
    ProcessResult good = runProcess(kServer, {"verify-log", dir.file("log.jsonl")});
    EXPECT_EQ(good.exitStatus, 0);
    EXPECT_NE(good.out.find("intact, 1 lines"), std::string::npos);
    std::ofstream(dir.file("log.jsonl"), std::ios::app)
        << "{\"prev\": \"" << std::string(64, '1') << "\", \"seq\": 2}\n";
    ProcessResult broken = runProcess(kServer, {"verify-log", dir.file("log.jsonl")});
    EXPECT_EQ(broken.exitStatus, 1);
    EXPECT_NE(broken.err.find("line 2 is broken"), std::string::npos);
    EXPECT_EQ(runProcess(kServer, {"verify-log"}).exitStatus, 64);
}

}  // namespace
}  // namespace velmora::mcp::testing
