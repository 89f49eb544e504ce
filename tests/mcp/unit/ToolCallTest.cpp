// Tool calls: how arguments become one agent request, how the agent's
// response becomes the result a client sees, and what a client sees when the
// agent fails, hangs or the audit log cannot be written.

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>

#include "mcp/Base64.h"
#include "mcp/JsonRpc.h"
#include "mcp/PngScale.h"
#include "tests/mcp/unit/McpTestSupport.h"

namespace velmora::mcp::testing {
namespace {

class ToolCall : public ::testing::Test {
  protected:
    void SetUp() override { harness.initialize(); }

    // The actions of the one request a call sent.
    Json actionsOf(const std::string& tool, const Json& arguments) {
        size_t before = harness.runner.requests.size();
        Json answer = harness.call(tool, arguments);
        EXPECT_TRUE(answer.contains("result")) << answer.dump();
        EXPECT_EQ(harness.runner.requests.size(), before + 1);
        return harness.runner.requests.empty() ? Json() : harness.runner.requests.back()["actions"];
    }

    // The error a call is refused with before any agent runs.
    Json refusal(const std::string& tool, const Json& arguments) {
        size_t before = harness.runner.requests.size();
        harness.send(request(3, "tools/call", {{"name", tool}, {"arguments", arguments}}));
        EXPECT_FALSE(harness.server->runNextCall());
        auto messages = harness.take();
        EXPECT_EQ(harness.runner.requests.size(), before);
        EXPECT_EQ(messages.size(), 1u);
        return messages.empty() ? Json() : messages[0]["error"];
    }

