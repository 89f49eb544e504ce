#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "core/model/Json.h"
#include "tests/support/KeptRun.h"
#include "tests/support/Subprocess.h"

#ifndef VELMORA_REPLAY_PATH
#error "velmora-replay must be built for these tests"
#endif

namespace velmora {
namespace {

using testing::ProcessResult;
using testing::runProcess;

const std::string kFixtures = std::string(VELMORA_SOURCE_DIR) + "/tests/cli/replay-fixtures/";

std::string readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in) << "cannot open " << path;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// A scratch directory per test, removed afterwards.
class ReplayTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string pattern = ::testing::TempDir() + "velmora-replay-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        scratch_ = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(scratch_); }

    std::string scratchFile(const std::string& name, const std::string& contents) {
        std::string path = scratch_ + "/" + name;
        std::ofstream(path, std::ios::binary) << contents;
        return path;
    }

    std::string scratchPath(const std::string& name) const { return scratch_ + "/" + name; }

    static ProcessResult replay(const std::vector<std::string>& arguments, const std::string& input,
                                const std::map<std::string, std::string>& environment = {}) {
        testing::KeptRun kept("replay", "run", input);
        auto result = runProcess(VELMORA_REPLAY_PATH, arguments, input, environment, 60);
        kept.finish(result.out, result.exitStatus);
        return result;
    }

    std::string scratch_;
};

const std::string kSimpleScenario = R"({
  "frontmost": "org.example.Notes",
  "elements": [
    {"role": "AXButton", "title": "Save", "valuePresent": false,
     "frame": {"x": 10, "y": 20, "width": 30, "height": 40}}
  ],
  "sha": "abc",
  "clock": {"date": "2026-11-16T03:04:05Z", "idPrefix": "t"}
})";

std::string requestWith(const std::string& actions, const std::string& extra = "") {
    return R"({"sessionId": "s-1", "seatLease": "lease", "targetBundleId": "org.example.Notes", )" +
           extra + R"("actions": )" + actions + "}";
}

TEST_F(ReplayTest, EveryActionKindMatchesTheGoldenResponse) {
    auto result =
        replay({kFixtures + "notes.scenario.json"}, readText(kFixtures + "all-kinds.request.json"));
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(result.out, readText(kFixtures + "all-kinds.response.json"));
    EXPECT_EQ(result.err, "");
}

TEST_F(ReplayTest, TheCallLogMatchesTheGoldenCalls) {
    std::string calls = scratchPath("calls.json");
    auto result = replay({kFixtures + "notes.scenario.json", "--calls", calls},
                         readText(kFixtures + "all-kinds.request.json"));
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(result.out, readText(kFixtures + "all-kinds.response.json"));
    EXPECT_EQ(readText(calls), readText(kFixtures + "all-kinds.calls.json"));
}

TEST_F(ReplayTest, FailedActionsMatchTheGoldenResponseAndExitTwo) {
    std::string calls = scratchPath("calls.json");
    auto result = replay({"--calls", calls, kFixtures + "failures.scenario.json"},
                         readText(kFixtures + "failures.request.json"));
    EXPECT_EQ(result.exitStatus, 2) << result.err;
    EXPECT_EQ(result.out, readText(kFixtures + "failures.response.json"));
    EXPECT_EQ(readText(calls), readText(kFixtures + "failures.calls.json"));
    EXPECT_EQ(result.err, "");
}

TEST_F(ReplayTest, AGateFailureExitsTwoWithoutReceipts) {
    std::string scenario = scratchFile("scenario.json", kSimpleScenario);
    std::string calls = scratchPath("calls.json");
    std::string request = R"({"sessionId": "s-1", "seatLease": " \t ",
        "targetBundleId": "org.example.Notes", "actions": [{"kind": "launch"}]})";
    auto result = replay({scenario, "--calls", calls}, request);
    EXPECT_EQ(result.exitStatus, 2) << result.err;
    auto response = decodeResponse(parseJson(result.out));
    EXPECT_EQ(response.sessionId, "s-1");
    EXPECT_FALSE(response.ok);
    EXPECT_TRUE(response.receipts.empty());
    EXPECT_EQ(response.error, std::optional<std::string>("missing GUI-seat lease (RequiresLease)"));
    EXPECT_EQ(readText(calls), "[]\n");
}

TEST_F(ReplayTest, ADeniedTargetExitsTwo) {
    std::string scenario = scratchFile("scenario.json", kSimpleScenario);
    auto result = replay({scenario}, requestWith("[]", R"("deniedApps": ["notes"], )"));
    EXPECT_EQ(result.exitStatus, 2);
    auto response = decodeResponse(parseJson(result.out));
    EXPECT_EQ(response.error,
              std::optional<std::string>("consent denied for app: org.example.Notes"));
}

