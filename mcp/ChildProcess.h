#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "mcp/AgentRunner.h"

// The agent as a child process: started with its standard streams on pipes,
// fed the request, read until it ends, and ended by its process id when it
// outlives the call's time limit or the call is cancelled (SIGTERM, then
// SIGKILL after a grace period). The operating system and the clock are
// interfaces, so that the supervision runs in virtual time in tests.

namespace velmora::mcp {

using SteadyTime = std::chrono::steady_clock::time_point;

class SteadyClock {
  public:
    virtual ~SteadyClock() = default;
    virtual SteadyTime now() = 0;
};

// A started child and what has gone in and out so far.
struct ChildIo {
    pid_t processId = 0;
    int in = -1, out = -1, err = -1;  // our ends; -1 once closed
    std::string input;                // what the child is to read
    size_t written = 0;               // how much of `input` it has been given
    std::string outText, errText;
    size_t outLimit = 0, errLimit = 0;  // text beyond these is read and dropped
    bool outOverflow = false;           // stdout went past its limit
};

class ProcessSystem {
  public:
    virtual ~ProcessSystem() = default;
    // Starts `program` with `arguments`, its standard streams on pipes. Throws
    // std::runtime_error saying why it could not be started.
    virtual ChildIo spawn(const std::string& program,
                          const std::vector<std::string>& arguments) = 0;
    // Waits at most `limit` for a pipe to be ready or `wakeFd` to become
    // readable, then moves what is ready: input to the child, output from it.
    // Closes a pipe at its end of file (and the input once all is written).
    virtual void exchange(ChildIo& child, std::chrono::milliseconds limit, int wakeFd) = 0;
    // The wait status once the child has ended (reaping it); none while it runs.
    virtual std::optional<int> reap(pid_t processId) = 0;
    virtual void signal(pid_t processId, int signalNumber) = 0;
    // Closes whatever pipes are still open.
    virtual void closeAll(ChildIo& child) = 0;
};

class ChildProcessRunner : public AgentRunner {
  public:
    ChildProcessRunner(std::string program, ProcessSystem& system, SteadyClock& clock,
                       std::chrono::milliseconds killGrace = std::chrono::seconds(2));

    AgentOutcome run(const std::string& requestText, std::chrono::milliseconds timeLimit,
                     const Cancellation& cancellation) override;

    // Most of a response we accept, and of standard error we keep.
    static constexpr size_t kOutLimit = size_t{256} << 20;
    static constexpr size_t kErrLimit = size_t{64} << 10;

  private:
    AgentOutcome end(ChildIo& child, AgentOutcome::Ending why);
    AgentOutcome finish(ChildIo& child, int waitStatus);

    std::string program_;
    ProcessSystem& system_;
    SteadyClock& clock_;
    std::chrono::milliseconds killGrace_;
};

// The real system: pipes, posix_spawn, poll, waitpid, kill.
class PosixProcessSystem : public ProcessSystem {
  public:
    ChildIo spawn(const std::string& program, const std::vector<std::string>& arguments) override;
    void exchange(ChildIo& child, std::chrono::milliseconds limit, int wakeFd) override;
    std::optional<int> reap(pid_t processId) override;
    void signal(pid_t processId, int signalNumber) override;
    void closeAll(ChildIo& child) override;
};

class SystemSteadyClock : public SteadyClock {
  public:
    SteadyTime now() override { return std::chrono::steady_clock::now(); }
};

}  // namespace velmora::mcp
