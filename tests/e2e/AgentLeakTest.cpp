// The agent under Valgrind on a real desktop: a request of N actions and one of
// 3N actions against the fixture application, every action kind but launch
// among them. Memory that is lost (definitely or indirectly) at exit must not
// grow with the number of actions. What GLib, AT-SPI and X11 keep for the
// process's lifetime is "still reachable" and is not counted.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "core/model/Json.h"
#include "tests/support/Subprocess.h"

extern char** environ;

namespace velmora {
namespace {

namespace fs = std::filesystem;

constexpr const char* kFixture = "velmora-fixture-tree";
// Small, so that every structural state is quick to read under Valgrind.
constexpr int kFixtureElements = 60;
constexpr double kValgrindTimeoutSeconds = 900;

std::optional<std::string> onPath(const std::string& program) {
    const char* path = std::getenv("PATH");
    std::stringstream directories(path != nullptr ? path : "");
    std::string directory;
    while (std::getline(directories, directory, ':')) {
        fs::path candidate = fs::path(directory) / program;
        if (!directory.empty() && ::access(candidate.c_str(), X_OK) == 0) {
            return candidate.string();
        }
    }
    return std::nullopt;
}

// The fixture application, started by us and ended by its process id.
class Fixture {
  public:
    Fixture() {
        int out[2];
        if (::pipe2(out, O_CLOEXEC) != 0) {
            return;
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        std::string elements = std::to_string(kFixtureElements);
        std::vector<char*> argv{const_cast<char*>(VELMORA_FIXTURE_TREE_PATH),
                                const_cast<char*>("--elements"), elements.data(), nullptr};
        if (posix_spawn(&processId_, VELMORA_FIXTURE_TREE_PATH, &actions, nullptr, argv.data(),
                        environ) != 0) {
            processId_ = 0;
        }
        posix_spawn_file_actions_destroy(&actions);
        ::close(out[1]);
        // It prints "ready N" once its accessibility tree is complete.
        std::string said;
        char buffer[256];
        ssize_t n = 0;
        while (processId_ > 0 && said.find('\n') == std::string::npos &&
               (n = ::read(out[0], buffer, sizeof buffer)) > 0) {
            said.append(buffer, static_cast<size_t>(n));
        }
        ::close(out[0]);
        ready_ = said.rfind("ready ", 0) == 0;
    }

    ~Fixture() {
        if (processId_ <= 0) {
            return;
        }
        ::kill(processId_, SIGTERM);
        for (int i = 0; i < 100; ++i) {
            if (::waitpid(processId_, nullptr, WNOHANG) == processId_) {
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        ::kill(processId_, SIGKILL);
        ::waitpid(processId_, nullptr, 0);
    }

    Fixture(const Fixture&) = delete;
    Fixture& operator=(const Fixture&) = delete;

    bool ready() const { return ready_; }

  private:
    pid_t processId_ = 0;
    bool ready_ = false;
};

// `units` rounds of every kind the fixture can take, after one focus.
Json requestOf(int units, const std::string& screenshotDir) {
    Json actions = Json::array({{{"kind", "focus"}}});
    for (int i = 1; i <= units; ++i) {
        std::string button = "button-" + std::to_string(i);
        actions.push_back({{"kind", "query"}, {"selector", {{"role", "AXButton"}}}});
        actions.push_back({{"kind", "assert"},
                           {"selector", {{"identifier", button}}},
                           {"expect", {{"exists", true}}}});
        actions.push_back({{"kind", "click"}, {"selector", {{"identifier", button}}}});
        actions.push_back({{"kind", "doubleClick"}, {"selector", {{"role", "AXTextField"}}}});
        actions.push_back({{"kind", "typeText"}, {"text", "ab/é"}});
        actions.push_back({{"kind", "keyPress"}, {"keys", Json::array({"tab", "shift+tab"})}});
        actions.push_back({{"kind", "scroll"}, {"scroll", {{"dx", 0}, {"dy", 1}}}});
        actions.push_back({{"kind", "frontmost"}});
        actions.push_back({{"kind", "healthTick"}});
        actions.push_back({{"kind", "screenshot"}});
    }
    return Json{{"sessionId", "leak-" + std::to_string(units)},
                {"seatLease", "lease"},
                {"targetBundleId", kFixture},
                {"screenshotDir", screenshotDir},
                {"actions", actions}};
}

struct Leaks {
    long definitely = 0;
    long indirectly = 0;
    long stillReachable = 0;
    size_t actions = 0;
    size_t receipts = 0;
    size_t succeeded = 0;
};

long bytesOf(const std::string& log, const char* kind) {
    std::smatch match;
    std::regex line(std::string(kind) + R"(: ([0-9,]+) bytes)");
    if (!std::regex_search(log, match, line)) {
        return 0;  // "All heap blocks were freed -- no leaks are possible"
    }
    std::string digits = match[1].str();
    digits.erase(std::remove(digits.begin(), digits.end(), ','), digits.end());
    return std::stol(digits);
}

// Runs one request under Valgrind; the leak summary of the agent process itself
// (forked children, if any, write logs of their own).
Leaks runUnderValgrind(const std::string& valgrind, int units, const fs::path& directory) {
    fs::path shots = directory / ("shots-" + std::to_string(units));
    fs::create_directories(shots);
    Json request = requestOf(units, shots.string());
    std::string logPattern =
        (directory / ("valgrind-" + std::to_string(units) + "-%p.log")).string();
    auto result = testing::runProcess(
        valgrind,
        {"--leak-check=full", "--show-leak-kinds=definite,indirect", "--num-callers=40",
         "--log-file=" + logPattern, VELMORA_AGENT_PATH, "run"},
        request.dump(), {}, kValgrindTimeoutSeconds);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.err, "");

    Leaks leaks;
    leaks.actions = request["actions"].size();
    try {
        Json response = Json::parse(result.out);
        for (const auto& receipt : response.at("receipts")) {
            ++leaks.receipts;
            leaks.succeeded += receipt.at("succeeded").get<bool>() ? 1 : 0;
        }
    } catch (const std::exception& error) {
        ADD_FAILURE() << "not one JSON document: " << error.what() << "\n" << result.out;
    }

    std::string parentLine = "Parent PID: " + std::to_string(::getpid()) + "\n";
    bool found = false;
    for (const auto& entry : fs::directory_iterator(directory)) {
        std::string name = entry.path().filename().string();
        if (name.rfind("valgrind-" + std::to_string(units) + "-", 0) != 0) {
            continue;
        }
        std::ifstream in(entry.path());
        std::string log((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        if (log.find(parentLine) == std::string::npos) {
            continue;  // a child of the agent, not the agent
        }
        EXPECT_NE(log.find("HEAP SUMMARY"), std::string::npos) << entry.path();
        leaks.definitely = bytesOf(log, "definitely lost");
        leaks.indirectly = bytesOf(log, "indirectly lost");
        leaks.stillReachable = bytesOf(log, "still reachable");
        found = true;
        if (leaks.definitely + leaks.indirectly > 0) {
            std::printf("leak-check: %s\n%s\n", entry.path().c_str(), log.c_str());
        }
    }
    EXPECT_TRUE(found) << "no Valgrind log of the agent in " << directory;
    return leaks;
}

TEST(AgentLeakTest, LostMemoryDoesNotGrowWithTheNumberOfActions) {
    const char* display = std::getenv("DISPLAY");
    if (display == nullptr || *display == '\0') {
        GTEST_FAIL() << "this test needs a desktop: run it as scripts/desktop ctest --test-dir "
                        "BUILD -L e2e";
    }
    auto valgrind = onPath("valgrind");
    ASSERT_TRUE(valgrind) << "valgrind is missing (run scripts/setup)";
    Fixture fixture;
    ASSERT_TRUE(fixture.ready()) << kFixture << " did not come up";

    fs::path directory = fs::temp_directory_path() / ("velmora-leak-" + std::to_string(::getpid()));
    fs::remove_all(directory);
    fs::create_directories(directory);

    constexpr int kUnits = 1;
    Leaks small = runUnderValgrind(*valgrind, kUnits, directory);
    Leaks large = runUnderValgrind(*valgrind, 3 * kUnits, directory);
    for (const Leaks* run : {&small, &large}) {
        std::printf(
            "leak-check: %zu actions (%zu succeeded): definitely lost %ld bytes, indirectly lost "
            "%ld bytes, still reachable %ld bytes\n",
            run->actions, run->succeeded, run->definitely, run->indirectly, run->stillReachable);
        EXPECT_EQ(run->receipts, run->actions);
    }
    // A leak in the path of an action costs at least a byte per action; what is
    // lost once (a library's start-up) is the same for both runs.
    long extraActions = static_cast<long>(large.actions - small.actions);
    long growth = (large.definitely + large.indirectly) - (small.definitely + small.indirectly);
    EXPECT_LT(growth, extraActions)
        << "lost memory grew by " << growth << " bytes over " << extraActions << " more actions";
    if (!HasFailure()) {
        fs::remove_all(directory);
    }
}

}  // namespace
}  // namespace velmora
