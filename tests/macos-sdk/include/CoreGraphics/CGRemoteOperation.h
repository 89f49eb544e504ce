// CGRemoteOperation.h, as far as the macOS provider uses it.
#pragma once

#include <CoreGraphics/CGBase.h>
#include <CoreGraphics/CGError.h>
#include <CoreGraphics/CGGeometry.h>

CF_EXTERN_C_BEGIN

// A virtual key code.
typedef uint16_t CGKeyCode;

// Moves the pointer without producing an event.
CG_EXTERN CGError CGWarpMouseCursorPosition(CGPoint newCursorPosition) API_AVAILABLE(macos(10.0));

CF_EXTERN_C_END
