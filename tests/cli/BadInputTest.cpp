// Malformed and hostile requests fed to the agent executable. Whatever arrives on
// standard input, the agent answers with exactly one JSON document: either the
// "decode: ..." response with status 3, naming where the input went wrong, or,
// when the input is a valid request, a normal run. Every request here that is
// valid fails a gate (no approved apps, or a foreign protocol), so nothing needs
// a desktop. No run may crash, hang or use memory out of proportion to its input.
//
// Each case's peak resident memory is read from wait4's rusage. The child is
// started with fork() from a parent that holds no large buffer at that moment
// (inputs go through unlinked temporary files): with vfork-style spawning the
// kernel would charge the parent's own peak to the child.

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "core/model/Json.h"
#include "tests/support/KeptRun.h"

#if defined(__linux__)
#include <malloc.h>
#endif

extern char** environ;

namespace velmora {
namespace {

constexpr double kTimeoutSeconds = 60;
// What any run may use whatever its input: the executable, its libraries and the
// test process it was forked from.
constexpr double kBaseBytes = 64.0 * 1024 * 1024;
// Per input byte, for inputs made of long strings or deep nesting: the input, the
// parser's token buffers, the decoded copy and, when echoed, the rendered response.
constexpr double kBytesPerInputByte = 8;
// Per input byte, for inputs made of many tiny values: each becomes a JSON value
// node plus, for actions, a decoded action record of a few hundred bytes.
constexpr double kBytesPerDenseInputByte = 48;

constexpr const char* kTarget = "org.example.none";
constexpr const char* kDenied = "consent denied for app: org.example.none";

struct AgentRun {
    int exitStatus = -1;  // the exit code, or 128 + signal when killed by one
    bool timedOut = false;
    std::string out;
    std::string err;
    double peakBytes = 0;
};

int unlinkedTemporaryFile() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "velmora-badinput-XXXXXX").string();
    int fd = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (fd < 0) {
        throw std::runtime_error("mkostemp failed");
    }
    ::unlink(pattern.c_str());
    return fd;
}

void writeAll(int fd, const std::string& text) {
    size_t written = 0;
    while (written < text.size()) {
        ssize_t n = ::write(fd, text.data() + written, text.size() - written);
        if (n <= 0) {
            throw std::runtime_error("write to a temporary file failed");
        }
        written += static_cast<size_t>(n);
    }
}

std::string readFromStart(int fd) {
    std::string text;
    ::lseek(fd, 0, SEEK_SET);
    char buffer[1 << 16];
    ssize_t n = 0;
    while ((n = ::read(fd, buffer, sizeof buffer)) > 0) {
        text.append(buffer, static_cast<size_t>(n));
    }
    return text;
}

// Our environment with no display and no bus, so that nothing could reach a desktop.
std::vector<std::string> noDesktopEnvironment() {
    std::map<std::string, std::string> merged;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        std::string text(*entry);
        auto equals = text.find('=');
        if (equals != std::string::npos) {
            merged[text.substr(0, equals)] = text.substr(equals + 1);
        }
    }
    merged["DISPLAY"] = "";
    merged["WAYLAND_DISPLAY"] = "";
    merged["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=/nonexistent/velmora-test-bus";
    merged["AT_SPI_BUS_ADDRESS"] = "unix:path=/nonexistent/velmora-test-bus";
    std::vector<std::string> environment;
    for (const auto& [key, value] : merged) {
        environment.push_back(key + "=" + value);
    }
    return environment;
}

// Runs the agent in "run" mode on `input`, which is released before the child starts.
AgentRun runAgent(std::string&& input) {
    int inFd = unlinkedTemporaryFile();
    int outFd = unlinkedTemporaryFile();
    int errFd = unlinkedTemporaryFile();
    writeAll(inFd, input);
    ::lseek(inFd, 0, SEEK_SET);
    testing::KeptRun kept("bad-input", "run", input);
    std::string().swap(input);
#if defined(__linux__)
    // Hand freed heap back, so that the child's copy of us starts small.
    ::malloc_trim(0);
#endif

    std::vector<std::string> argvText{VELMORA_AGENT_PATH, "run"};
    std::vector<char*> argv;
    for (auto& text : argvText) {
        argv.push_back(text.data());
    }
    argv.push_back(nullptr);
    std::vector<std::string> envText = noDesktopEnvironment();
    std::vector<char*> envp;
    for (auto& text : envText) {
        envp.push_back(text.data());
    }
    envp.push_back(nullptr);

    pid_t pid = ::fork();
    if (pid == 0) {
        // Only async-signal-safe calls from here on.
        if (::dup2(inFd, 0) < 0 || ::dup2(outFd, 1) < 0 || ::dup2(errFd, 2) < 0) {
            ::_exit(126);
        }
        ::execve(argv[0], argv.data(), envp.data());
        ::_exit(127);
    }
    if (pid < 0) {
        throw std::runtime_error("fork failed");
    }

    AgentRun run;
    auto deadline = std::chrono::steady_clock::now() +
                    std::chrono::milliseconds(static_cast<int64_t>(kTimeoutSeconds * 1000));
    int status = 0;
    rusage usage{};
    auto pause = std::chrono::milliseconds(1);
    while (true) {
        pid_t done = ::wait4(pid, &status, WNOHANG, &usage);
        if (done == pid) {
            break;
        }
        if (done < 0 && errno != EINTR) {
            throw std::runtime_error("wait4 failed");
        }
        if (std::chrono::steady_clock::now() > deadline) {
            run.timedOut = true;
            ::kill(pid, SIGKILL);
            while (::wait4(pid, &status, 0, &usage) < 0 && errno == EINTR) {
            }
            break;
        }
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, std::chrono::milliseconds(20));
    }
    if (WIFEXITED(status)) {
        run.exitStatus = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        run.exitStatus = 128 + WTERMSIG(status);
    }
