#include "core/native/linux/ConditionSemaphore.h"

#include <chrono>
#include <cmath>

namespace velmora::native::freedesktop {

void ConditionSemaphore::signal() {
    {
        std::lock_guard lock(mutex_);
        ++count_;
    }
    condition_.notify_one();
}

bool ConditionSemaphore::wait(double timeoutSeconds) {
    std::unique_lock lock(mutex_);
    // A deadline beyond any real wait (or not a number) waits without end.
    constexpr double kLongest = 1e9;
    if (!(timeoutSeconds < kLongest)) {
        condition_.wait(lock, [this] { return count_ > 0; });
    } else {
        auto timeout = std::chrono::duration<double>(timeoutSeconds > 0 ? timeoutSeconds : 0);
        auto deadline = std::chrono::steady_clock::now() +
                        std::chrono::duration_cast<std::chrono::steady_clock::duration>(timeout);
        if (!condition_.wait_until(lock, deadline, [this] { return count_ > 0; })) {
            return false;
        }
    }
    --count_;
    return true;
}

}  // namespace velmora::native::freedesktop
