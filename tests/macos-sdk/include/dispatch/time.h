// <dispatch/time.h>, as far as the macOS provider uses it.
#pragma once

#include <os/availability.h>
#include <stdint.h>

#define NSEC_PER_SEC 1000000000ull

#if defined(__cplusplus)
extern "C" {
#endif

typedef uint64_t dispatch_time_t;

#define DISPATCH_TIME_NOW (0ull)
#define DISPATCH_TIME_FOREVER (~0ull)

// `when` plus `delta` nanoseconds.
API_AVAILABLE(macos(10.6), ios(4.0))
dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta);

#if defined(__cplusplus)
}
#endif