#if defined(__APPLE__)
    run.peakBytes = static_cast<double>(usage.ru_maxrss);  // bytes
#else
    run.peakBytes = static_cast<double>(usage.ru_maxrss) * 1024;  // KiB
#endif
    run.out = readFromStart(outFd);
    run.err = readFromStart(errFd);
    kept.finish(run.out, run.exitStatus);
    ::close(inFd);
    ::close(outFd);
    ::close(errFd);
    return run;
}

// ---------------------------------------------------------------------------
// Cases

enum class Outcome {
    undecodable,  // status 3, the decode response
    gateFailure,  // status 2, a normal run refused at a gate
};

struct Case {
    std::string name;
    std::string input;
    Outcome outcome = Outcome::undecodable;
    // For undecodable input: the start of the text after "decode: ", when it is known.
    std::string errorPrefix;
    // For valid input: the gate's error text.
    std::string gateError = kDenied;
    double bytesPerInputByte = kBytesPerInputByte;
    // Further checks on the response.
    std::function<void(const Json&)> check;
};

// "decode: " followed by the failing place: a key path such as
// actions[0].scroll.dx, or a line and column for text that is not JSON, or the
// whole document for a top level that is not an object.
const std::regex kNamedPlace(R"(decode: (invalid JSON: .*line [0-9]+, column [0-9]+.*|)"
                             R"([A-Za-z]+(\[[0-9]+\])*(\.[A-Za-z]+(\[[0-9]+\])*)*: .+|)"
                             R"(expected an object, found [a-z]+))");

struct Tally {
    size_t cases = 0;
    double worstRatio = 0;  // peak bytes above the base, per input byte
    std::string worstCase;
    double basePeak = 0;
};

// Runs one case and checks everything a broker relies on.
void runCase(Case&& c, Tally& tally) {
    SCOPED_TRACE(c.name);
    double inputBytes = static_cast<double>(c.input.size());
    AgentRun run = runAgent(std::move(c.input));
    ++tally.cases;

    ASSERT_FALSE(run.timedOut) << "hung";
    EXPECT_EQ(run.err, "") << "nothing but the unknown-mode message goes to standard error";
    double bound = kBaseBytes + c.bytesPerInputByte * inputBytes;
    EXPECT_LE(run.peakBytes, bound) << "peak RSS " << run.peakBytes / 1048576 << " MiB for "
                                    << inputBytes / 1048576 << " MiB of input";
    if (inputBytes >= 1024 * 1024) {
        double ratio = run.peakBytes / inputBytes;
        std::printf("bad-input: %s: %.1f MiB in, peak RSS %.1f MiB (%.2f x input)\n",
                    c.name.c_str(), inputBytes / 1048576, run.peakBytes / 1048576, ratio);
        // Below a few MiB the fixed base dominates and the ratio says little.
        if (inputBytes >= 4 * 1024 * 1024 && ratio > tally.worstRatio) {
            tally.worstRatio = ratio;
            tally.worstCase = c.name;
        }
    } else {
        tally.basePeak = std::max(tally.basePeak, run.peakBytes);
    }

    // Exactly one JSON document and one newline.
    ASSERT_FALSE(run.out.empty()) << "exit status " << run.exitStatus;
    ASSERT_EQ(run.out.back(), '\n');
    Json response;
    try {
        response = Json::parse(run.out);  // strict: a second document would fail
    } catch (const std::exception& error) {
        FAIL() << "output is not one JSON document: " << error.what() << "\n"
               << run.out.substr(0, 2000);
    }
    ASSERT_NO_THROW(decodeResponse(response));
    EXPECT_EQ(response["protocolVersion"], "velmora.driver_broker.v1");
    EXPECT_EQ(response["ok"], false);
    EXPECT_EQ(response["receipts"], Json::array());

    if (c.outcome == Outcome::undecodable) {
        EXPECT_EQ(run.exitStatus, 3);
        EXPECT_EQ(response["sessionId"], "unknown");
        std::string error = response.value("error", "");
        // The reason names the place; it need not repeat a hostile input back.
        ASSERT_LE(error.size(), 1024u) << error.substr(0, 300) << "...";
        EXPECT_TRUE(std::regex_match(error, kNamedPlace)) << "does not name the place: " << error;
        if (!c.errorPrefix.empty()) {
            EXPECT_EQ(error.rfind("decode: " + c.errorPrefix, 0), 0u) << error;
        }
    } else {
        EXPECT_EQ(run.exitStatus, 2);
        EXPECT_EQ(response.value("error", ""), c.gateError);
    }
    if (c.check) {
        c.check(response);
    }
}

void report(const char* group, const Tally& tally) {
    std::printf("bad-input: %zu cases (%s), each answered with one JSON document", tally.cases,
                group);
    if (tally.basePeak > 0) {
        std::printf("; small inputs peak at %.1f MiB RSS", tally.basePeak / 1048576);
    }
    if (!tally.worstCase.empty()) {
        std::printf("; largest ratio %.2f x input (%s)", tally.worstRatio, tally.worstCase.c_str());
    }
    std::printf("\n");
}

// A valid request that fails the approved-app gate, built as a JSON value so that
// cases can change any part of it.
Json refusedRequest() {
    return Json{
        {"protocolVersion", "velmora.driver_broker.v1"},
        {"sessionId", "s-1"},
        {"seatLease", "lease"},
        {"targetBundleId", kTarget},
        {"targetAppName", "None"},
        {"approvedApps", Json::array()},
        {"deniedApps", Json::array({"org.example.other"})},
        {"consent", {{"allowScreenshots", true}, {"trainingCorpus", false}}},
        {"screenshotDir", "/tmp"},
        {"actions",
         Json::array({
             {{"kind", "click"},
              {"label", "c"},
              {"selector",
               {{"role", "AXButton"},
                {"title", "OK"},
                {"identifier", "ok"},
                {"valueContains", "v"},
                {"index", 0}}},
              {"point", {{"x", 1.5}, {"y", 2}}},
              {"text", "t"},
              {"keys", Json::array({"cmd+s"})},
              {"scroll", {{"dx", 0}, {"dy", -3}, {"at", {{"x", 1}, {"y", 2}}}}},
              {"expect",
               {{"exists", true}, {"valueEquals", "a"}, {"valueContains", "b"}, {"minCount", 1}}}},
         })}};
}

