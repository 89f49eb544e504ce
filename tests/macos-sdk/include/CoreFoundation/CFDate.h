// CFDate.h, as far as the macOS provider uses it.
#pragma once

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

// Seconds, as a double.
typedef double CFTimeInterval;

CF_EXTERN_C_END
