// NSDate.h, as far as the macOS provider uses it.
#pragma once

// Seconds.
typedef double NSTimeInterval;