std::string compact(const Json& value) {
    return value.dump();
}

// The request text with `raw` (any bytes at all) standing in for one member's value.
std::string withRawValue(const std::string& pointer, const std::string& raw) {
    Json request = refusedRequest();
    const std::string marker = "\"@@VALUE@@\"";
    request[Json::json_pointer(pointer)] = "@@VALUE@@";
    std::string text = compact(request);
    return text.replace(text.find(marker), marker.size(), raw);
}

// "actions[0].scroll.dx" for "/actions/0/scroll/dx".
std::string placeOf(const std::string& pointer) {
    std::string place;
    size_t at = 1;
    while (at <= pointer.size()) {
        size_t next = pointer.find('/', at);
        std::string part =
            pointer.substr(at, next == std::string::npos ? std::string::npos : next - at);
        if (!part.empty() && std::isdigit(static_cast<unsigned char>(part[0]))) {
            place += "[" + part + "]";
        } else {
            place += (place.empty() ? "" : ".") + part;
        }
        if (next == std::string::npos) {
            break;
        }
        at = next + 1;
    }
    return place;
}

Case decodes(std::string name, std::string input) {
    Case c;
    c.name = std::move(name);
    c.input = std::move(input);
    c.outcome = Outcome::gateFailure;
    return c;
}

Case fails(std::string name, std::string input, std::string errorPrefix = "") {
    Case c;
    c.name = std::move(name);
    c.input = std::move(input);
    c.errorPrefix = std::move(errorPrefix);
    return c;
}

// ---------------------------------------------------------------------------

TEST(BadInputTest, TheReferenceRequestRunsAndIsRefusedAtTheGate) {
    // Every case below is a change to this request; unchanged, it decodes.
    Tally tally;
    runCase(decodes("reference request", compact(refusedRequest())), tally);
    report("reference", tally);
}

TEST(BadInputTest, EmptyBlankAndNonObjectDocuments) {
    Tally tally;
    runCase(fails("empty input", "", "invalid JSON: "), tally);
    for (std::string blank :
         std::vector<std::string>{" ", "\n", "\t\r\n ", std::string(1 << 20, ' ')}) {
        runCase(fails("whitespace only, " + std::to_string(blank.size()) + " bytes", blank,
                      "invalid JSON: "),
                tally);
    }
    runCase(fails("a byte-order mark alone", "\xEF\xBB\xBF", "invalid JSON: "), tally);
    runCase(fails("a byte-order mark and blanks", "\xEF\xBB\xBF  \n", "invalid JSON: "), tally);
    // A UTF-8 byte-order mark before a valid request is skipped, as JSON readers may.
    runCase(
        decodes("a byte-order mark before a request", "\xEF\xBB\xBF" + compact(refusedRequest())),
        tally);
    runCase(fails("a UTF-16 byte-order mark", "\xFF\xFE{}", "invalid JSON: "), tally);
    runCase(fails("a NUL byte", std::string(1, '\0'), "invalid JSON: "), tally);
    for (auto [name, text] : std::vector<std::pair<std::string, std::string>>{
             {"top-level array", "[]"},
             {"top-level array of the request", "[" + compact(refusedRequest()) + "]"},
             {"top-level string", "\"run\""},
             {"top-level number", "42"},
             {"top-level true", "true"},
             {"top-level null", "null"}}) {
        runCase(fails(name, text, "expected an object, found "), tally);
    }
    runCase(fails("an empty object", "{}", "sessionId: missing required key"), tally);
    runCase(fails("two documents", compact(refusedRequest()) + compact(refusedRequest()),
                  "invalid JSON: "),
            tally);
    runCase(
        fails("a request and trailing text", compact(refusedRequest()) + " x", "invalid JSON: "),
        tally);
    runCase(decodes("a request and trailing blanks", compact(refusedRequest()) + " \n\t\r\n"),
            tally);
    runCase(fails("a trailing comma", "{\"sessionId\":\"s\",}", "invalid JSON: "), tally);
    runCase(fails("a comment", "{/* */}", "invalid JSON: "), tally);
    runCase(fails("single quotes", "{'sessionId':'s'}", "invalid JSON: "), tally);
    std::string garbage;
    uint32_t state = 12345;
    for (int i = 0; i < (1 << 20); ++i) {
        state = state * 1664525u + 1013904223u;
        garbage += static_cast<char>(state >> 24);
    }
    runCase(fails("1 MiB of random bytes", garbage, "invalid JSON: "), tally);
    report("empty, blank and non-object documents", tally);
}

TEST(BadInputTest, EveryTruncationOfARequest) {
    Tally tally;
    std::string whole = compact(refusedRequest());
    for (size_t length = 0; length < whole.size(); ++length) {
        runCase(fails("first " + std::to_string(length) + " bytes", whole.substr(0, length),
                      "invalid JSON: "),
                tally);
    }
    report("truncated documents", tally);
}

