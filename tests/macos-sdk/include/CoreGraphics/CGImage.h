// CGImage.h, as far as the macOS provider uses it.
#pragma once

#include <CoreGraphics/CGBase.h>

CF_EXTERN_C_BEGIN
CF_ASSUME_NONNULL_BEGIN

typedef struct CF_BRIDGED_TYPE(id) CGImage* CGImageRef;

CF_ASSUME_NONNULL_END
CF_EXTERN_C_END
