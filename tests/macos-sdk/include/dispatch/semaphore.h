// <dispatch/semaphore.h>: the counting semaphore.
#pragma once

#include <stdint.h>

#include <dispatch/object.h>
#include <dispatch/time.h>

DISPATCH_DECL(dispatch_semaphore);

_Pragma("clang assume_nonnull begin")
#if defined(__cplusplus)
    extern "C" {
#endif

    // Documented to give NULL on failure (a negative `value`).
    API_AVAILABLE(macos(10.6), ios(4.0))
    DISPATCH_RETURNS_RETAINED dispatch_semaphore_t dispatch_semaphore_create(intptr_t value);
    // Zero when signalled, non-zero when the timeout passed first.
    API_AVAILABLE(macos(10.6), ios(4.0))
    intptr_t dispatch_semaphore_wait(dispatch_semaphore_t dsema, dispatch_time_t timeout);
    // Non-zero when a thread was woken.
    API_AVAILABLE(macos(10.6), ios(4.0))
    intptr_t dispatch_semaphore_signal(dispatch_semaphore_t dsema);

#if defined(__cplusplus)
}
#endif

_Pragma("clang assume_nonnull end")