    Harness harness;
};

TEST_F(ToolCall, EachToolBecomesItsAction) {
    EXPECT_EQ(actionsOf("launch_app", {{"target", "galculator"}}),
              Json::parse(R"([{"kind": "launch"}])"));
    EXPECT_EQ(actionsOf("focus_app", {{"target", "galculator"}}),
              Json::parse(R"([{"kind": "focus"}])"));
    EXPECT_EQ(actionsOf("frontmost", {{"target", "galculator"}}),
              Json::parse(R"([{"kind": "frontmost"}])"));
    EXPECT_EQ(
        actionsOf(
            "click",
            Json::parse(
                R"({"target": "galculator", "selector": {"role": "AXToggleButton", "title": "7"}, "label": "seven"})")),
        Json::parse(
            R"([{"kind": "click", "selector": {"role": "AXToggleButton", "title": "7"}, "label": "seven"}])"));
    EXPECT_EQ(
        actionsOf(
            "click",
            Json::parse(
                R"({"target": "galculator", "point": {"x": 10, "y": 20.5}, "double": true})")),
        Json::parse(R"([{"kind": "doubleClick", "point": {"x": 10, "y": 20.5}}])"));
    EXPECT_EQ(actionsOf("type_text", {{"target", "org.xfce.mousepad"}, {"text", "Grüße"}}),
              Json::parse(R"([{"kind": "typeText", "text": "Grüße"}])"));
    EXPECT_EQ(actionsOf("press_keys",
                        Json::parse(R"({"target": "galculator", "keys": ["ctrl+a", "Return"]})")),
              Json::parse(R"([{"kind": "keyPress", "keys": ["ctrl+a", "Return"]}])"));
    EXPECT_EQ(
        actionsOf(
            "scroll",
            Json::parse(R"({"target": "galculator", "dx": 0, "dy": -3, "at": {"x": 1, "y": 2}})")),
        Json::parse(
            R"([{"kind": "scroll", "scroll": {"dx": 0, "dy": -3, "at": {"x": 1, "y": 2}}}])"));
    EXPECT_EQ(
        actionsOf(
            "find_elements",
            Json::parse(
                R"({"target": "galculator", "selector": {"role": "AXButton"}, "maxElements": 3})")),
        Json::parse(R"([{"kind": "query", "selector": {"role": "AXButton"}}])"));
    EXPECT_EQ(actionsOf("find_elements", {{"target", "galculator"}}),
              Json::parse(R"([{"kind": "query"}])"));
    EXPECT_EQ(
        actionsOf(
            "wait_for",
            Json::parse(
                R"({"target": "galculator", "selector": {"role": "AXTextArea"}, "expect": {"valueEquals": "78"}})")),
        Json::parse(
            R"([{"kind": "assert", "selector": {"role": "AXTextArea"}, "expect": {"valueEquals": "78"}}])"));
    EXPECT_EQ(
        actionsOf(
            "run_actions",
            Json::parse(
                R"({"target": "galculator", "actions": [{"kind": "focus"}, {"kind": "healthTick", "label": "x", "unknownKey": 1}]})")),
        Json::parse(
            R"([{"kind": "focus"}, {"kind": "healthTick", "label": "x", "unknownKey": 1}])"));
}

TEST_F(ToolCall, EveryRequestCarriesTheServersLeasePolicyConsentAndAFreshSession) {
    harness.call("launch_app", {{"target", "galculator"}});
    harness.call("launch_app", {{"target", "galculator"}});
    ASSERT_EQ(harness.runner.requests.size(), 2u);
    const Json& first = harness.runner.requests[0];
    EXPECT_EQ(first["protocolVersion"], "velmora.driver_broker.v1");
    EXPECT_EQ(first["seatLease"], "lease-7");
    EXPECT_EQ(first["targetBundleId"], "galculator");
    EXPECT_EQ(first["approvedApps"], Json::parse(R"(["galculator", "org.xfce.mousepad"])"));
    EXPECT_EQ(first["deniedApps"], Json::parse(R"(["xterm"])"));
    EXPECT_EQ(first["consent"],
              Json::parse(R"({"allowScreenshots": true, "trainingCorpus": false})"));
    EXPECT_FALSE(first.contains("screenshotDir"));
    EXPECT_NE(first["sessionId"], harness.runner.requests[1]["sessionId"]);
    EXPECT_EQ(first["sessionId"], "mcp-r-1");
    EXPECT_EQ(harness.runner.timeLimits[0], std::chrono::milliseconds(12500));
    // The request decodes with the agent's own decoder.
    EXPECT_NO_THROW(decodeRequest(first));
}

TEST_F(ToolCall, EmptyApprovalsAndScreenshotSettingsGoIntoTheRequest) {
    Config config = Harness::testConfig("");
    config.approvedApps.clear();
    config.allowScreenshots = false;
    config.screenshotDir = "/var/tmp/shots";
    Harness strict(config);
    strict.initialize();
    strict.call("frontmost", {{"target", "galculator"}});
    ASSERT_EQ(strict.runner.requests.size(), 1u);
    EXPECT_EQ(strict.runner.requests[0]["approvedApps"], Json::array());
    EXPECT_EQ(strict.runner.requests[0]["consent"]["allowScreenshots"], false);
    EXPECT_EQ(strict.runner.requests[0]["screenshotDir"], "/var/tmp/shots");
}

TEST_F(ToolCall, ArgumentsThatDoNotFitTheToolAreInvalidParams) {
    struct Bad {
        const char* tool;
        const char* arguments;
        const char* words;
    };
    const Bad cases[] = {
        {"nonexistent_tool", R"({"target": "galculator"})", "Unknown tool"},
        {"launch_app", R"({})", "missing argument \"target\""},
        {"launch_app", R"({"target": null})", "missing argument \"target\""},
        {"launch_app", R"({"target": 5})", "\"target\" must be a string"},
        {"launch_app", R"({"target": " \t"})", "must name an application"},
        {"launch_app", R"({"target": "galculator", "tagret": "x"})", "unknown argument \"tagret\""},
        {"launch_app", R"(["galculator"])", "must be an object"},
        {"click", R"({"target": "galculator"})", "either \"selector\" or \"point\""},
        {"click", R"({"target": "galculator", "selector": {}, "point": {"x": 1, "y": 2}})",
         "either"},
        {"click", R"({"target": "galculator", "selector": {"role": 3}})",
         "arguments.selector.role"},
        {"click", R"({"target": "galculator", "point": {"x": 1}})", "arguments.point"},
        {"click", R"({"target": "galculator", "point": {"x": 1, "y": 2}, "double": "yes"})",
         "\"double\" must be true or false"},
        {"type_text", R"({"target": "galculator"})", "missing argument \"text\""},
        {"type_text", R"({"target": "galculator", "text": ["a"]})", "\"text\" must be a string"},
        {"press_keys", R"({"target": "galculator", "keys": []})", "non-empty list"},
        {"press_keys", R"({"target": "galculator", "keys": "a"})", "non-empty list"},
        {"press_keys", R"({"target": "galculator", "keys": [1]})", "arguments.keys"},
        {"scroll", R"({"target": "galculator", "dx": 1.5, "dy": 0})", "arguments.scroll.dx"},
        {"scroll", R"({"target": "galculator", "dx": 1})", "missing argument \"dy\""},
        {"find_elements", R"({"target": "galculator", "maxElements": -1})",
         "\"maxElements\" must be from 0"},
        {"find_elements", R"({"target": "galculator", "maxElements": 2.5})", "whole number"},
        {"find_elements", R"({"target": "galculator", "maxElements": 1e300})", "whole number"},
        {"wait_for", R"({"target": "galculator"})", "missing argument \"selector\""},
        {"wait_for", R"({"target": "galculator", "selector": {}, "expect": {"minCount": "2"}})",
         "arguments.expect.minCount"},
        {"screenshot", R"({"target": "galculator", "maxWidth": 8})",
         "\"maxWidth\" must be from 16"},
        {"run_actions", R"({"target": "galculator"})", "missing argument \"actions\""},
        {"run_actions", R"({"target": "galculator", "actions": {}})", "must be a list"},
        {"run_actions",
         R"({"target": "galculator", "actions": [{"kind": "focus"}, {"kind": "Click"}]})",
         "actions[1].kind: unknown action kind \"Click\""},
        {"run_actions", R"({"target": "galculator", "actions": [{"text": "a"}]})", "actions[0]"},
    };
    for (const auto& bad : cases) {
        Json error = refusal(bad.tool, Json::parse(bad.arguments));
        EXPECT_EQ(error.value("code", 0), rpc::kInvalidParams) << bad.tool << " " << bad.arguments;
        EXPECT_NE(error.value("message", "").find(bad.words), std::string::npos)
            << bad.tool << " " << bad.arguments << " -> " << error.dump();
    }
    // Arguments left out entirely are an empty object.
    harness.send(request(3, "tools/call", {{"name", "frontmost"}}));
    auto messages = harness.take();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_NE(
        messages[0]["error"]["message"].get<std::string>().find("missing argument \"target\""),
        std::string::npos);
}

TEST_F(ToolCall, AResultCarriesTheReceiptsAndAShortSummary) {
    Json answer = harness.call(
        "click",
        Json::parse(R"({"target": "galculator", "selector": {"title": "7"}, "label": "seven"})"));
    const Json& result = answer["result"];
    EXPECT_EQ(result["isError"], false);
    const Json& structured = result["structuredContent"];
    EXPECT_EQ(structured["ok"], true);
    EXPECT_EQ(structured["sessionId"], "mcp-r-1");
    EXPECT_EQ(structured["target"], "galculator");
    ASSERT_EQ(structured["receipts"].size(), 1u);
    const Json& receipt = structured["receipts"][0];
    EXPECT_EQ(receipt["action"], "click");
    EXPECT_EQ(receipt["label"], "seven");
    EXPECT_EQ(receipt["binarySha256"], std::string(64, 'a'));
    EXPECT_EQ(receipt["schema"], "velmora.native_app_runtime_receipt.v1");
    EXPECT_EQ(receipt["postActionStructuralState"]["elementCount"], 12);
    EXPECT_EQ(receipt["postActionStructuralState"]["rolesLeftOut"], 0);
    ASSERT_EQ(result["content"].size(), 1u);
    EXPECT_EQ(result["content"][0]["type"], "text");
    EXPECT_EQ(
        result["content"][0]["text"],
        "click on galculator: ok\n- click [seven]: succeeded; target frontmost; 12 elements after");
}

TEST_F(ToolCall, ElementsAreListedUpToTheLimitWithTheTotalAndWithoutValuesUnlessAsked) {
    harness.runner.answer = [](const Json& request, const Cancellation&) {
        Json response = agentResponse(request);
        Json elements = Json::array();
        for (int i = 0; i < 120; ++i) {
            elements.push_back({{"role", "AXButton"},
                                {"title", std::to_string(i)},
                                {"valuePresent", true},
                                {"value", "v" + std::to_string(i)},
                                {"frame", {{"x", i}, {"y", 2}, {"width", 30}, {"height", 20.5}}}});
        }
        response["receipts"][0]["queryResult"] = elements;
        Json histogram = Json::object();
        for (int i = 0; i < 11; ++i) {
            histogram["AXRole" + std::to_string(i)] = i + 1;
        }
        response["receipts"][0]["postActionStructuralState"]["roleHistogram"] = histogram;
        return exitedWith(response);
    };
    Json byDefault = harness.call(
        "find_elements", {{"target", "galculator"}})["result"]["structuredContent"]["receipts"][0];
    EXPECT_EQ(byDefault["queryResultCount"], 120);
    ASSERT_EQ(byDefault["queryResult"].size(), 50u);
    EXPECT_EQ(byDefault["queryResult"][49]["title"], "49");
    EXPECT_FALSE(byDefault["queryResult"][0].contains("value"));
    EXPECT_EQ(byDefault["queryResult"][0]["valuePresent"], true);
    // The histogram keeps its largest roles and counts the rest.
    const Json& state = byDefault["postActionStructuralState"];
    EXPECT_EQ(state["roleHistogram"].size(), 8u);
    EXPECT_EQ(state["roleHistogram"]["AXRole10"], 11);
    EXPECT_EQ(state["roleHistogram"]["AXRole3"], 4);
    EXPECT_FALSE(state["roleHistogram"].contains("AXRole2"));
    EXPECT_EQ(state["rolesLeftOut"], 3);

    Json answer = harness.call(
        "wait_for",
        Json::parse(
            R"({"target": "galculator", "selector": {}, "maxElements": 2, "includeValues": true})"));
    Json asked = answer["result"]["structuredContent"]["receipts"][0];
    EXPECT_EQ(asked["queryResultCount"], 120);
    ASSERT_EQ(asked["queryResult"].size(), 2u);
    EXPECT_EQ(asked["queryResult"][1]["value"], "v1");
    EXPECT_EQ(
        answer["result"]["content"][0]["text"],
        "wait_for on galculator: ok\n- assert: succeeded; target frontmost; 12 elements after\n"
        "  found 120 elements, first 2 listed\n"
        "  AXButton \"0\" value \"v0\" at 0,2 30x20.5\n"
        "  AXButton \"1\" value \"v1\" at 1,2 30x20.5");

    Json none = harness.call("find_elements", {{"target", "galculator"}, {"maxElements", 0}});
    EXPECT_EQ(none["result"]["structuredContent"]["receipts"][0]["queryResult"], Json::array());
}

TEST_F(ToolCall, AGateRefusalOrAFailedActionIsAToolError) {
    harness.runner.answer = [](const Json& request, const Cancellation&) {
        Json response = {{"protocolVersion", "velmora.driver_broker.v1"},
                         {"sessionId", request["sessionId"]},
                         {"ok", false},
                         {"receipts", Json::array()},
                         {"error", "consent denied for app: xterm"}};
        return exitedWith(response);
    };
    Json refused = harness.call("launch_app", {{"target", "xterm"}})["result"];
    EXPECT_EQ(refused["isError"], true);
    EXPECT_EQ(refused["structuredContent"]["error"], "consent denied for app: xterm");
    EXPECT_EQ(refused["content"][0]["text"],
              "launch_app on xterm: refused: consent denied for app: xterm");

    harness.runner.answer = [](const Json& request, const Cancellation&) {
        return exitedWith(agentResponse(
            request, false, "consent denied for app: screenshots not permitted by consent scope"));
    };
    Json failed = harness.call("screenshot", {{"target", "galculator"}})["result"];
    EXPECT_EQ(failed["isError"], true);
    EXPECT_EQ(failed["structuredContent"]["receipts"][0]["succeeded"], false);
    EXPECT_EQ(failed["content"].size(), 1u);  // no image
    EXPECT_NE(failed["content"][0]["text"].get<std::string>().find(
                  "screenshot: FAILED: consent denied for app: screenshots not permitted"),
              std::string::npos);
}

TEST_F(ToolCall, AnAgentThatCrashesHangsOrCannotStartGivesAClearToolError) {
    struct Failure {
        AgentOutcome outcome;
        const char* words;
    };
    AgentOutcome crashed;
    crashed.ending = AgentOutcome::Ending::signalled;
    crashed.signal = SIGSEGV;
    crashed.processId = 4711;
    crashed.err = "free(): invalid pointer\n";
    AgentOutcome hung;
    hung.ending = AgentOutcome::Ending::timedOut;
    hung.processId = 4712;
    AgentOutcome missing;
    missing.ending = AgentOutcome::Ending::notStarted;
    missing.detail = "/nonexistent/velmora-agent: No such file or directory";
    AgentOutcome garbage;
    garbage.ending = AgentOutcome::Ending::exited;
    garbage.exitStatus = 0;
    garbage.processId = 4713;
    garbage.out = "hello\n";
    AgentOutcome undecodable = exitedWith(
        Json::parse(
            R"({"protocolVersion": "velmora.driver_broker.v1", "sessionId": "unknown", "ok": false, "receipts": [], "error": "decode: actions[0].kind: unknown action kind \"x\""})"),
        3);
    AgentOutcome usage;
    usage.ending = AgentOutcome::Ending::exited;
    usage.exitStatus = 64;
    usage.processId = 4714;
    usage.err = "unknown mode: run\n";
    AgentOutcome flood;
    flood.ending = AgentOutcome::Ending::tooMuchOutput;
    flood.processId = 4715;
    const Failure failures[] = {
        {crashed,
         "velmora-agent (process 4711) was ended by signal 11 (Segmentation fault) without a "
         "response; its standard error ends: free(): invalid pointer"},
        {hung,
         "velmora-agent (process 4712) did not answer within 12.5 s, the call's time limit, and "
         "was ended by its process id"},
        {missing,
         "velmora-agent could not be started: /nonexistent/velmora-agent: No such file or "
         "directory"},
        {garbage, "velmora-agent (process 4713) exited with status 0 without a response"},
        {undecodable, "velmora-agent could not read the request: decode: actions[0].kind"},
        {usage, "velmora-agent (process 4714) exited with status 64 without a response"},
        {flood, "velmora-agent (process 4715) wrote more output than a response can be"},
    };
    for (const auto& failure : failures) {
        harness.runner.answer = [&](const Json&, const Cancellation&) { return failure.outcome; };
        Json result = harness.call("launch_app", {{"target", "galculator"}})["result"];
        EXPECT_EQ(result["isError"], true);
        EXPECT_FALSE(result.contains("structuredContent"));
        ASSERT_EQ(result["content"].size(), 1u);
        EXPECT_NE(result["content"][0]["text"].get<std::string>().find(failure.words),
                  std::string::npos)
            << result["content"][0]["text"];
    }
    std::string report;
    EXPECT_EQ(verifyLogCommand(harness.config.auditLogPath, report), 0) << report;
}

TEST_F(ToolCall, ALogThatCannotBeWrittenRefusesTheCallBeforeAnyAgentRuns) {
    TempDir dir;
    std::ofstream(dir.file("a-file")) << "x";
    for (const std::string& path :
         {dir.file("a-file") + "/audit.jsonl", dir.path().string(), std::string("/dev/full")}) {
        Harness blocked(Harness::testConfig(path));
        blocked.initialize();
        Json result = blocked.call("launch_app", {{"target", "galculator"}})["result"];
        EXPECT_TRUE(blocked.runner.requests.empty()) << path;
        EXPECT_EQ(result["isError"], true);
        std::string text = result["content"][0]["text"];
        EXPECT_NE(text.find("refused: the call was not run because the audit log cannot be "
                            "written: audit log " +
                            path),
                  std::string::npos)
            << text;
    }
}

TEST_F(ToolCall, AScreenshotComesBackScaledAsImageContentWithItsScale) {
    TempDir dir;
    const std::string shot = dir.file("shot.png");
    std::vector<uint8_t> rgb(200 * 100 * 3, 0);
    for (size_t i = 0; i < rgb.size(); i += 3) {
        rgb[i] = 255;  // red
    }
    std::vector<uint8_t> png = encodeRgbPng(rgb, 200, 100);
    std::ofstream(shot, std::ios::binary)
        .write(reinterpret_cast<const char*>(png.data()), png.size());
    harness.runner.answer = [&](const Json& request, const Cancellation&) {
        Json response = agentResponse(request);
        response["receipts"][0]["screenshotPath"] = shot;
        return exitedWith(response);
    };
    Json result = harness.call(
        "screenshot", {{"target", "galculator"}, {"maxWidth", 50}, {"maxHeight", 400}})["result"];
    EXPECT_EQ(result["isError"], false);
    ASSERT_EQ(result["content"].size(), 2u);
    EXPECT_EQ(result["content"][1]["type"], "image");
    EXPECT_EQ(result["content"][1]["mimeType"], "image/png");
    const Json& image = result["structuredContent"]["image"];
    EXPECT_EQ(image["width"], 50);
    EXPECT_EQ(image["height"], 25);
    EXPECT_EQ(image["screenshotWidth"], 200);
    EXPECT_EQ(image["screenshotHeight"], 100);
    EXPECT_DOUBLE_EQ(image["scale"].get<double>(), 0.25);
    EXPECT_EQ(result["structuredContent"]["receipts"][0]["screenshotPath"], shot);
    EXPECT_NE(result["content"][0]["text"].get<std::string>().find(
                  "image 50x25 of a 200x100 screenshot, scale 0.25: a point (x, y) in the image is "
                  "(x / scale, y / scale) on the screen"),
              std::string::npos);
    // The data is the scaled PNG: decode it back.
    const std::string data = result["content"][1]["data"];
    const std::string scaledFile = dir.file("scaled.png");
    // Base64 round trip through the encoder's own alphabet.
    ScaledPng again = scalePngToFit(shot, 50, 400);
    EXPECT_EQ(data, base64(again.png));

    // A screenshot file that cannot be read is a clear error.
    harness.runner.answer = [&](const Json& request, const Cancellation&) {
        Json response = agentResponse(request);
        response["receipts"][0]["screenshotPath"] = dir.file("missing.png");
        return exitedWith(response);
    };
    Json missing = harness.call("screenshot", {{"target", "galculator"}})["result"];
    EXPECT_EQ(missing["isError"], true);
    EXPECT_NE(missing["content"][0]["text"].get<std::string>().find(
                  "the screenshot was taken but cannot be read: " + dir.file("missing.png")),
              std::string::npos);
}

TEST_F(ToolCall, TheAuditLogHoldsEachRequestAndItsResponseInOrder) {
    harness.call("launch_app", {{"target", "galculator"}}, "first");
    harness.call("focus_app", {{"target", "galculator"}}, 2);
    std::ifstream log(harness.config.auditLogPath);
    std::vector<Json> lines;
    for (std::string line; std::getline(log, line);) {
        lines.push_back(Json::parse(line));
    }
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0]["event"], "request");
    EXPECT_EQ(lines[0]["call"], "first");
    EXPECT_EQ(lines[0]["tool"], "launch_app");
    EXPECT_EQ(lines[0]["request"]["actions"], Json::parse(R"([{"kind": "launch"}])"));
    EXPECT_EQ(lines[0]["prev"], std::string(64, '0'));
    EXPECT_EQ(lines[1]["event"], "outcome");
    EXPECT_EQ(lines[1]["ending"], "exited");
    EXPECT_EQ(lines[1]["exitStatus"], 0);
    EXPECT_EQ(lines[1]["response"]["sessionId"], lines[0]["sessionId"]);
    EXPECT_EQ(lines[3]["call"], 2);
    for (size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i]["seq"], i + 1);
        EXPECT_EQ(lines[i]["ts"], "2026-09-21T14:13:20Z");
    }
}

}  // namespace
}  // namespace velmora::mcp::testing
