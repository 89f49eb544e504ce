#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

#include "mcp/Cancellation.h"

// Runs one agent request: the request's text on the agent's standard input,
// its one document back from its standard output.

namespace velmora::mcp {

struct AgentOutcome {
    enum class Ending {
        exited,         // the agent ended by itself; `exitStatus` holds its status
        signalled,      // a signal ended it without our asking (a crash); `signal`
        timedOut,       // it ran past the call's time limit and was ended by us
        cancelled,      // the client cancelled the call and we ended the agent
        notStarted,     // it could not be started; `detail` says why
        tooMuchOutput,  // it wrote more than a response can be; ended by us
    };
    Ending ending = Ending::notStarted;
    pid_t processId = 0;
    int exitStatus = -1;
    int signal = 0;
    std::string out;
    std::string err;
    std::string detail;
};

class AgentRunner {
  public:
    virtual ~AgentRunner() = default;
    virtual AgentOutcome run(const std::string& requestText, std::chrono::milliseconds timeLimit,
                             const Cancellation& cancellation) = 0;
};

}  // namespace velmora::mcp