TEST(BadInputTest, DeepNesting) {
    constexpr size_t kDepth = 100000;
    const std::string open(kDepth, '['), close(kDepth, ']');
    Tally tally;
    runCase(
        decodes("100000 nested arrays under an unknown key", withRawValue("/future", open + close)),
        tally);
    std::string objects;
    for (size_t i = 0; i < kDepth; ++i) {
        objects += "{\"a\":";
    }
    objects += "1" + std::string(kDepth, '}');
    runCase(decodes("100000 nested objects under an unknown key", withRawValue("/future", objects)),
            tally);
    runCase(fails("100000 nested arrays as the actions", withRawValue("/actions", open + close),
                  "actions[0]: expected an object, found array"),
            tally);
    runCase(fails("100000 nested arrays as the selector",
                  withRawValue("/actions/0/selector", open + close),
                  "actions[0].selector: expected an object, found array"),
            tally);
    runCase(
        fails("100000 nested arrays at the top", open + close, "expected an object, found array"),
        tally);
    runCase(fails("100000 nested objects at the top", objects, "sessionId: missing required key"),
            tally);
    runCase(fails("100000 unclosed arrays", open, "invalid JSON: "), tally);
    runCase(fails("100000 unclosed arrays under a key", withRawValue("/future", open),
                  "invalid JSON: "),
            tally);
    report("deep nesting", tally);
}

TEST(BadInputTest, HugeStrings) {
    constexpr size_t kHuge = 50u * 1000 * 1000;
    Tally tally;
    runCase(decodes("a 50 MB string as the text",
                    withRawValue("/actions/0/text", "\"" + std::string(kHuge, 'x') + "\"")),
            tally);
    runCase(decodes("a 50 MB string under an unknown key",
                    withRawValue("/future", "\"" + std::string(kHuge, 'y') + "\"")),
            tally);
    runCase(
        decodes("a 50 MB key", withRawValue("/future", "{\"" + std::string(kHuge, 'k') + "\":1}")),
        tally);
    {
        Case c = decodes("a 50 MB session id, echoed",
                         withRawValue("/sessionId", "\"" + std::string(kHuge, 's') + "\""));
        c.check = [&](const Json& response) {
            EXPECT_EQ(response["sessionId"].get<std::string>().size(), kHuge);
        };
        runCase(std::move(c), tally);
    }
    runCase(fails("a 50 MB string that never ends", "{\"sessionId\":\"" + std::string(kHuge, 'z'),
                  "invalid JSON: "),
            tally);
    runCase(fails("a 50 MB string of the wrong type",
                  withRawValue("/actions/0/selector/index", "\"" + std::string(kHuge, '1') + "\""),
                  "actions[0].selector.index: expected an integer, found string"),
            tally);
    runCase(fails("a 50 MB number", withRawValue("/actions/0/point/x", std::string(kHuge, '7')),
                  "invalid JSON: number overflow"),
            tally);
    runCase(decodes("a 50 MB fraction",
                    withRawValue("/actions/0/point/x", "0." + std::string(kHuge, '0') + "1")),
            tally);
    runCase(fails("a 1 MiB action kind",
                  withRawValue("/actions/0/kind", "\"" + std::string(1 << 20, 'k') + "\""),
                  "actions[0].kind: unknown action kind of 1048576 bytes"),
            tally);
    {
        std::string id(1 << 20, 'i');
        for (size_t i = 0; i < id.size(); i += 97) {
            id[i] = '/';  // written back as "\/": the echo grows
        }
        Case c = decodes("a 1 MiB session id with slashes, echoed",
                         withRawValue("/sessionId", Json(id).dump()));
        c.check = [id](const Json& response) { EXPECT_EQ(response["sessionId"], id); };
        runCase(std::move(c), tally);
    }
    report("huge strings", tally);
}

TEST(BadInputTest, ManyTinyValues) {
    Tally tally;
    std::string actions = "[";
    for (int i = 0; i < 500000; ++i) {
        actions += i == 0 ? "{\"kind\":\"healthTick\"}" : ",{\"kind\":\"healthTick\"}";
    }
    actions += "]";
    Case many = decodes("500000 actions", withRawValue("/actions", actions));
    many.bytesPerInputByte = kBytesPerDenseInputByte;
    runCase(std::move(many), tally);

    std::string empties = "[";
    for (int i = 0; i < 3000000; ++i) {
        empties += i == 0 ? "{}" : ",{}";
    }
    empties += "]";
    Case objects =
        decodes("3000000 empty objects under an unknown key", withRawValue("/future", empties));
    objects.bytesPerInputByte = kBytesPerDenseInputByte;
    runCase(std::move(objects), tally);

    std::string keys = "{";
    for (int i = 0; i < 500000; ++i) {
        keys += (i == 0 ? "\"" : ",\"") + std::to_string(i) + "\":0";
    }
    keys += "}";
    Case members = decodes("500000 members in one object", withRawValue("/future", keys));
    members.bytesPerInputByte = kBytesPerDenseInputByte;
    runCase(std::move(members), tally);
    report("many tiny values", tally);
}

