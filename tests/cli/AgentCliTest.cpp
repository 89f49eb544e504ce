// The agent executable as a broker sees it: modes, standard streams and exit
// statuses. None of these runs touches a desktop: the environment points the
// agent at no display and no bus.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "core/model/Json.h"
#include "tests/support/KeptRun.h"
#include "tests/support/Subprocess.h"

namespace velmora {
namespace {

using testing::ProcessResult;
using testing::runProcess;

const std::map<std::string, std::string> kNoDesktop = {
    {"DISPLAY", ""},
    {"WAYLAND_DISPLAY", ""},
    {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/velmora-test-bus"},
    {"AT_SPI_BUS_ADDRESS", "unix:path=/nonexistent/velmora-test-bus"},
};

ProcessResult agent(const std::vector<std::string>& arguments, const std::string& input = "") {
    testing::KeptRun kept(
        "cli", testing::KeptRun::modeOf(arguments.empty() ? nullptr : &arguments[0]), input);
    auto result = runProcess(VELMORA_AGENT_PATH, arguments, input, kNoDesktop, 60);
    kept.finish(result.out, result.exitStatus);
    return result;
}

// Exactly one JSON document followed by one newline.
Json singleDocument(const std::string& out) {
    EXPECT_FALSE(out.empty());
    EXPECT_EQ(out.back(), '\n');
    EXPECT_EQ(out.find("}\n"), out.size() - 2) << "more than one document: " << out;
    return Json::parse(out);
}

const char* kGateFailure =
    R"({"protocolVersion":"velmora.driver_broker.v0","sessionId":"s-7","seatLease":"L",)"
    R"("targetBundleId":"org.example.none","actions":[{"kind":"healthTick"}]})";

TEST(AgentCliTest, VersionPrintsTheProtocolIdentifier) {
    for (const char* argument : {"version", "--version", "ver--sion"}) {
        auto result = agent({argument});
        EXPECT_EQ(result.exitStatus, 0) << argument;
        EXPECT_EQ(result.out, "velmora.driver_broker.v1\n");
        EXPECT_EQ(result.err, "");
    }
}

TEST(AgentCliTest, UnknownModesGoToStandardErrorWith64) {
    auto capital = agent({"Version"});
    EXPECT_EQ(capital.exitStatus, 64);
    EXPECT_EQ(capital.out, "");
    EXPECT_EQ(capital.err, "unknown mode: Version\n");

    auto empty = agent({"--"});
    EXPECT_EQ(empty.exitStatus, 64);
    EXPECT_EQ(empty.out, "");
    EXPECT_EQ(empty.err, "unknown mode: \n");
}

TEST(AgentCliTest, EmptyInputIsADecodeFailureWith3) {
    auto result = agent({"run"}, "");
    EXPECT_EQ(result.exitStatus, 3);
    EXPECT_EQ(result.err, "");
    Json response = singleDocument(result.out);
    EXPECT_EQ(response["sessionId"], "unknown");
    EXPECT_EQ(response["ok"], false);
    EXPECT_EQ(response["receipts"], Json::array());
    EXPECT_EQ(response["protocolVersion"], "velmora.driver_broker.v1");
    EXPECT_EQ(response["error"].get<std::string>().rfind("decode: ", 0), 0u);
}

TEST(AgentCliTest, NoArgumentBehavesLikeRun) {
    auto bare = agent({}, kGateFailure);
    auto run = agent({"run"}, kGateFailure);
    auto hyphens = agent({"--run"}, kGateFailure);
    EXPECT_EQ(bare.exitStatus, 2);
    EXPECT_EQ(bare.out, run.out);
    EXPECT_EQ(bare.out, hyphens.out);
    EXPECT_EQ(run.exitStatus, 2);
    EXPECT_EQ(hyphens.exitStatus, 2);
}

TEST(AgentCliTest, UnknownKindExits3WithoutReceipts) {
    auto result = agent({}, R"({"sessionId":"s","seatLease":"L","targetBundleId":"t",)"
                            R"("actions":[{"kind":"healthTick"},{"kind":"Click"}]})");
    EXPECT_EQ(result.exitStatus, 3);
    Json response = singleDocument(result.out);
    EXPECT_EQ(response["error"], R"(decode: actions[1].kind: unknown action kind "Click")");
    EXPECT_EQ(response["sessionId"], "unknown");
    EXPECT_EQ(response["receipts"], Json::array());
}

TEST(AgentCliTest, GateFailureIsWrittenNormallyAndExits2) {
    auto result = agent({}, kGateFailure);
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.err, "");
    Json response = singleDocument(result.out);
    EXPECT_EQ(response["sessionId"], "s-7");
    EXPECT_EQ(response["ok"], false);
    EXPECT_EQ(response["error"], "unsupported protocol: velmora.driver_broker.v0");
    EXPECT_EQ(response["receipts"], Json::array());
}

TEST(AgentCliTest, ResponseKeysAreSortedAndPrettyPrinted) {
    auto result = agent({}, kGateFailure);
    EXPECT_EQ(result.out,
              "{\n"
              "  \"error\": \"unsupported protocol: velmora.driver_broker.v0\",\n"
              "  \"ok\": false,\n"
              "  \"protocolVersion\": \"velmora.driver_broker.v1\",\n"
              "  \"receipts\": [],\n"
              "  \"sessionId\": \"s-7\"\n"
              "}\n");
}

TEST(AgentCliTest, MissingLeaseAndDeniedAppAreGateFailures) {
    auto lease =
        agent({}, R"({"sessionId":"s","seatLease":" \t","targetBundleId":"t","actions":[]})");
    EXPECT_EQ(lease.exitStatus, 2);
    EXPECT_EQ(singleDocument(lease.out)["error"], "missing GUI-seat lease (RequiresLease)");
    auto denied = agent({}, R"({"sessionId":"s","seatLease":"L","targetBundleId":"t",)"
                            R"("approvedApps":[],"actions":[]})");
    EXPECT_EQ(denied.exitStatus, 2);
    EXPECT_EQ(singleDocument(denied.out)["error"], "consent denied for app: t");
}

TEST(AgentCliTest, RegisterPrintsTheManifest) {
    auto result = agent({"register"});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.err, "");
    auto manifest = decodeManifest(singleDocument(result.out));
    EXPECT_EQ(manifest, DriverInstanceManifest::makeDefault("org.velmora.agent"));
    EXPECT_NE(result.out.find("\"endpoint\": \"loopback:\\/\\/"), std::string::npos);
}

TEST(AgentCliTest, SelfCheckWithoutAccessibilityIsUnhealthyAndStillExits0) {
    auto result = agent({"self-check"});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.err, "");
    auto check = decodeSelfCheck(singleDocument(result.out));
    EXPECT_EQ(check.protocolVersion, "velmora.driver_broker.v1");
    EXPECT_FALSE(check.accessibilityTrusted);
    EXPECT_FALSE(check.healthy);
}