TEST_F(ReplayTest, AnUndecodableRequestExitsThreeWithUnknownSession) {
    std::string scenario = scratchFile("scenario.json", kSimpleScenario);
    std::string calls = scratchPath("calls.json");
    auto result = replay({scenario, "--calls", calls},
                         R"({"sessionId": "s-1", "seatLease": "l", "targetBundleId": "t",
                             "actions": [{"kind": "Click"}]})");
    EXPECT_EQ(result.exitStatus, 3) << result.err;
    auto response = decodeResponse(parseJson(result.out));
    EXPECT_EQ(response.sessionId, "unknown");
    EXPECT_FALSE(response.ok);
    EXPECT_TRUE(response.receipts.empty());
    ASSERT_TRUE(response.error.has_value());
    EXPECT_EQ(response.error->rfind("decode: ", 0), 0u) << *response.error;
    EXPECT_NE(response.error->find("Click"), std::string::npos) << *response.error;
    EXPECT_EQ(response.protocolVersion, "velmora.driver_broker.v1");
    EXPECT_EQ(readText(calls), "[]\n");
}

TEST_F(ReplayTest, EmptyInputIsUndecodable) {
    std::string scenario = scratchFile("scenario.json", kSimpleScenario);
    auto result = replay({scenario}, "");
    EXPECT_EQ(result.exitStatus, 3);
    auto response = decodeResponse(parseJson(result.out));
    EXPECT_EQ(response.sessionId, "unknown");
    EXPECT_EQ(response.error->rfind("decode: ", 0), 0u);
}

TEST_F(ReplayTest, BadUsageExits64) {
    std::string scenario = scratchFile("scenario.json", kSimpleScenario);
    std::string request = requestWith("[]");
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {},
             {scenario, "--calls"},
             {scenario, scenario},
             {scenario, "--verbose"},
             {"--calls", scratchPath("a.json"), "--calls", scratchPath("b.json"), scenario},
         }) {
        auto result = replay(arguments, request);
        EXPECT_EQ(result.exitStatus, 64) << ::testing::PrintToString(arguments);
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.err.find("usage: velmora-replay SCENARIO.json"), std::string::npos)
            << result.err;
    }
}

TEST_F(ReplayTest, AMissingScenarioFileExits64) {
    auto result = replay({scratchPath("nowhere.json")}, requestWith("[]"));
    EXPECT_EQ(result.exitStatus, 64);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("cannot read scenario"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("nowhere.json"), std::string::npos) << result.err;
}

TEST_F(ReplayTest, AnUnwritableCallsFileExits64BeforeRunning) {
    std::string scenario = scratchFile("scenario.json", kSimpleScenario);
    auto result =
        replay({scenario, "--calls", scratchPath("missing-dir/calls.json")}, requestWith("[]"));
    EXPECT_EQ(result.exitStatus, 64);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("cannot write calls file"), std::string::npos) << result.err;
}

TEST_F(ReplayTest, BadScenariosExit64NamingTheProblem) {
    struct Case {
        std::string scenario;
        std::string mentions;
    };
    std::vector<Case> cases = {
        {"{not json", "invalid JSON"},
        {"[]", "expected an object"},
        {R"({"elements": []})", "sha: missing required key"},
        {R"({"sha": "x"})", "elements: missing required key"},
        {R"({"sha": "x", "elements": [{"title": "t", "valuePresent": false}]})",
         "elements[0].role"},
        {R"({"sha": "x", "elements": [], "failOn": ["clik"]})", "failOn[0]"},
        {R"({"sha": "x", "elements": [], "focusSucceeds": "yes"})", "focusSucceeds"},
        {R"({"sha": "x", "elements": [], "clock": {"date": "16/11/2026", "idPrefix": "p"}})",
         "clock.date"},
        {R"({"sha": "x", "elements": [], "clock": {"date": "2026-02-30T00:00:00Z", "idPrefix": "p"}})",
         "clock.date"},
        {R"({"sha": "x", "elements": [], "clock": {"date": "2026-11-16T03:04:05Z"}})",
         "clock.idPrefix"},
        {R"({"sha": "x", "elements": [], "assertRetries": 1.5})", "assertRetries"},
        {R"({"sha": "x", "elements": [], "assertRetryDelay": -1})", "assertRetryDelay"},
        {R"({"sha": "x", "elements": [], "assertRetryDelay": "0.3"})", "assertRetryDelay"},
        {R"({"sha": "x", "elements": [], "frontMost": "a"})", "frontMost: unknown key"},
    };
    for (const auto& c : cases) {
        std::string scenario = scratchFile("bad.json", c.scenario);
        auto result = replay({scenario}, requestWith("[]"));
        EXPECT_EQ(result.exitStatus, 64) << c.scenario;
        EXPECT_EQ(result.out, "") << c.scenario;
        EXPECT_NE(result.err.find("bad scenario"), std::string::npos) << result.err;
        EXPECT_NE(result.err.find(c.mentions), std::string::npos)
            << c.scenario << " -> " << result.err;
    }
}

