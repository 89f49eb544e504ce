// The JSON Schemas in schema/ against the agent itself: a request the request
// schema accepts is one the agent decodes, and one it rejects is one the agent
// refuses with exit status 3, case by case along every rule of the decoder. The
// checker, scripts/validate-documents, is tested too: a disagreement or an
// invalid document makes it fail and name the run.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "core/model/Json.h"
#include "tests/support/Subprocess.h"

namespace velmora {
namespace {

using testing::ProcessResult;
using testing::runProcess;

const std::string kSource = VELMORA_SOURCE_DIR;
const std::string kValidator = kSource + "/scripts/validate-documents";

const std::map<std::string, std::string> kNoDesktop = {
    {"DISPLAY", ""},
    {"WAYLAND_DISPLAY", ""},
    {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/velmora-test-bus"},
    {"AT_SPI_BUS_ADDRESS", "unix:path=/nonexistent/velmora-test-bus"},
};

void writeFile(const std::string& path, const std::string& contents) {
    std::ofstream(path, std::ios::binary) << contents;
}

class SchemaTest : public ::testing::Test {
  protected:
    void SetUp() override {
#if defined(__APPLE__)
        GTEST_SKIP() << "the validator is Debian's python3-jsonschema: these checks run on Linux";
#endif
        std::string pattern = ::testing::TempDir() + "velmora-schema-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        scratch_ = pattern;
    }
    void TearDown() override {
        if (!scratch_.empty()) {
            std::filesystem::remove_all(scratch_);
        }
    }

    // Keeps a run as the tests' hook does, with the given outcome.
    void keep(const std::string& name, const std::string& mode, const std::string& input,
              const std::string& output, int status) {
        std::string folder = scratch_ + "/runs/" + name;
        std::filesystem::create_directories(folder);
        writeFile(folder + "/mode", mode);
        writeFile(folder + "/input", input);
        writeFile(folder + "/output", output);
        writeFile(folder + "/status", std::to_string(status));
    }

    // Runs the agent on `input` and keeps the run.
    int runAndKeep(const std::string& name, const std::string& input) {
        auto result = runProcess(VELMORA_AGENT_PATH, {"run"}, input, kNoDesktop, 60);
        keep(name, "run", input, result.out, result.exitStatus);
        return result.exitStatus;
    }

    ProcessResult validateRuns() {
        return runProcess(kValidator, {"runs", scratch_ + "/runs"}, "", {}, 120);
    }

    std::string scratch_;
};

// A request that decodes and is then refused at the approved-app gate.
Json baseRequest() {
    return Json{{"sessionId", "s-1"},
                {"seatLease", "lease"},
                {"targetBundleId", "org.example.none"},
                {"approvedApps", Json::array()},
                {"actions", Json::array({{{"kind", "healthTick"}}})}};
}

// The base request with the member at `pointer` set to the raw JSON text `raw`
// (or removed, when `raw` is empty).
std::string withMember(const std::string& pointer, const std::string& raw) {
    Json request = baseRequest();
    Json::json_pointer where(pointer);
    if (raw.empty()) {
        request[where.parent_pointer()].erase(where.back());
        return request.dump();
    }
    request[where] = "@@VALUE@@";
    std::string text = request.dump();
    const std::string marker = "\"@@VALUE@@\"";
    return text.replace(text.find(marker), marker.size(), raw);
}

std::string withAction(const std::string& action) {
    return withMember("/actions/0", action);
}

TEST_F(SchemaTest, TheSchemaAndTheDecoderAgreeOnEveryDecodingRule) {
    struct Case {
        std::string name;
        std::string input;
        bool decodes;
    };
    std::vector<Case> cases = {
        {"base", baseRequest().dump(), true},
        {"only the required keys",
         R"({"sessionId":"s","seatLease":"l","targetBundleId":"t","actions":[]})", true},
        {"no protocolVersion", withMember("/protocolVersion", "null"), true},
        {"a foreign protocolVersion", withMember("/protocolVersion", "\"v0\""), true},
        {"protocolVersion a number", withMember("/protocolVersion", "1"), false},
        {"empty seat lease", withMember("/seatLease", "\"\""), true},
        {"no sessionId", withMember("/sessionId", ""), false},
        {"null sessionId", withMember("/sessionId", "null"), false},
        {"no seatLease", withMember("/seatLease", ""), false},
        {"no targetBundleId", withMember("/targetBundleId", ""), false},
        {"no actions", withMember("/actions", ""), false},
        {"null actions", withMember("/actions", "null"), false},
        {"actions an object", withMember("/actions", "{}"), false},
        {"null targetAppName", withMember("/targetAppName", "null"), true},
        {"targetAppName a list", withMember("/targetAppName", "[]"), false},
        {"null approvedApps", withMember("/approvedApps", "null"), true},
        {"approvedApps with a number", withMember("/approvedApps", "[\"a\",1]"), false},
        {"deniedApps a string", withMember("/deniedApps", "\"a\""), false},
        {"empty consent", withMember("/consent", "{}"), true},
        {"null consent flags",
         withMember("/consent", R"({"allowScreenshots":null,"trainingCorpus":null})"), true},
        {"consent flag a string", withMember("/consent", R"({"allowScreenshots":"yes"})"), false},
        {"consent a list", withMember("/consent", "[]"), false},
        {"screenshotDir a number", withMember("/screenshotDir", "5"), false},
        {"unknown keys everywhere",
         withMember("/future", R"({"x":[1,{"y":null}]})").insert(1, R"("z":true,)"), true},
        {"a top-level list", "[]", false},
        {"a top-level string", "\"request\"", false},
        {"every kind",
         withMember("/actions",
                    R"([{"kind":"launch"},{"kind":"focus"},{"kind":"click"},)"
                    R"({"kind":"doubleClick"},{"kind":"typeText"},{"kind":"keyPress"},)"
                    R"({"kind":"scroll"},{"kind":"query"},{"kind":"assert"},)"
                    R"({"kind":"screenshot"},{"kind":"frontmost"},{"kind":"healthTick"}])"),
         true},
        {"kind with a capital", withAction(R"({"kind":"Click"})"), false},
        {"empty kind", withAction(R"({"kind":""})"), false},
        {"no kind", withAction(R"({"label":"x"})"), false},
        {"null kind", withAction(R"({"kind":null})"), false},
        {"an action that is a string", withAction("\"click\""), false},
        {"click without its arguments", withAction(R"({"kind":"click"})"), true},
        {"every optional action field null",
         withAction(R"({"kind":"click","selector":null,"text":null,"keys":null,"point":null,)"
                    R"("scroll":null,"expect":null,"label":null})"),
         true},
        {"unknown keys in an action", withAction(R"({"kind":"focus","later":{"a":1}})"), true},
        {"empty keys", withAction(R"({"kind":"keyPress","keys":[]})"), true},
        {"keys with null", withAction(R"({"kind":"keyPress","keys":[null]})"), false},
        {"text a number", withAction(R"({"kind":"typeText","text":5})"), false},
        {"label a bool", withAction(R"({"kind":"focus","label":true})"), false},
        {"empty selector", withAction(R"({"kind":"query","selector":{}})"), true},
        {"null selector fields",
         withAction(R"({"kind":"query","selector":{"role":null,"title":null,"identifier":null,)"
                    R"("valueContains":null,"index":null}})"),
         true},
        {"selector a list", withAction(R"({"kind":"query","selector":[]})"), false},
        {"index 1.0", withAction(R"({"kind":"query","selector":{"index":1.0}})"), true},
        {"index 1e2", withAction(R"({"kind":"query","selector":{"index":1e2}})"), true},
        {"index -0", withAction(R"({"kind":"query","selector":{"index":-0}})"), true},
        {"index 1.5", withAction(R"({"kind":"query","selector":{"index":1.5}})"), false},
        {"index a string", withAction(R"({"kind":"query","selector":{"index":"1"}})"), false},
        {"index 2^63-1", withAction(R"({"kind":"query","selector":{"index":9223372036854775807}})"),
         true},
        {"index -2^63", withAction(R"({"kind":"query","selector":{"index":-9223372036854775808}})"),
         true},
        {"index 2^63", withAction(R"({"kind":"query","selector":{"index":9223372036854775808}})"),
         false},
        {"index -2^63-1",
         withAction(R"({"kind":"query","selector":{"index":-9223372036854775809}})"), false},
        {"index 1e19", withAction(R"({"kind":"query","selector":{"index":1e19}})"), false},
        {"point with integers", withAction(R"({"kind":"click","point":{"x":10,"y":20}})"), true},
        {"point without y", withAction(R"({"kind":"click","point":{"x":10}})"), false},
        {"point with null x", withAction(R"({"kind":"click","point":{"x":null,"y":1}})"), false},
        {"point x a string", withAction(R"({"kind":"click","point":{"x":"1","y":1}})"), false},
        {"scroll 0, -3", withAction(R"({"kind":"scroll","scroll":{"dx":0,"dy":-3}})"), true},
        {"scroll at a point",
         withAction(R"({"kind":"scroll","scroll":{"dx":0,"dy":1,"at":{"x":1.5,"y":2}}})"), true},
        {"scroll at null", withAction(R"({"kind":"scroll","scroll":{"dx":0,"dy":1,"at":null}})"),
         true},
        {"scroll dx 1.5", withAction(R"({"kind":"scroll","scroll":{"dx":1.5,"dy":0}})"), false},
        {"scroll dx 1.0", withAction(R"({"kind":"scroll","scroll":{"dx":1.0,"dy":0}})"), true},
        {"scroll without dy", withAction(R"({"kind":"scroll","scroll":{"dx":1}})"), false},
        {"scroll dy null", withAction(R"({"kind":"scroll","scroll":{"dx":1,"dy":null}})"), false},
        {"scroll at without x",
         withAction(R"({"kind":"scroll","scroll":{"dx":0,"dy":1,"at":{"y":2}}})"), false},
        {"empty expectation", withAction(R"({"kind":"assert","expect":{}})"), true},
        {"full expectation",
         withAction(R"({"kind":"assert","expect":{"exists":false,"valueEquals":"a",)"
                    R"("valueContains":"b","minCount":2.0}})"),
         true},
        {"exists a string", withAction(R"({"kind":"assert","expect":{"exists":"true"}})"), false},
        {"minCount 0.5", withAction(R"({"kind":"assert","expect":{"minCount":0.5}})"), false},
        {"1e400 under an unknown key", withMember("/future", "1e400"), false},
        {"400 digits under an unknown key", withMember("/future", std::string(400, '9')), false},
        {"1e-400 under an unknown key", withMember("/future", "1e-400"), true},
        {"a lone surrogate escape", withMember("/sessionId", "\"\\ud800\""), false},
        {"a surrogate pair", withMember("/sessionId", "\"\\ud83d\\ude00\""), true},
        {"escaped NUL", withMember("/sessionId", "\"a\\u0000b\""), true},
        {"a raw control character", withMember("/sessionId", "\"a\tb\""), false},
        {"invalid UTF-8", withMember("/sessionId", "\"a\xC3(\""), false},
        {"a byte-order mark", "\xEF\xBB\xBF" + baseRequest().dump(), true},
        {"NaN", withMember("/future", "NaN"), false},
        {"trailing text", baseRequest().dump() + " x", false},
        {"a repeated key, the first one wrong",
         withMember("/sessionId", "\"s\"").insert(1, R"("sessionId":1,)"), true},
    };
    size_t decoded = 0;
    for (const auto& c : cases) {
        int status = runAndKeep("case-" + std::to_string(&c - &cases[0]), c.input);
        EXPECT_EQ(status != 3, c.decodes) << c.name << ": exit status " << status;
        decoded += c.decodes ? 1 : 0;
    }
    auto result = validateRuns();
    EXPECT_EQ(result.exitStatus, 0) << result.out << result.err;
    EXPECT_NE(result.out.find("documents: " + std::to_string(cases.size()) + " runs kept"),
              std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find(std::to_string(decoded) + " valid"), std::string::npos) << result.out;
}

TEST_F(SchemaTest, TheSideModesDocumentsMatchTheirSchemas) {
    for (const char* mode : {"self-check", "register"}) {
        auto result = runProcess(VELMORA_AGENT_PATH, {mode}, "", kNoDesktop, 60);
        keep(mode, mode, "", result.out, result.exitStatus);
    }
    auto result = validateRuns();
    EXPECT_EQ(result.exitStatus, 0) << result.out << result.err;
    EXPECT_NE(result.out.find("1 manifest, 1 self-check"), std::string::npos) << result.out;
}

TEST_F(SchemaTest, TheGoldenReplayDocumentsAreValid) {
    std::filesystem::create_directories(scratch_ + "/runs");
    auto result =
        runProcess(kValidator, {"runs", scratch_ + "/runs", kSource + "/tests/cli/replay-fixtures"},
                   "", {}, 120);
    EXPECT_EQ(result.exitStatus, 0) << result.out << result.err;
    // Every golden request and response counts, requests in other encodings too.
    int requests = 0;
    int responses = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator(kSource + "/tests/cli/replay-fixtures")) {
        const std::string name = entry.path().filename().string();
        requests += name.find(".request.") != std::string::npos;
        responses += name.find(".response.") != std::string::npos;
    }
    EXPECT_GE(requests, 2);
    EXPECT_GE(responses, 2);
    EXPECT_NE(result.out.find("fixtures valid: " + std::to_string(requests) + " request, " +
                              std::to_string(responses) + " response"),
              std::string::npos)
        << result.out;
}

TEST_F(SchemaTest, TheCheckerFailsOnADisagreementAndNamesTheRun) {
    std::string valid = baseRequest().dump();
    std::string decodeFailure = runProcess(VELMORA_AGENT_PATH, {"run"}, "{", kNoDesktop, 60).out;
    keep("valid-but-refused", "run", valid, decodeFailure, 3);
    keep("invalid-but-decoded", "run", withAction(R"({"kind":"Click"})"),
         runProcess(VELMORA_AGENT_PATH, {"run"}, valid, kNoDesktop, 60).out, 2);
    keep("bad-response", "run", valid, R"({"ok": "yes"})", 2);
    keep("bad-manifest", "register", "", R"({"kind": "native_gui"})", 0);
    auto result = validateRuns();
    EXPECT_EQ(result.exitStatus, 1) << result.out << result.err;
    for (const char* run :
         {"valid-but-refused: the schema accepts but the agent exited 3",
          "invalid-but-decoded: the schema rejects", "bad-response: response written with exit 2",
          "bad-manifest: manifest written with exit 0", "4 problems"}) {
        EXPECT_NE(result.out.find(run), std::string::npos) << run << "\n" << result.out;
    }
}

TEST_F(SchemaTest, SingleDocumentsAreCheckedByKind) {
    writeFile(scratch_ + "/good.json", baseRequest().dump());
    writeFile(scratch_ + "/bad.json", withMember("/sessionId", ""));
    EXPECT_EQ(runProcess(kValidator, {"request", scratch_ + "/good.json"}).exitStatus, 0);
    auto bad = runProcess(kValidator, {"request", scratch_ + "/good.json", scratch_ + "/bad.json"});
    EXPECT_EQ(bad.exitStatus, 1);
    EXPECT_NE(bad.out.find("bad.json: at /: 'sessionId' is a required property"), std::string::npos)
        << bad.out;
    EXPECT_EQ(runProcess(kValidator, {"response", scratch_ + "/good.json"}).exitStatus, 1);
    EXPECT_EQ(runProcess(kValidator, {"nonsense"}).exitStatus, 64);
}

}  // namespace
}  // namespace velmora
