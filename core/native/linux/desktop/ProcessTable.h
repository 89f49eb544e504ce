#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/native/linux/desktop/ApplicationIdentity.h"
#include "core/native/linux/x11/X11Windows.h"

// The running processes as /proc shows them.

namespace velmora::native::freedesktop {

// A process of the current user and the executable it runs.
struct UserProcess {
    int32_t processId = 0;
    std::string executablePath;  // /proc/PID/exe resolved
};

// The processes of the current user that run an executable (kernel threads and
// zombies have none), in ascending process id order.
std::vector<UserProcess> userProcesses();

// The resolved /proc/PID/exe; none when it cannot be read.
std::optional<std::string> executableOf(int32_t processId);

// What the identity rule needs to know about a process running
// `executablePath`; `windows` are the desktop's top-level windows, of which the
// process's own are used.
ProcessFacts processFacts(int32_t processId, const std::string& executablePath,
                          const std::vector<WindowFacts>& windows);

}  // namespace velmora::native::freedesktop
