#pragma once

#include <memory>
#include <string>
#include <vector>

#include <sys/types.h>

#include "core/native/Platform.h"

namespace velmora::native::freedesktop {

// A child process started with posix_spawn, sharing our standard streams.
class SpawnedProcess final : public ChildProcess {
  public:
    // Null when the executable cannot be started (it does not exist, say).
    static std::shared_ptr<SpawnedProcess> start(const std::string& executable,
                                                 const std::vector<std::string>& arguments);
    // Blocks until the process has ended; at once when it already has.
    void waitUntilExit();
    pid_t processId() const { return processId_; }

  private:
    explicit SpawnedProcess(pid_t processId) : processId_(processId) {}

    pid_t processId_;
    bool reaped_ = false;
};

}  // namespace velmora::native::freedesktop
