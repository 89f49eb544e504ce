#include "core/native/linux/desktop/SpawnedProcess.h"

#include <cerrno>

#include <spawn.h>
#include <sys/wait.h>

extern char** environ;

namespace velmora::native::freedesktop {

std::shared_ptr<SpawnedProcess> SpawnedProcess::start(const std::string& executable,
                                                      const std::vector<std::string>& arguments) {
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(executable.c_str()));
    for (const auto& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_t processId = 0;
    // glibc reports a failed exec (a missing executable) as posix_spawn's result.
    if (posix_spawn(&processId, executable.c_str(), nullptr, nullptr, argv.data(), environ) != 0) {
        return nullptr;
    }
    return std::shared_ptr<SpawnedProcess>(new SpawnedProcess(processId));
}

void SpawnedProcess::waitUntilExit() {
    while (!reaped_) {
        int status = 0;
        pid_t result = waitpid(processId_, &status, 0);
        if (result == processId_ || (result < 0 && errno != EINTR)) {
            reaped_ = true;
        }
    }
}

}  // namespace velmora::native::freedesktop
