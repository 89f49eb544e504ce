// CGBase.h, as far as the macOS provider uses it.
#pragma once

#include <stdbool.h>
#include <stdint.h>

#include <CoreFoundation/CoreFoundation.h>

#define CG_EXTERN CF_EXPORT

// CGFloat is a double on 64-bit systems.
typedef double CGFloat;
