// The agent's supervision in virtual time: a scripted process system and a
// clock that only moves when the runner waits. Every signal is checked with
// the process id it went to and the moment it was sent.

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <csignal>

#include "mcp/ChildProcess.h"

namespace velmora::mcp {
namespace {

using std::chrono::milliseconds;

class VirtualClock : public SteadyClock {
  public:
    SteadyTime now() override { return time; }
    milliseconds elapsed() const {
        return std::chrono::duration_cast<milliseconds>(time - SteadyTime());
    }
    SteadyTime time{};
};

struct Sent {
    pid_t processId;
    int signal;
    milliseconds at;
    bool operator==(const Sent&) const = default;
};

// A child that answers, crashes or hangs as scripted. Waits move the virtual
// clock by their whole limit unless something happens sooner.
class ScriptedSystem : public ProcessSystem {
  public:
    explicit ScriptedSystem(VirtualClock& clock) : clock_(clock) {}

    ChildIo spawn(const std::string& program, const std::vector<std::string>& arguments) override {
        spawned.push_back(program + " " + (arguments.empty() ? "" : arguments[0]));
        if (failSpawn) {
            throw std::runtime_error(program + ": No such file or directory");
        }
        ChildIo child;
        child.processId = 321;
        child.in = 10;
        child.out = 11;
        child.err = 12;
        return child;
    }

    void exchange(ChildIo& child, milliseconds limit, int wakeFd) override {
        waits.push_back(limit);
        wakeFds.push_back(wakeFd);
        if (child.in >= 0) {
            received = child.input;
            child.written = child.input.size();
            child.in = -1;
        }
        if (answerAfter && clock_.elapsed() + limit >= *answerAfter && child.out >= 0) {
            clock_.time = SteadyTime() + *answerAfter;
            child.outText = answer;
            child.errText = errors;
            child.out = child.err = -1;
            if (exitsWithOutput) {
                ended = endStatus;
            }
            return;
        }
        if (ended && (child.out >= 0 || child.err >= 0)) {
            child.out = child.err = -1;  // its pipes close as it dies
            return;
        }
        clock_.time += limit;
    }

    std::optional<int> reap(pid_t processId) override {
        reaped.push_back(processId);
        return ended;
    }

    void signal(pid_t processId, int signalNumber) override {
        signals.push_back({processId, signalNumber, clock_.elapsed()});
        if (signalNumber == SIGKILL || (signalNumber == SIGTERM && diesOnTerm)) {
            ended = W_EXITCODE(0, signalNumber);
        }
    }

    void closeAll(ChildIo& child) override {
        closed = true;
        child.in = child.out = child.err = -1;
    }

    // The script.
    bool failSpawn = false;
    std::optional<milliseconds> answerAfter;  // none: it hangs
    std::string answer, errors;
    int endStatus = W_EXITCODE(0, 0);
    bool diesOnTerm = true;
    bool exitsWithOutput = true;

    // What happened.
    std::vector<std::string> spawned;
    std::string received;
    std::vector<milliseconds> waits;
    std::vector<int> wakeFds;
    std::vector<pid_t> reaped;
    std::vector<Sent> signals;
    std::optional<int> ended;
    bool closed = false;

  private:
    VirtualClock& clock_;
};

class ChildSupervision : public ::testing::Test {
  protected:
    AgentOutcome run(milliseconds limit = milliseconds(5000)) {
        ChildProcessRunner runner("/usr/bin/velmora-agent", system, clock, milliseconds(2000));
        return runner.run("{\"request\": 1}", limit, cancellation);
    }

