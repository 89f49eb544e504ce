// CGWindow.h, as far as the macOS provider uses it: the screen-capture permission.
#pragma once

#include <CoreGraphics/CGBase.h>

CF_EXTERN_C_BEGIN

// Whether the process may capture the screen; never prompts.
CG_EXTERN bool CGPreflightScreenCaptureAccess(void) API_AVAILABLE(macos(10.15));
// Asks the user for screen-capture access when it has not been decided yet.
CG_EXTERN bool CGRequestScreenCaptureAccess(void) API_AVAILABLE(macos(10.15));

CF_EXTERN_C_END