TEST(BadInputTest, InvalidUtf8AndEscapes) {
    Tally tally;
    for (auto [name, bytes] : std::vector<std::pair<std::string, std::string>>{
             {"a lone continuation byte", "\x80"},
             {"a 0xFF byte", "\xFF"},
             {"an overlong slash", "\xC0\xAF"},
             {"an overlong NUL", "\xC0\x80"},
             {"an encoded surrogate", "\xED\xA0\x80"},
             {"a code point above U+10FFFF", "\xF4\x90\x80\x80"},
             {"a sequence cut short", "\xE2\x82"},
             {"a lead byte at the end", "\xF0"}}) {
        runCase(fails(name + " in the session id", withRawValue("/sessionId", "\"a" + bytes + "\""),
                      "invalid JSON: "),
                tally);
        runCase(fails(name + " in a key", withRawValue("/future", "{\"k" + bytes + "\":1}"),
                      "invalid JSON: "),
                tally);
        runCase(fails(name + " outside strings", withRawValue("/future", bytes), "invalid JSON: "),
                tally);
    }
    for (std::string escape : {"\\ud800", "\\udc00", "\\ud800\\u0041", "\\uDBFF\\uDBFF", "\\u12",
                               "\\x41", "\\U0041", "\\"}) {
        runCase(fails("the escape " + escape, withRawValue("/sessionId", "\"" + escape + "\""),
                      "invalid JSON: "),
                tally);
    }
    for (int byte = 0; byte < 0x20; ++byte) {
        runCase(fails("raw control character " + std::to_string(byte) + " in a string",
                      withRawValue("/sessionId", "\"a" + std::string(1, char(byte)) + "b\""),
                      "invalid JSON: "),
                tally);
    }
    // Escaped, every control character is a valid string and comes back escaped.
    std::string controls;
    std::string escaped;
    for (int byte = 0; byte < 0x20; ++byte) {
        controls += static_cast<char>(byte);
        char buffer[8];
        std::snprintf(buffer, sizeof buffer, "\\u%04x", byte);
        escaped += buffer;
    }
    {
        Case c = decodes("escaped control characters and NUL in the session id",
                         withRawValue("/sessionId", "\"" + escaped + "\\u007f\\ud83d\\ude00\""));
        c.check = [controls](const Json& response) {
            EXPECT_EQ(response["sessionId"], controls + "\x7f\xF0\x9F\x98\x80");
        };
        runCase(std::move(c), tally);
    }
    {
        Case c = decodes("NUL in the target", withRawValue("/targetBundleId", "\"a\\u0000b\""));
        c.gateError = std::string("consent denied for app: a") + '\0' + "b";
        runCase(std::move(c), tally);
    }
    runCase(fails("NUL in an action kind", withRawValue("/actions/0/kind", "\"click\\u0000\""),
                  "actions[0].kind: unknown action kind"),
            tally);
    runCase(fails("invalid UTF-8 in an action kind",
                  withRawValue("/actions/0/kind", "\"cl\xFFick\""), "invalid JSON: "),
            tally);
    report("invalid UTF-8, escapes and control characters", tally);
}

TEST(BadInputTest, DuplicateKeys) {
    Tally tally;
    std::string request = compact(refusedRequest());
    {
        // A repeated key keeps its last value.
        std::string twice = request;
        twice.insert(1, "\"sessionId\":\"first\",");
        Case c = decodes("a repeated session id", twice);
        c.check = [](const Json& response) { EXPECT_EQ(response["sessionId"], "s-1"); };
        runCase(std::move(c), tally);
    }
    {
        std::string twice = request;
        twice.insert(twice.size() - 1, ",\"sessionId\":\"last\"");
        Case c = decodes("a repeated session id, last one later", twice);
        c.check = [](const Json& response) { EXPECT_EQ(response["sessionId"], "last"); };
        runCase(std::move(c), tally);
    }
    {
        std::string twice = request;
        twice.insert(twice.size() - 1, ",\"actions\":\"none\"");
        runCase(fails("a repeated action list whose last value is wrong", twice,
                      "actions: expected an array, found string"),
                tally);
    }
    {
        std::string twice = request;
        twice.insert(twice.size() - 1, ",\"protocolVersion\":\"velmora.driver_broker.v0\"");
        Case c = decodes("a repeated protocol version", twice);
        c.gateError = "unsupported protocol: velmora.driver_broker.v0";
        runCase(std::move(c), tally);
    }
    report("duplicate keys", tally);
}

TEST(BadInputTest, Numbers) {
    Tally tally;
    const std::vector<std::string> integers{"/actions/0/selector/index", "/actions/0/scroll/dx",
                                            "/actions/0/scroll/dy", "/actions/0/expect/minCount"};
    const std::vector<std::string> doubles{"/actions/0/point/x", "/actions/0/point/y",
                                           "/actions/0/scroll/at/x", "/actions/0/scroll/at/y"};
    for (const auto& pointer : integers) {
        std::string place = placeOf(pointer);
        for (std::string number : std::vector<std::string>{
                 "1e400", "-1e400", "9223372036854775808", "-9223372036854775809",
                 "18446744073709551616", "1.5", "-0.5", "1e-7", "1e19", std::string(400, '9')}) {
            runCase(fails(number.substr(0, 24) + " in " + place, withRawValue(pointer, number),
                          number.find("e400") != std::string::npos || number.size() > 300
                              ? "invalid JSON: "
                              : place + ": "),
                    tally);
        }
        for (std::string number :
             {"-0", "0", "-0.0", "1.0", "1e2", "9223372036854775807", "-9223372036854775808"}) {
            runCase(decodes(number + " in " + place, withRawValue(pointer, number)), tally);
        }
    }
    for (const auto& pointer : doubles) {
        std::string place = placeOf(pointer);
        for (std::string number :
             std::vector<std::string>{"1e400", "-1e400", "1" + std::string(400, '0'), "1e99999"}) {
            runCase(fails(number.substr(0, 24) + " in " + place, withRawValue(pointer, number),
                          "invalid JSON: number overflow"),
                    tally);
        }
        for (std::string number : {"-0", "-0.0", "1e-400", "1.7976931348623157e308",
                                   "9223372036854775808", "4.9e-324", "0.1"}) {
            runCase(decodes(number + " in " + place, withRawValue(pointer, number)), tally);
        }
    }
    runCase(fails("1e400 under an unknown key", withRawValue("/future", "1e400"),
                  "invalid JSON: number overflow"),
            tally);
    for (std::string malformed :
         {"01", "1.", ".5", "+1", "-", "1e", "0x10", "NaN", "Infinity", "-Infinity", "1_000"}) {
        runCase(fails(malformed + " as a number", withRawValue("/actions/0/point/x", malformed),
                      "invalid JSON: "),
                tally);
    }
    report("numbers", tally);
}

