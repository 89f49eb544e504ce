#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "core/native/Platform.h"

namespace velmora::native::freedesktop {

// A counting semaphore starting at zero, over a mutex and a condition variable.
// Waits are measured on the steady clock.
class ConditionSemaphore final : public Semaphore {
  public:
    void signal() override;
    bool wait(double timeoutSeconds) override;
    // Linux's workspace answers are read fresh from the system: nothing to run.
    bool waitRunningLoop(double timeoutSeconds) override { return wait(timeoutSeconds); }

  private:
    std::mutex mutex_;
    std::condition_variable condition_;
    uint64_t count_ = 0;
};

}  // namespace velmora::native::freedesktop
