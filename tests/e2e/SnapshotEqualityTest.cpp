// The pipelined accessibility reader against the one-call-at-a-time reader, on
// the desktop of scripts/desktop: the native driver's query without selector
// (every element, in order) and its structural state must be the same whichever
// reader answers, on velmora-fixture-tree and on real GTK applications.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>

#include "agent/Modes.h"
#include "core/native/AXCGDriver.h"
#include "core/native/linux/LinuxPlatform.h"
#include "core/native/linux/atspi/DBusAtspiTransport.h"
#include "tests/e2e/DesktopSupport.h"
#include "tests/e2e/SnapshotComparison.h"

extern char** environ;

namespace velmora::e2e {
namespace {

using native::AXCGDriver;
using native::freedesktop::AtspiReads;
using native::freedesktop::DBusAtspiTransport;
using native::freedesktop::LinuxPlatform;

constexpr const char* kFixtureId = "velmora-fixture-tree";

// Runs `read` with LeakSanitizer looking away from what it allocates. libatspi's
// call to an application over its direct connection waits on a pending call of
// its own; when the application never answers, libatspi gives up on it without
// cancelling it, and the pending call, its time-out and libatspi's closure stay
// behind (152 bytes a call). That is libatspi's, not this process's, and the
// allocation stacks end inside libdbus, too short for a suppression to name it.
template <typename Read>
auto ignoringLibatspiLeaks(Read read) {
#if defined(__SANITIZE_ADDRESS__)
    __lsan_disable();
    auto result = read();
    __lsan_enable();
    return result;
#else
    return read();
#endif
}

// velmora-fixture-tree with a given number of elements, ended (by its process id)
// when destroyed.
class Fixture {
  public:
    // With `hugeList`, a list of that many children, made only when asked for.
    explicit Fixture(long elements, long hugeList = 0) {
        int out[2];
        if (pipe2(out, O_CLOEXEC) != 0) {
            return;
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        const std::string count = std::to_string(elements);
        const std::string huge = std::to_string(hugeList);
        std::vector<char*> arguments = {const_cast<char*>(VELMORA_FIXTURE_TREE_PATH),
                                        const_cast<char*>("--elements"),
                                        const_cast<char*>(count.c_str())};
        if (hugeList > 0) {
            arguments.push_back(const_cast<char*>("--huge-list"));
            arguments.push_back(const_cast<char*>(huge.c_str()));
        }
        arguments.push_back(nullptr);
        pid_t child = 0;
        const int spawned = posix_spawn(&child, VELMORA_FIXTURE_TREE_PATH, &actions, nullptr,
                                        arguments.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(out[1]);
        if (spawned != 0) {
            close(out[0]);
            return;
        }
        processId_ = child;
        // It prints "ready N" once its tree is complete.
        std::string said;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (said.find('\n') == std::string::npos &&
               std::chrono::steady_clock::now() < deadline) {
            pollfd readable{out[0], POLLIN, 0};
            if (poll(&readable, 1, 200) > 0) {
                char buffer[64];
                const ssize_t got = read(out[0], buffer, sizeof buffer);
                if (got <= 0) {
                    break;
                }
                said.append(buffer, static_cast<size_t>(got));
            }
        }
        close(out[0]);
        ready_ = said == "ready " + count + "\n";
    }
    ~Fixture() {
        if (processId_ > 0) {
            kill(processId_, SIGTERM);
            kill(processId_, SIGCONT);  // a stopped fixture takes the signal once it runs
            waitpid(processId_, nullptr, 0);
        }
    }
    Fixture(const Fixture&) = delete;
    Fixture& operator=(const Fixture&) = delete;

    int32_t processId() const { return processId_; }
    bool ready() const { return ready_; }

  private:
    int32_t processId_ = 0;
    bool ready_ = false;
};

class SnapshotEquality : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!onDesktop()) {
            GTEST_FAIL() << kNeedsDesktop;
        }
        pipelined = std::make_unique<LinuxPlatform>(AtspiReads::pipelined);
        oneAtATime = std::make_unique<LinuxPlatform>(AtspiReads::oneAtATime);
        launched = std::make_unique<LaunchedApplications>(*oneAtATime);
    }
    void TearDown() override { launched.reset(); }

    // Waits until the application runs under `id` with a window the window
    // manager has placed (its frame stays put).
    bool settled(const std::string& id, int32_t processId) {
        std::optional<Rect> last;
        int unchanged = 0;
        return waitUntil(
            [&] {
                auto running = oneAtATime->runningApplications(id);
                if (std::none_of(running.begin(), running.end(),
                                 [&](const auto& app) { return app.processId == processId; })) {
                    return false;
                }
                auto windows = elementsAttribute(
                    *oneAtATime, oneAtATime->applicationElement(processId), "AXWindows");
                auto frame = windows.empty() ? std::nullopt : frameOf(*oneAtATime, windows[0]);
                unchanged = frame && frame == last ? unchanged + 1 : 0;
                last = frame;
                return unchanged >= 6;
            },
            30);
    }