TEST(AgentCliTest, FurtherArgumentsAreIgnored) {
    auto result = agent({"version", "extra", "--self-check"});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.out, "velmora.driver_broker.v1\n");
}

#ifdef __linux__
// The libraries the agent's executable names, as the dynamic loader loads them
// at every start.
std::vector<std::string> neededLibraries() {
    const std::string command = std::string("readelf -d '") + VELMORA_AGENT_PATH + "'";
    FILE* pipe = popen(command.c_str(), "r");
    EXPECT_NE(pipe, nullptr);
    std::vector<std::string> libraries;
    char line[512];
    while (pipe != nullptr && std::fgets(line, sizeof line, pipe) != nullptr) {
        const std::string text(line);
        const size_t open = text.find("Shared library: [");
        const size_t close = text.rfind(']');
        if (text.find("(NEEDED)") != std::string::npos && open != std::string::npos &&
            close != std::string::npos && close > open) {
            const size_t start = open + std::string("Shared library: [").size();
            libraries.push_back(text.substr(start, close - start));
        }
    }
    if (pipe != nullptr) {
        EXPECT_EQ(pclose(pipe), 0);
    }
    return libraries;
}

TEST(AgentCliTest, StartsWithoutTheLibrariesOnlySomeActionsUse) {
    // Every request starts the agent anew, and each library loaded at the start
    // costs every request. Launching (GIO, GObject), the one-call reader
    // (libatspi), screenshots (libpng, RandR) and input (XTest) open theirs
    // when they first need them.
    const auto libraries = neededLibraries();
    auto named = [&](const std::string& prefix) {
        return std::any_of(libraries.begin(), libraries.end(),
                           [&](const std::string& library) { return library.starts_with(prefix); });
    };
    EXPECT_TRUE(named("libdbus-1.so")) << "readelf listed no libraries";
    EXPECT_TRUE(named("libX11.so"));
    for (const char* deferred : {"libatspi.so", "libgio-2.0.so", "libgobject-2.0.so", "libpng16.so",
                                 "libXtst.so", "libXrandr.so"}) {
        EXPECT_FALSE(named(deferred)) << deferred;
    }
}
#endif

}  // namespace
}  // namespace velmora
