#pragma once

#include <string>
#include <string_view>

namespace velmora::testing {

// Keeps one run of the agent (or of a tool speaking its protocol) for checking
// afterwards against the documents' JSON Schemas: when the environment variable
// VELMORA_KEEP_RUNS names a directory, the run gets a folder of its own there
// holding `mode` (run, self-check, register), `input` (what went to standard
// input), and, once finished, `output` (standard output) and `status` (the exit
// status). Without the variable nothing is written. Failures to write are
// reported as test failures, so a check never runs on a silently short set.
//
// The input is written at once, so that a caller measuring its child's memory
// need not hold a copy of it while the child runs.
class KeptRun {
  public:
    // `origin` names the suite (e2e, replay, bad-input); `mode` the agent's mode.
    KeptRun(std::string_view origin, std::string_view mode, std::string_view input);

    void finish(std::string_view output, int exitStatus);

    // The agent's mode for these arguments: the first one with every "--"
    // removed, "run" without one.
    static std::string modeOf(const std::string* firstArgument);

  private:
    std::string folder_;  // empty when runs are not kept
};

}  // namespace velmora::testing