    void expectSameSnapshots(const std::string& id, size_t expectedElements) {
        e2e::expectSameSnapshots(*pipelined, *oneAtATime, id, expectedElements);
    }

    size_t count(const std::vector<ElementInfo>& elements,
                 const std::function<bool(const ElementInfo&)>& matches) {
        return static_cast<size_t>(std::count_if(elements.begin(), elements.end(), matches));
    }

    std::unique_ptr<LinuxPlatform> pipelined;
    std::unique_ptr<LinuxPlatform> oneAtATime;
    std::unique_ptr<LaunchedApplications> launched;
};

TEST_F(SnapshotEquality, FixtureLargerThanTheBudget) {
    Fixture fixture(3500);
    ASSERT_TRUE(fixture.ready());
    ASSERT_TRUE(settled(kFixtureId, fixture.processId()));
    // The budget ends the walk inside the first window: the windows pass adds nothing.
    expectSameSnapshots(kFixtureId, kNodeBudget);

    // What was compared holds every kind of value and frame.
    AXCGDriver fast(*pipelined, kNodeBudget, kFocusTimeoutSeconds);
    const auto elements = fast.query(kFixtureId, std::nullopt, true);
    EXPECT_GT(
        count(elements,
              [](const auto& e) { return e.role == "AXCheckBox" && e.valuePresent && !e.value; }),
        0u);  // a number
    EXPECT_GT(count(elements, [](const auto& e) { return e.role == "AXTextField" && e.value; }),
              0u);
    EXPECT_GT(count(elements, [](const auto& e) { return e.role == "AXTextArea" && e.value; }), 0u);
    EXPECT_GT(count(elements, [](const auto& e) { return e.role == "AXSlider" && e.valuePresent; }),
              0u);
    EXPECT_GT(count(elements, [](const auto& e) { return e.role == "AXComboBox"; }), 0u);
    EXPECT_GT(count(elements, [](const auto& e) { return e.identifier.has_value(); }), 0u);
    // Rows scrolled out of sight have no frame; those in sight have one.
    EXPECT_GT(count(elements, [](const auto& e) { return e.frame.has_value(); }), 50u);
    EXPECT_GT(count(elements, [](const auto& e) { return !e.frame.has_value(); }), 1000u);
}

TEST_F(SnapshotEquality, FixtureWalkedTwiceThroughItsWindows) {
    Fixture fixture(400);
    ASSERT_TRUE(fixture.ready());
    ASSERT_TRUE(settled(kFixtureId, fixture.processId()));
    // The application element, its window's subtree, then the window again.
    expectSameSnapshots(kFixtureId, 1 + 2 * 399);
}

double secondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST_F(SnapshotEquality, AHungApplicationCostsOneTimeOutThenAShortProbePerWalk) {
    Fixture fixture(300);
    ASSERT_TRUE(fixture.ready());
    ASSERT_TRUE(settled(kFixtureId, fixture.processId()));
    AXCGDriver fast(*pipelined, kNodeBudget, kFocusTimeoutSeconds);
    AXCGDriver slow(*oneAtATime, kNodeBudget, kFocusTimeoutSeconds);

    ASSERT_EQ(kill(fixture.processId(), SIGSTOP), 0);
    std::vector<ElementInfo> fastResult;
    std::vector<ElementInfo> slowResult;
    const double fastSeconds =
        secondsOf([&] { fastResult = fast.query(kFixtureId, std::nullopt, true); });
    const double slowSeconds = ignoringLibatspiLeaks([&] {
        return secondsOf([&] { slowResult = slow.query(kFixtureId, std::nullopt, true); });
    });
    // Each driver now knows the application is silent: a walk costs it one probe.
    std::vector<ElementInfo> fastAgain;
    std::vector<ElementInfo> slowAgain;
    const double fastProbe =
        secondsOf([&] { fastAgain = fast.query(kFixtureId, std::nullopt, true); });
    const double slowProbe = ignoringLibatspiLeaks(
        [&] { return secondsOf([&] { slowAgain = slow.query(kFixtureId, std::nullopt, true); }); });
    ASSERT_EQ(kill(fixture.processId(), SIGCONT), 0);

    // Every read failed alike: the application element alone, with nothing known.
    ElementInfo unknown;
    unknown.role = "AXUnknown";
    EXPECT_EQ(slowResult, std::vector<ElementInfo>{unknown});
    EXPECT_EQ(fastResult, slowResult);
    EXPECT_EQ(fastAgain, slowResult);
    EXPECT_EQ(slowAgain, slowResult);
    // The first unanswered read waits out the 2.5 s limit, and no other read is
    // made.
    EXPECT_GT(slowSeconds, 2.0);
    EXPECT_LT(slowSeconds, 5.0);
    EXPECT_GT(fastSeconds, 2.0);
    EXPECT_LT(fastSeconds, 5.0);
    EXPECT_LT(fastProbe, 1.0);
    EXPECT_LT(slowProbe, 1.0);

    // Running again, it answers the probe and is read in full.
    ASSERT_TRUE(settled(kFixtureId, fixture.processId()));
    const auto before = DBusAtspiTransport::processStatistics();
    EXPECT_EQ(fast.query(kFixtureId, std::nullopt, true),
              slow.query(kFixtureId, std::nullopt, true));
    const auto& after = DBusAtspiTransport::processStatistics();
    EXPECT_GT(after.requests - before.requests, 300u);
    EXPECT_EQ(fast.query(kFixtureId, std::nullopt, true).size(), 1u + 2 * 299);
}

TEST_F(SnapshotEquality, AMillionChildrenCostNoMoreThanTheBudget) {
    Fixture fixture(400, 1000000);
    ASSERT_TRUE(fixture.ready());
    ASSERT_TRUE(settled(kFixtureId, fixture.processId()));
    // The list comes first in the window: its children fill the rest of the
    // budget.
    const auto before = DBusAtspiTransport::processStatistics().requests;
    expectSameSnapshots(kFixtureId, kNodeBudget);
    AXCGDriver fast(*pipelined, kNodeBudget, kFocusTimeoutSeconds);
    const auto elements = fast.query(kFixtureId, std::nullopt, true);
    ASSERT_EQ(elements.size(), static_cast<size_t>(kNodeBudget));
    const auto list = std::find_if(elements.begin(), elements.end(),
                                   [](const auto& e) { return e.title == "Huge list"; });
    ASSERT_NE(list, elements.end());
    ASSERT_LT(list - elements.begin(), 10);
    EXPECT_EQ((list + 1)->title, "Item 0");
    const auto items = elements.end() - (list + 1);
    EXPECT_EQ(elements.back().title, "Item " + std::to_string(items - 1));
    // Four pipelined queries and two structural states, none of them asking for
    // the million: a few requests per element recorded.
    const auto requests = DBusAtspiTransport::processStatistics().requests - before;
    EXPECT_LT(requests, 6u * 10u * static_cast<uint64_t>(kNodeBudget)) << requests;
}

TEST_F(SnapshotEquality, Galculator) {
    const int32_t processId = launched->launch("galculator");
    ASSERT_NE(processId, 0);
    AXCGDriver slow(*oneAtATime, kNodeBudget, kFocusTimeoutSeconds);
    const size_t elements = slow.query("galculator", std::nullopt, true).size();
    ASSERT_GT(elements, 50u);
    const auto before = DBusAtspiTransport::processStatistics();
    expectSameSnapshots("galculator", elements);
    // GTK applications offer a direct connection, and the agent's reader leaves
    // it: the application would keep it after the agent exits.
    const auto& after = DBusAtspiTransport::processStatistics();
    EXPECT_GT(after.requests - before.requests, 500u);
    EXPECT_EQ(after.directRequests, before.directRequests);
    EXPECT_EQ(after.unanswered, before.unanswered);
}

TEST_F(SnapshotEquality, OverADirectConnectionWhereTheApplicationOffersOne) {
    const int32_t processId = launched->launch("galculator");
    ASSERT_NE(processId, 0);
    pipelined = std::make_unique<LinuxPlatform>(AtspiReads::pipelinedDirect);
    AXCGDriver slow(*oneAtATime, kNodeBudget, kFocusTimeoutSeconds);
    const size_t elements = slow.query("galculator", std::nullopt, true).size();
    ASSERT_GT(elements, 50u);
    const auto before = DBusAtspiTransport::processStatistics();
    expectSameSnapshots("galculator", elements);
    const auto& after = DBusAtspiTransport::processStatistics();
    EXPECT_GT(after.directRequests - before.directRequests, 500u);
    EXPECT_EQ(after.directRequests - before.directRequests, after.requests - before.requests);
}

// Sends one request and waits for its answer.
native::freedesktop::AtspiReply ask(DBusAtspiTransport& transport,
                                    const native::freedesktop::AtspiRequest& request) {
    native::freedesktop::AtspiReply answer;
    bool answered = false;
    transport.send(request, [&](const auto& reply) {
        answer = reply;
        answered = true;
    });
    while (!answered && transport.pump(true)) {
    }
    return answer;
}

TEST_F(SnapshotEquality, ThePipelinedReaderFindsTheApplicationOverItsOwnConnection) {
    using native::freedesktop::AtspiCall;
    Fixture fixture(50);
    ASSERT_TRUE(fixture.ready());
    DBusAtspiTransport transport;
    const auto search = transport.findApplication(fixture.processId());
    EXPECT_TRUE(search.busReached);
    ASSERT_TRUE(search.application.has_value());
    EXPECT_EQ(search.application->busName.front(), ':');  // the application's unique name
    EXPECT_EQ(search.application->path, "/org/a11y/atspi/accessible/root");
    const auto role = ask(transport, {AtspiCall::role, *search.application});
    ASSERT_TRUE(role.ok);
    EXPECT_EQ(role.number, 75u);  // ATSPI_ROLE_APPLICATION

    // The owner is the bus's answer, also once the application is read directly.
    EXPECT_FALSE(transport.connect(search.application->busName));
    const auto owner = ask(transport, {AtspiCall::processId, *search.application});
    ASSERT_TRUE(owner.ok);
    EXPECT_EQ(static_cast<int32_t>(owner.number), fixture.processId());

    // This test's own process has no accessible application.
    const auto none = transport.findApplication(getpid());
    EXPECT_TRUE(none.busReached);
    EXPECT_FALSE(none.application.has_value());
}

TEST_F(SnapshotEquality, BothReadersFailTheSameWayWithoutAnApplicationOrABus) {
    // A process without an accessible application: every read cannot complete.
    for (auto* platform : {pipelined.get(), oneAtATime.get()}) {
        const auto role = platform->copyAttribute(platform->applicationElement(getpid()), "AXRole");
        EXPECT_EQ(role.code, native::kAXErrorCannotComplete);
    }
    // No accessibility bus: the interface reads as switched off.
    const char* desktopBus = std::getenv("AT_SPI_BUS_ADDRESS");
    ASSERT_NE(desktopBus, nullptr);
    const std::string address = desktopBus;
    setenv("AT_SPI_BUS_ADDRESS", "unix:path=/nonexistent/velmora-test-bus", 1);
    EXPECT_FALSE(DBusAtspiTransport().findApplication(getpid()).busReached);
    LinuxPlatform unconnected(AtspiReads::pipelined);
    const auto role = unconnected.copyAttribute(unconnected.applicationElement(getpid()), "AXRole");
    EXPECT_EQ(role.code, native::kAXErrorAPIDisabled);
    setenv("AT_SPI_BUS_ADDRESS", address.c_str(), 1);
}

TEST_F(SnapshotEquality, BothReadersKnowAWindowReachedTwoWays) {
    const int32_t processId = launched->launch("galculator");
    ASSERT_NE(processId, 0);
    for (auto* platform : {pipelined.get(), oneAtATime.get()}) {
        const AXElement application = platform->applicationElement(processId);
        const auto children = elementsAttribute(*platform, application, "AXChildren");
        const auto windows = elementsAttribute(*platform, application, "AXWindows");
        ASSERT_FALSE(windows.empty());
        EXPECT_TRUE(std::any_of(children.begin(), children.end(), [&](const AXElement& child) {
            return platform->isSameElement(child, windows.front());
        }));
        EXPECT_FALSE(platform->isSameElement(application, windows.front()));
        EXPECT_TRUE(platform->isSameElement(application, platform->applicationElement(processId)));
    }
    EXPECT_FALSE(pipelined->isSameElement(pipelined->applicationElement(processId),
                                          oneAtATime->applicationElement(processId)));
}

TEST_F(SnapshotEquality, Mousepad) {
    const int32_t processId = launched->launch("org.xfce.mousepad");
    ASSERT_NE(processId, 0);
    AXCGDriver slow(*oneAtATime, kNodeBudget, kFocusTimeoutSeconds);
    const size_t elements = slow.query("org.xfce.mousepad", std::nullopt, true).size();
    ASSERT_GT(elements, 100u);
    expectSameSnapshots("org.xfce.mousepad", elements);
}

// Qt 5 and GTK 4, whose accessibility the agent switches on itself.
TEST_F(SnapshotEquality, KCalc) {
    const int32_t processId = launched->launch("org.kde.kcalc");
    ASSERT_NE(processId, 0);
    AXCGDriver slow(*oneAtATime, kNodeBudget, kFocusTimeoutSeconds);
    const size_t elements = slow.query("org.kde.kcalc", std::nullopt, true).size();
    ASSERT_GT(elements, 100u);
    expectSameSnapshots("org.kde.kcalc", elements);
}

TEST_F(SnapshotEquality, GnomeCalculator) {
    const int32_t processId = launched->launch("org.gnome.Calculator");
    ASSERT_NE(processId, 0);
    AXCGDriver slow(*oneAtATime, kNodeBudget, kFocusTimeoutSeconds);
    const size_t elements = slow.query("org.gnome.Calculator", std::nullopt, true).size();
    ASSERT_GT(elements, 100u);
    expectSameSnapshots("org.gnome.Calculator", elements);
}

}  // namespace
}  // namespace velmora::e2e
