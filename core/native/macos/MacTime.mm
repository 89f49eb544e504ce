// Sleeps over NSThread, semaphores over libdispatch, and the monotonic clock.

#include "core/native/macos/MacPlatform.h"

#import <Foundation/Foundation.h>
#include <dispatch/dispatch.h>

#include <chrono>
#include <cstdint>
#include <memory>

namespace velmora::native {

namespace {

// dispatch_time from now; a wait of zero, a negative one or NaN tests once, and
// one beyond any real deadline waits forever.
dispatch_time_t deadlineAfter(double seconds) {
    if (!(seconds > 0)) {
        return dispatch_time(DISPATCH_TIME_NOW, 0);
    }
    if (seconds >= 9.0e9) {
        return DISPATCH_TIME_FOREVER;
    }
    return dispatch_time(DISPATCH_TIME_NOW, static_cast<int64_t>(seconds * NSEC_PER_SEC));
}

// A dispatch semaphore starting at zero. Reference counting (ARC) keeps it alive
// for whichever holder of this object goes last.
class DispatchSemaphore final : public Semaphore {
  public:
    // dispatch_semaphore_create(0)
    DispatchSemaphore() : semaphore_(dispatch_semaphore_create(0)) {}

    void signal() override {
        // dispatch_semaphore_signal
        dispatch_semaphore_signal(semaphore_);
    }

    bool wait(double timeoutSeconds) override {
        // dispatch_semaphore_wait: zero when signalled.
        return dispatch_semaphore_wait(semaphore_, deadlineAfter(timeoutSeconds)) == 0;
    }

  private:
    dispatch_semaphore_t semaphore_;
};

}  // namespace

void MacPlatform::sleep(double seconds) {
    // NSThread sleepForTimeInterval:
    [NSThread sleepForTimeInterval:seconds];
}

double MacPlatform::monotonicSeconds() {
    // The steady clock: monotonic, unaffected by changes of the wall clock.
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

std::shared_ptr<Semaphore> MacPlatform::makeSemaphore() {
    // dispatch_semaphore_create(0), in the semaphore's constructor.
    return std::make_shared<DispatchSemaphore>();
}

}  // namespace velmora::native
