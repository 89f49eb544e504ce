// Sleeps over NSThread, waits that run the main run loop over CoreFoundation,
// semaphores over libdispatch, and the monotonic clock.

#include "core/native/macos/MacPlatform.h"

#include <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>
#include <dispatch/dispatch.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

namespace velmora::native {

namespace {

double steadySeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

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

void doNothing(void* /*info*/) {}

// A run-loop source that is never signalled unless someone wants the waiting
// thread to look again. Added to the default mode for the length of one wait, it
// also keeps the mode from being empty: CFRunLoopRunInMode returns at once from
// an empty mode, and the wait would spin instead of sleeping in the kernel.
class WakeSource {
  public:
    WakeSource() : loop_(CFRunLoopGetCurrent()) {
        CFRunLoopSourceContext context = {};
        context.perform = doNothing;
        source_ = CFRunLoopSourceCreate(kCFAllocatorDefault, 0, &context);
        CFRunLoopAddSource(loop_, source_, kCFRunLoopDefaultMode);
    }
    ~WakeSource() {
        CFRunLoopSourceInvalidate(source_);
        CFRelease(source_);
    }
    WakeSource(const WakeSource&) = delete;
    WakeSource& operator=(const WakeSource&) = delete;

    // From any thread: makes the waiting CFRunLoopRunInMode return.
    void wake() {
        CFRunLoopSourceSignal(source_);
        CFRunLoopWakeUp(loop_);
    }

  private:
    CFRunLoopRef loop_;
    CFRunLoopSourceRef source_;
};

// Runs the current thread's run loop in its default mode until `seconds` have
// passed on the steady clock or `done` answers true; `done` is asked first, and
// again each time the loop returns (a handled source, a wake, the time-out).
// Whether `done` ended it. The caller keeps a WakeSource in the mode meanwhile.
bool runLoopFor(double seconds, const std::function<bool()>& done) {
    const double deadline = steadySeconds() + (seconds > 0 ? seconds : 0);
    for (;;) {
        if (done && done()) {
            return true;
        }
        const double remaining = deadline - steadySeconds();
        if (!(remaining > 0)) {
            return false;
        }
        // CFRunLoopRunInMode(kCFRunLoopDefaultMode, remaining, true): returns after
        // one handled source, a stop, or the time-out.
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, remaining, true);
    }
}

// A dispatch semaphore starting at zero. Reference counting (ARC) keeps it alive
// for whichever holder of this object goes last.
class DispatchSemaphore final : public Semaphore {
  public:
    // dispatch_semaphore_create(0)
    DispatchSemaphore() : semaphore_(dispatch_semaphore_create(0)) {}

    void signal() override {
        // dispatch_semaphore_signal, then a nudge to a thread waiting with its run
        // loop running, so that the signal ends that wait as promptly as a plain one.
        dispatch_semaphore_signal(semaphore_);
        std::lock_guard<std::mutex> lock(mutex_);
        if (waiting_ != nullptr) {
            waiting_->wake();
        }
    }

    bool wait(double timeoutSeconds) override {
        // dispatch_semaphore_wait: zero when signalled.
        return dispatch_semaphore_wait(semaphore_, deadlineAfter(timeoutSeconds)) == 0;
    }

    bool waitRunningLoop(double timeoutSeconds) override {
        if (!NSThread.isMainThread) {
            return wait(timeoutSeconds);
        }
        WakeSource wake;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            waiting_ = &wake;
        }
        // Taken between two turns of the loop with a zero deadline, so a signal
        // that came before the loop started waiting is not lost.
        const bool signalled = runLoopFor(timeoutSeconds, [this] {
            return dispatch_semaphore_wait(semaphore_, DISPATCH_TIME_NOW) == 0;
        });
        std::lock_guard<std::mutex> lock(mutex_);
        waiting_ = nullptr;
        return signalled;
    }

  private:
    dispatch_semaphore_t semaphore_;
    std::mutex mutex_;
    WakeSource* waiting_ = nullptr;  // guarded by mutex_
};

}  // namespace

void MacPlatform::sleep(double seconds) {
    // NSThread sleepForTimeInterval:
    [NSThread sleepForTimeInterval:seconds];
}

void MacPlatform::waitRunningLoop(double seconds) {
    // Only the main run loop refreshes the workspace's answers; another thread's
    // loop would not, so there the wait is a plain sleep.
    if (!NSThread.isMainThread) {
        sleep(seconds);
        return;
    }
    WakeSource wake;
    runLoopFor(seconds, nullptr);
}

double MacPlatform::monotonicSeconds() {
    // The steady clock: monotonic, unaffected by changes of the wall clock.
    return steadySeconds();
}

std::shared_ptr<Semaphore> MacPlatform::makeSemaphore() {
    // dispatch_semaphore_create(0), in the semaphore's constructor.
    return std::make_shared<DispatchSemaphore>();
}

}  // namespace velmora::native