    VirtualClock clock;
    ScriptedSystem system{clock};
    Cancellation cancellation;
};

TEST_F(ChildSupervision, AnAnswerIsReadAndTheChildReaped) {
    system.answerAfter = milliseconds(300);
    system.answer = "{\"ok\": true}\n";
    system.endStatus = W_EXITCODE(2, 0);
    AgentOutcome outcome = run();
    EXPECT_EQ(outcome.ending, AgentOutcome::Ending::exited);
    EXPECT_EQ(outcome.exitStatus, 2);
    EXPECT_EQ(outcome.processId, 321);
    EXPECT_EQ(outcome.out, "{\"ok\": true}\n");
    EXPECT_EQ(system.spawned, std::vector<std::string>{"/usr/bin/velmora-agent run"});
    EXPECT_EQ(system.received, "{\"request\": 1}");
    EXPECT_TRUE(system.signals.empty());
    EXPECT_TRUE(system.closed);
    EXPECT_EQ(clock.elapsed(), milliseconds(300));
    // The first wait may last the whole time limit: it is woken by the child's output.
    EXPECT_EQ(system.waits.front(), milliseconds(5000));
    EXPECT_EQ(system.wakeFds.front(), cancellation.wakeFd());
}

TEST_F(ChildSupervision, AHungChildIsTerminatedAtTheTimeLimitByItsProcessId) {
    AgentOutcome outcome = run(milliseconds(5000));
    EXPECT_EQ(outcome.ending, AgentOutcome::Ending::timedOut);
    EXPECT_EQ(outcome.processId, 321);
    EXPECT_EQ(system.signals, (std::vector<Sent>{{321, SIGTERM, milliseconds(5000)}}));
    EXPECT_TRUE(system.closed);
    EXPECT_EQ(system.reaped.back(), 321);
}

TEST_F(ChildSupervision, AChildThatIgnoresTerminationIsKilledAfterTheGrace) {
    system.diesOnTerm = false;
    AgentOutcome outcome = run(milliseconds(1500));
    EXPECT_EQ(outcome.ending, AgentOutcome::Ending::timedOut);
    EXPECT_EQ(system.signals, (std::vector<Sent>{{321, SIGTERM, milliseconds(1500)},
                                                 {321, SIGKILL, milliseconds(3500)}}));
    EXPECT_EQ(outcome.signal, SIGKILL);
}

TEST_F(ChildSupervision, ACrashIsReportedWithItsSignalAndWhatItWrote) {
    system.answerAfter = milliseconds(40);
    system.errors = "Segmentation fault\n";
    system.endStatus = W_EXITCODE(0, SIGSEGV);
    AgentOutcome outcome = run();
    EXPECT_EQ(outcome.ending, AgentOutcome::Ending::signalled);
    EXPECT_EQ(outcome.signal, SIGSEGV);
    EXPECT_EQ(outcome.err, "Segmentation fault\n");
    EXPECT_TRUE(system.signals.empty());
}

TEST_F(ChildSupervision, ACancelledCallEndsTheChildAtOnce) {
    cancellation.cancel();
    AgentOutcome outcome = run();
    EXPECT_EQ(outcome.ending, AgentOutcome::Ending::cancelled);
    EXPECT_EQ(system.signals, (std::vector<Sent>{{321, SIGTERM, milliseconds(0)}}));
}

TEST_F(ChildSupervision, AChildThatClosesItsOutputButLingersIsStillEndedAtTheLimit) {
    // Its output closes at 100 ms, but the process does not go: the runner
    // checks in short steps and ends it at the time limit all the same.
    system.answerAfter = milliseconds(100);
    system.answer = "{}";
    system.exitsWithOutput = false;
    AgentOutcome outcome = run(milliseconds(1000));
    EXPECT_EQ(outcome.ending, AgentOutcome::Ending::timedOut);
    EXPECT_EQ(system.signals, (std::vector<Sent>{{321, SIGTERM, milliseconds(1000)}}));
    ASSERT_GT(system.waits.size(), 2u);
    EXPECT_EQ(system.waits[0], milliseconds(1000));
    for (size_t i = 1; i < system.waits.size(); ++i) {
        EXPECT_LE(system.waits[i], milliseconds(5));
    }
}

TEST_F(ChildSupervision, AProgramThatCannotStartIsReportedWithoutSignals) {
    system.failSpawn = true;
    AgentOutcome outcome = run();
    EXPECT_EQ(outcome.ending, AgentOutcome::Ending::notStarted);
    EXPECT_EQ(outcome.detail, "/usr/bin/velmora-agent: No such file or directory");
    EXPECT_TRUE(system.signals.empty());
}

}  // namespace
}  // namespace velmora::mcp