TEST(BadInputTest, NullInEveryRequiredField) {
    Tally tally;
    for (std::string pointer :
         {"/sessionId", "/seatLease", "/targetBundleId", "/actions", "/actions/0/kind",
          "/actions/0/point/x", "/actions/0/point/y", "/actions/0/scroll/dx",
          "/actions/0/scroll/dy", "/actions/0/scroll/at/x", "/actions/0/scroll/at/y",
          "/approvedApps/0"}) {
        Json request = refusedRequest();
        if (pointer == "/approvedApps/0") {
            request["approvedApps"] = Json::array({"x"});
        }
        request[Json::json_pointer(pointer)] = nullptr;
        runCase(fails("null in " + placeOf(pointer), compact(request),
                      placeOf(pointer) + ": expected "),
                tally);
        // And absent, for the members of records.
        if (pointer.find("/0") == std::string::npos || pointer.rfind("/actions/0/", 0) == 0) {
            Json without = refusedRequest();
            auto parent = Json::json_pointer(pointer).parent_pointer();
            without[parent].erase(Json::json_pointer(pointer).back());
            runCase(fails("no " + placeOf(pointer), compact(without),
                          placeOf(pointer) + ": missing required key"),
                    tally);
        }
    }
    // null in an optional field means none: still a valid request.
    for (std::string pointer :
         {"/protocolVersion", "/targetAppName", "/approvedApps", "/deniedApps", "/consent",
          "/screenshotDir", "/actions/0/selector", "/actions/0/text", "/actions/0/keys",
          "/actions/0/point", "/actions/0/scroll", "/actions/0/expect", "/actions/0/label",
          "/actions/0/selector/index", "/actions/0/scroll/at", "/actions/0/expect/exists",
          "/consent/allowScreenshots"}) {
        Json request = refusedRequest();
        request[Json::json_pointer(pointer)] = nullptr;
        Case c = decodes("null in optional " + placeOf(pointer), compact(request));
        if (pointer == "/approvedApps") {
            // None approves the target itself, so the protocol gate must refuse it.
            request["protocolVersion"] = "velmora.driver_broker.v0";
            c.input = compact(request);
            c.gateError = "unsupported protocol: velmora.driver_broker.v0";
        }
        runCase(std::move(c), tally);
    }
    report("null and missing in required fields", tally);
}

TEST(BadInputTest, WrongTypesInEveryField) {
    enum class Type { string, integer, number, boolean, stringList, actionList, object };
    const std::vector<std::pair<std::string, Type>> fields{
        {"/protocolVersion", Type::string},
        {"/sessionId", Type::string},
        {"/seatLease", Type::string},
        {"/targetBundleId", Type::string},
        {"/targetAppName", Type::string},
        {"/approvedApps", Type::stringList},
        {"/approvedApps/0", Type::string},
        {"/deniedApps", Type::stringList},
        {"/deniedApps/0", Type::string},
        {"/actions", Type::actionList},
        {"/actions/0", Type::object},
        {"/consent", Type::object},
        {"/consent/allowScreenshots", Type::boolean},
        {"/consent/trainingCorpus", Type::boolean},
        {"/screenshotDir", Type::string},
        {"/actions/0/kind", Type::string},
        {"/actions/0/selector", Type::object},
        {"/actions/0/selector/role", Type::string},
        {"/actions/0/selector/title", Type::string},
        {"/actions/0/selector/identifier", Type::string},
        {"/actions/0/selector/valueContains", Type::string},
        {"/actions/0/selector/index", Type::integer},
        {"/actions/0/text", Type::string},
        {"/actions/0/keys", Type::stringList},
        {"/actions/0/keys/0", Type::string},
        {"/actions/0/point", Type::object},
        {"/actions/0/point/x", Type::number},
        {"/actions/0/point/y", Type::number},
        {"/actions/0/scroll", Type::object},
        {"/actions/0/scroll/dx", Type::integer},
        {"/actions/0/scroll/dy", Type::integer},
        {"/actions/0/scroll/at", Type::object},
        {"/actions/0/scroll/at/x", Type::number},
        {"/actions/0/scroll/at/y", Type::number},
        {"/actions/0/expect", Type::object},
        {"/actions/0/expect/exists", Type::boolean},
        {"/actions/0/expect/valueEquals", Type::string},
        {"/actions/0/expect/valueContains", Type::string},
        {"/actions/0/expect/minCount", Type::integer},
        {"/actions/0/label", Type::string},
    };
    const std::vector<std::pair<Type, Json>> samples{
        {Type::string, "1"},
        {Type::integer, 7},
        {Type::number, 2.5},
        {Type::boolean, true},
        {Type::stringList, Json::array({"a"})},
        {Type::object, Json::object()},
    };
    Tally tally;
    for (const auto& [pointer, type] : fields) {
        for (const auto& [sampleType, sample] : samples) {
            bool fits = sampleType == type ||
                        (type == Type::number && sampleType == Type::integer) ||
                        (type == Type::actionList && sampleType == Type::stringList);
            if (fits) {
                continue;
            }
            Json request = refusedRequest();
            request["approvedApps"] = Json::array({"org.example.other"});
            request[Json::json_pointer(pointer)] = sample;
            std::string place = placeOf(pointer);
            runCase(fails(sample.dump() + " in " + place, compact(request), place + ": "), tally);
        }
    }
    // Lists of the wrong element type.
    runCase(fails("a list of strings as the actions", withRawValue("/actions", "[\"click\"]"),
                  "actions[0]: expected an object"),
            tally);
    runCase(fails("a list of lists as the keys", withRawValue("/actions/0/keys", "[[\"a\"]]"),
                  "actions[0].keys[0]: expected a string"),
            tally);
    report("wrong types in every field", tally);
}