TEST_F(ReplayTest, ANegativeSelectorIndexStopsTheProcess) {
    std::string scenario = scratchFile("scenario.json", kSimpleScenario);
    auto result = replay(
        {scenario},
        requestWith(R"([{"kind": "query", "selector": {"role": "AXButton", "index": -1}}])"));
    EXPECT_EQ(result.exitStatus, 128 + SIGABRT) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("negative selector index -1"), std::string::npos) << result.err;
}

TEST_F(ReplayTest, ScenarioDefaultsUseTheSystemClockAndAllowEverything) {
    std::string scenario = scratchFile("scenario.json", R"({"sha": "abc", "elements": []})");
    std::string calls = scratchPath("calls.json");
    auto result = replay({scenario, "--calls", calls},
                         requestWith(R"([{"kind": "focus"}, {"kind": "typeText", "text": "x"}])"));
    EXPECT_EQ(result.exitStatus, 0) << result.out << result.err;
    auto response = decodeResponse(parseJson(result.out));
    ASSERT_EQ(response.receipts.size(), 2u);
    std::regex uuid("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[0-9A-F]{4}-[0-9A-F]{12}");
    std::regex timestamp(R"(\d{4}-\d{2}-\d{2}T\d{2}:\d{2}:\d{2}Z)");
    for (const auto& receipt : response.receipts) {
        EXPECT_TRUE(std::regex_match(receipt.receiptId, uuid)) << receipt.receiptId;
        EXPECT_TRUE(std::regex_match(receipt.ts, timestamp)) << receipt.ts;
        EXPECT_EQ(receipt.postActionStructuralState.frontmostBundleId,
                  std::optional<std::string>("org.example.Notes"));
    }
    EXPECT_NE(response.receipts[0].receiptId, response.receipts[1].receiptId);
    // No frontmost app at first, so focusing brings the target forward.
    EXPECT_FALSE(response.receipts[0].frontmostTargetMatch);
    EXPECT_TRUE(response.receipts[1].frontmostTargetMatch);
    auto log = parseJson(readText(calls));
    EXPECT_EQ(log, parseJson(R"([
        {"op": "focus", "detail": "org.example.Notes"},
        {"op": "structuralState", "detail": "org.example.Notes"},
        {"op": "typeText", "detail": "x"},
        {"op": "structuralState", "detail": "org.example.Notes"}])"));
}

TEST_F(ReplayTest, AFailingAssertReallyPausesBetweenAttempts) {
    std::string scenario = scratchFile("scenario.json", R"({"sha": "abc", "elements": [],
        "assertRetries": 3, "assertRetryDelay": 0.2,
        "clock": {"date": "2026-11-16T03:04:05Z", "idPrefix": "t"}})");
    std::string calls = scratchPath("calls.json");
    auto started = std::chrono::steady_clock::now();
    auto result = replay({scenario, "--calls", calls},
                         requestWith(R"([{"kind": "assert", "selector": {"role": "AXSheet"}}])"));
    auto elapsed = std::chrono::steady_clock::now() - started;
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_GE(elapsed, std::chrono::milliseconds(400));
    auto response = decodeResponse(parseJson(result.out));
    ASSERT_EQ(response.receipts.size(), 1u);
    EXPECT_EQ(response.receipts[0].errorMessage,
              std::optional<std::string>("assertion failed: role=AXSheet"));
    auto log = parseJson(readText(calls));
    EXPECT_EQ(log, parseJson(R"([
        {"op": "query", "detail": "role=AXSheet"},
        {"op": "query", "detail": "role=AXSheet"},
        {"op": "query", "detail": "role=AXSheet"},
        {"op": "structuralState", "detail": "org.example.Notes"}])"));
}

TEST_F(ReplayTest, AssertsDefaultToFourAttemptsAThirdOfASecondApart) {
    std::string scenario = scratchFile("scenario.json", R"({"sha": "abc", "elements": []})");
    std::string calls = scratchPath("calls.json");
    auto started = std::chrono::steady_clock::now();
    auto result = replay({scenario, "--calls", calls}, requestWith(R"([{"kind": "assert"}])"));
    auto elapsed = std::chrono::steady_clock::now() - started;
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_GE(elapsed, std::chrono::milliseconds(900));
    auto log = parseJson(readText(calls));
    EXPECT_EQ(log, parseJson(R"([
        {"op": "query", "detail": "<any>"},
        {"op": "query", "detail": "<any>"},
        {"op": "query", "detail": "<any>"},
        {"op": "query", "detail": "<any>"},
        {"op": "structuralState", "detail": "org.example.Notes"}])"));
}

