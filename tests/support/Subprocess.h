#pragma once

#include <map>
#include <string>
#include <vector>

namespace velmora::testing {

struct ProcessResult {
    int exitStatus = -1;  // the exit code, or 128 + signal when killed by a signal
    std::string out;
    std::string err;
    bool timedOut = false;
};

// Runs `program` with `arguments`, feeding `input` to its standard input and then
// closing it, and collects both output streams. The child is killed after
// `timeoutSeconds`. `environment` entries are added to (or override) ours.
ProcessResult runProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const std::string& input = "",
                         const std::map<std::string, std::string>& environment = {},
                         double timeoutSeconds = 60);

}  // namespace velmora::testing