TEST(BadInputTest, UnknownActionKindsInEveryLetterCase) {
    const std::vector<std::string> kinds{"launch",   "focus",      "click",     "doubleClick",
                                         "typeText", "keyPress",   "scroll",    "query",
                                         "assert",   "screenshot", "frontmost", "healthTick"};
    Tally tally;
    for (const auto& kind : kinds) {
        Json request = refusedRequest();
        request["actions"] = Json::array({{{"kind", kind}}});
        runCase(decodes("the kind " + kind, compact(request)), tally);

        std::vector<std::string> variants;
        for (size_t i = 0; i < kind.size(); ++i) {
            std::string flipped = kind;
            char c = flipped[i];
            flipped[i] = std::isupper(static_cast<unsigned char>(c))
                             ? static_cast<char>(std::tolower(static_cast<unsigned char>(c)))
                             : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
            variants.push_back(flipped);
        }
        std::string upper, lower;
        for (char c : kind) {
            upper += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
            lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
        variants.push_back(upper);
        if (lower != kind) {
            variants.push_back(lower);
        }
        variants.push_back(" " + kind);
        variants.push_back(kind + "\n");
        for (const auto& variant : variants) {
            request["actions"] = Json::array({{{"kind", variant}}});
            runCase(fails("the kind " + Json(variant).dump(), compact(request),
                          "actions[0].kind: unknown action kind \""),
                    tally);
        }
    }
    for (std::string other : {"", "assert_", "Assert", "unknown", "0", "click,focus"}) {
        Json request = refusedRequest();
        request["actions"] = Json::array({{{"kind", "focus"}}, {{"kind", other}}});
        runCase(fails("the kind " + Json(other).dump() + " second", compact(request),
                      "actions[1].kind: unknown action kind \""),
                tally);
    }
    report("unknown action kinds", tally);
}

TEST(BadInputTest, ALongSessionIdIsEchoedWhole) {
    Tally tally;
    std::string id;
    while (id.size() < (1u << 20)) {
        id += "session/é\"\\\n\t\u00e9";
    }
    Case c = decodes("a 1 MiB session id", withRawValue("/sessionId", Json(id).dump()));
    c.check = [id](const Json& response) { EXPECT_EQ(response["sessionId"], id); };
    runCase(std::move(c), tally);
    report("long session id", tally);
}

// Undecodable input whose reason once carried no place, or repeated the input back.
TEST(BadInputTest, ANumberTooLargeForADoubleIsNamedByLineAndColumn) {
    AgentRun run = runAgent("{\"sessionId\":\"s\",\n  \"future\": 1e400}");
    EXPECT_EQ(run.exitStatus, 3);
    Json response = Json::parse(run.out);
    EXPECT_EQ(response["error"],
              "decode: invalid JSON: number overflow parsing '1e400' at line 2, column 17");
}

TEST(BadInputTest, AnEndlessStringIsQuotedOnlyByItsEnd) {
    AgentRun run = runAgent("{\"sessionId\":\"" + std::string(1 << 20, 'z'));
    EXPECT_EQ(run.exitStatus, 3);
    EXPECT_LT(run.out.size(), 1024u);
    Json response = Json::parse(run.out);
    EXPECT_EQ(response["error"],
              "decode: invalid JSON: parse error at line 1, column 1048591: syntax error while "
              "parsing value - invalid string: missing closing quote; last read: '..." +
                  std::string(48, 'z') + "'");
}

TEST(BadInputTest, AnIntegerJustBelowTheRangeIsNotTakenAsTheSmallest) {
    AgentRun run = runAgent(withRawValue("/actions/0/selector/index", "-9223372036854775809"));
    EXPECT_EQ(run.exitStatus, 3);
    Json response = Json::parse(run.out);
    EXPECT_EQ(
        response["error"].get<std::string>().rfind("decode: actions[0].selector.index: number ", 0),
        0u);
}

// ---------------------------------------------------------------------------
// The other encodings JSON allows: UTF-16 and UTF-32, big- or little-endian, with
// or without a byte-order mark, told apart by the zeros among the first bytes.

enum class Width { utf16, utf32 };

struct Encoding {
    std::string name;
    Width width;
    bool bigEndian;
    bool mark;
};

const std::vector<Encoding> kEncodings = {
    {"UTF-16BE", Width::utf16, true, false},
    {"UTF-16LE", Width::utf16, false, false},
    {"UTF-32BE", Width::utf32, true, false},
    {"UTF-32LE", Width::utf32, false, false},
    {"UTF-16BE with a byte-order mark", Width::utf16, true, true},
    {"UTF-16LE with a byte-order mark", Width::utf16, false, true},
    {"UTF-32BE with a byte-order mark", Width::utf32, true, true},
    {"UTF-32LE with a byte-order mark", Width::utf32, false, true},
};

// The code points of well-formed UTF-8.
std::u32string codePoints(const std::string& utf8) {
    std::u32string out;
    for (size_t at = 0; at < utf8.size();) {
        const auto lead = static_cast<unsigned char>(utf8[at]);
        const size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        char32_t value = length == 1 ? lead : lead & (0x7F >> length);
        for (size_t i = 1; i < length; ++i) {
            value = (value << 6) | (static_cast<unsigned char>(utf8[at + i]) & 0x3F);
        }
        out += value;
        at += length;
    }
    return out;
}

void appendUnit(std::string& out, uint32_t unit, const Encoding& encoding) {
    const int bytes = encoding.width == Width::utf16 ? 2 : 4;
    for (int i = 0; i < bytes; ++i) {
        const int shift = 8 * (encoding.bigEndian ? bytes - 1 - i : i);
        out += static_cast<char>((unit >> shift) & 0xFF);
    }
}

// The code units of one code point (or of a lone surrogate, passed as it is).
void appendCodePoint(std::string& out, char32_t c, const Encoding& encoding) {
    if (encoding.width == Width::utf16 && c >= 0x10000) {
        appendUnit(out, 0xD800 + ((c - 0x10000) >> 10), encoding);
        appendUnit(out, 0xDC00 + ((c - 0x10000) & 0x3FF), encoding);
    } else {
        appendUnit(out, c, encoding);
    }
}

std::string encoded(const std::string& utf8, const Encoding& encoding) {
    std::string out;
    if (encoding.mark) {
        appendCodePoint(out, 0xFEFF, encoding);
    }
    for (char32_t c : codePoints(utf8)) {
        appendCodePoint(out, c, encoding);
    }
    return out;
}

TEST(BadInputTest, EveryEncodingJsonAllowsDecodes) {
    Tally tally;
    Json request = refusedRequest();
    request["sessionId"] = "s-\u00E9\u4E2D\U0001F600";
    request["targetAppName"] = "Caf\u00E9 \u2603";
    for (const Encoding& encoding : kEncodings) {
        Case c = decodes("the request in " + encoding.name, encoded(compact(request), encoding));
        c.check = [](const Json& response) {
            EXPECT_EQ(response["sessionId"], "s-\u00E9\u4E2D\U0001F600");
        };
        runCase(std::move(c), tally);
        // Pretty-printed, so that the zeros stand among blanks and newlines.
        runCase(
            decodes("the indented request in " + encoding.name, encoded(request.dump(4), encoding)),
            tally);
    }
    report("UTF-16 and UTF-32 requests", tally);
}

TEST(BadInputTest, EveryTruncationOfAUtf16AndAUtf32Request) {
    Tally tally;
    const Json small = {{"sessionId", "s-\u00E9\U0001F600"},
                        {"seatLease", "l"},
                        {"targetBundleId", "t"},
                        {"approvedApps", Json::array()},
                        {"actions", Json::array()}};
    for (const Encoding& encoding : {kEncodings[5], kEncodings[2]}) {
        const std::string whole = encoded(compact(small), encoding);
        Case complete = decodes("the whole request in " + encoding.name, whole);
        complete.gateError = "consent denied for app: t";
        runCase(std::move(complete), tally);
        for (size_t length = 0; length < whole.size(); ++length) {
            runCase(fails("first " + std::to_string(length) + " bytes in " + encoding.name,
                          whole.substr(0, length), "invalid JSON: "),
                    tally);
        }
    }
    report("truncated UTF-16 and UTF-32 documents", tally);
}

TEST(BadInputTest, MalformedUtf16AndUtf32) {
    Tally tally;
    const std::string request = compact(refusedRequest());
    for (const Encoding& encoding : kEncodings) {
        const bool utf16 = encoding.width == Width::utf16;
        const std::string whole = encoded(request, encoding);
        for (std::string extra : {"\x20", "\x20\x20", "\x20\x20\x20"}) {
            if (utf16 && extra.size() == 2) {
                continue;  // a whole code unit (a blank or U+2020, not an error)
            }
            runCase(fails(encoding.name + " and " + std::to_string(extra.size()) + " more bytes",
                          whole + extra,
                          "invalid JSON: " + encoding.name.substr(0, 8) + " text ends inside a " +
                              (utf16 ? "2" : "4") + "-byte code unit at line 1, column "),
                    tally);
        }
        // A session id "a<unit>b" whose middle unit is not a character.
        auto withUnit = [&](uint32_t unit) {
            const std::string marker = "@@UNIT@@";
            std::string text = encoded(withRawValue("/sessionId", "\"a" + marker + "\""), encoding);
            const std::string encodedMarker =
                encoded(marker, Encoding{"", encoding.width, encoding.bigEndian, false});
            std::string unitBytes;
            appendUnit(unitBytes, unit, encoding);
            return text.replace(text.find(encodedMarker), encodedMarker.size(), unitBytes);
        };
        if (utf16) {
            runCase(fails("a lone low surrogate in " + encoding.name, withUnit(0xDC00),
                          "invalid JSON: " + encoding.name.substr(0, 8) +
                              " text has an unpaired low surrogate at line 1, column "),
                    tally);
            runCase(fails("a lone high surrogate in " + encoding.name, withUnit(0xD83D),
                          "invalid JSON: " + encoding.name.substr(0, 8) +
                              " text has an unpaired high surrogate at line 1, column "),
                    tally);
            runCase(fails(
                        "a high surrogate as the last unit in " + encoding.name,
                        [&] {
                            std::string text = encoded("[\"", encoding);
                            appendUnit(text, 0xD83D, encoding);
                            return text;
                        }(),
                        "invalid JSON: " + encoding.name.substr(0, 8) +
                            " text has an unpaired high surrogate at line 1, column 3"),
                    tally);
        } else {
            runCase(fails("a surrogate code point in " + encoding.name, withUnit(0xD800),
                          "invalid JSON: " + encoding.name.substr(0, 8) +
                              " text has a surrogate code point at line 1, column "),
                    tally);
            for (uint32_t beyond : {0x110000u, 0xFFFFFFFFu}) {
                runCase(fails("the value " + std::to_string(beyond) + " in " + encoding.name,
                              withUnit(beyond),
                              "invalid JSON: " + encoding.name.substr(0, 8) +
                                  " text has a value beyond U+10FFFF at line 1, column "),
                        tally);
            }
        }
        // Syntax errors in converted text are named by the converted line and column.
        runCase(fails("a syntax error on line 3 in " + encoding.name,
                      encoded("{\n  \"sessionId\": \"\u00E9\",\n  \"seatLease\": x}", encoding),
                      "invalid JSON: parse error at line 3, column 16: syntax error "),
                tally);
    }
    report("malformed UTF-16 and UTF-32", tally);
}

TEST(BadInputTest, AHugeUtf16RequestStaysInProportion) {
    Tally tally;
    Json request = refusedRequest();
    request["sessionId"] = std::string(8 << 20, 'x');
    Case c = decodes("an 8 Mi-character session id in UTF-16LE",
                     encoded(compact(request), kEncodings[1]));
    c.check = [](const Json& response) {
        EXPECT_EQ(response["sessionId"].get_ref<const std::string&>().size(), 8u << 20);
    };
    runCase(std::move(c), tally);
    report("huge UTF-16 request", tally);
}

}  // namespace
}  // namespace velmora