#if !defined(__APPLE__)
// Apple platforms answer NSTemporaryDirectory(), whatever TMPDIR says.
TEST_F(ReplayTest, ScreenshotsDefaultToTheTemporaryDirectory) {
    std::string scenario = scratchFile("scenario.json", kSimpleScenario);
    auto result =
        replay({scenario}, requestWith(R"([{"kind": "screenshot"}])"), {{"TMPDIR", scratch_}});
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    auto response = decodeResponse(parseJson(result.out));
    ASSERT_EQ(response.receipts.size(), 1u);
    EXPECT_EQ(response.receipts[0].screenshotPath,
              std::optional<std::string>(scratch_ + "/s-1-t-1.png"));
    EXPECT_EQ(response.receipts[0].receiptId, "t-2");
    // The mock driver writes no file.
    EXPECT_FALSE(std::filesystem::exists(scratch_ + "/s-1-t-1.png"));
}

#endif

TEST_F(ReplayTest, AClockWithAnOffsetIsRenderedInUtc) {
    std::string scenario = scratchFile("scenario.json", R"({"sha": "abc", "elements": [],
        "clock": {"date": "2026-11-16T04:34:05.75+01:30", "idPrefix": "z"}})");
    auto result = replay({scenario}, requestWith(R"([{"kind": "healthTick"}])"));
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    auto response = decodeResponse(parseJson(result.out));
    ASSERT_EQ(response.receipts.size(), 1u);
    EXPECT_EQ(response.receipts[0].ts, "2026-11-16T03:04:05Z");
    EXPECT_EQ(response.receipts[0].receiptId, "z-1");
}

// Golden runs where the platform's own answers decide the outcome: the
// whitespace set, canonically equivalent text, numbers as the platform writes
// them, requests in UTF-16 and UTF-32, and the temporary directory.
struct GoldenCase {
    std::string request;   // file name in the fixtures
    std::string scenario;  // file name in the fixtures
    std::string golden;    // GOLDEN.response.json and GOLDEN.calls.json
    int exitStatus;
    std::map<std::string, std::string> environment = {};
    std::vector<std::string> unset = {};  // environment variables taken away
};

TEST_F(ReplayTest, PlatformExactnessCasesMatchTheirGoldenFiles) {
    const std::vector<GoldenCase> cases = {
        {"space-lease.request.json", "notes.scenario.json", "space-lease", 2},
        {"space-denied.request.json", "notes.scenario.json", "space-denied", 2},
        {"space-kept.request.json", "notes.scenario.json", "space-kept", 0},
        {"click-coordinates.request.json", "notes.scenario.json", "click-coordinates", 0},
        {"canonical.request.json", "canonical.scenario.json", "canonical", 2},
        {"numbers.request.json", "numbers.scenario.json", "numbers", 0},
        // The same request as all-kinds, in other encodings, gives the same run.
        {"all-kinds.request.utf16le.json", "notes.scenario.json", "all-kinds", 0},
        {"all-kinds.request.utf32be.json", "notes.scenario.json", "all-kinds", 0},
#if !defined(__APPLE__)
        // TMPDIR as given, though the folder does not exist; TMP and TEMP unread.
        // (Apple platforms answer NSTemporaryDirectory(), whatever TMPDIR says.)
        {"temporary-directory.request.json",
         "notes.scenario.json",
         "temporary-directory",
         0,
         {{"TMPDIR", "/nonexistent/velmora-shots"}, {"TMP", "/var/tmp"}, {"TEMP", "/var/tmp"}}},
        {"temporary-directory.request.json",
         "notes.scenario.json",
         "temporary-directory-unset",
         0,
         {{"TMP", "/var/tmp"}, {"TEMP", "/var/tmp"}},
         {"TMPDIR"}},
#endif
    };
    for (const GoldenCase& c : cases) {
        SCOPED_TRACE(c.request + " -> " + c.golden);
        std::string calls = scratchPath(c.golden + ".calls.json");
        std::vector<std::string> arguments;
        for (const std::string& name : c.unset) {
            arguments.insert(arguments.end(), {"-u", name});
        }
        arguments.insert(arguments.end(),
                         {VELMORA_REPLAY_PATH, kFixtures + c.scenario, "--calls", calls});
        auto result = runProcess("/usr/bin/env", arguments, readText(kFixtures + c.request),
                                 c.environment, 60);
        EXPECT_EQ(result.exitStatus, c.exitStatus) << result.err;
        EXPECT_EQ(result.out, readText(kFixtures + c.golden + ".response.json"));
        EXPECT_EQ(readText(calls), readText(kFixtures + c.golden + ".calls.json"));
        EXPECT_EQ(result.err, "");
    }
}

}  // namespace
}  // namespace velmora
