// CGEventSource.h, as far as the macOS provider uses it.
#pragma once

#include <CoreGraphics/CGEventTypes.h>

CF_EXTERN_C_BEGIN
CF_ASSUME_NONNULL_BEGIN

// Follows the Create rule: release with CFRelease.
CG_EXTERN CGEventSourceRef _Nullable CGEventSourceCreate(CGEventSourceStateID stateID)
    API_AVAILABLE(macos(10.4));

CF_ASSUME_NONNULL_END
CF_EXTERN_C_END
