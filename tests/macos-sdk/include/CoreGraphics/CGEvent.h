// CGEvent.h, as far as the macOS provider uses it. Created events follow the
// Create rule: release them with CFRelease.
#pragma once

#include <CoreGraphics/CGBase.h>
#include <CoreGraphics/CGEventTypes.h>
#include <CoreGraphics/CGGeometry.h>
#include <CoreGraphics/CGRemoteOperation.h>

CF_EXTERN_C_BEGIN
CF_ASSUME_NONNULL_BEGIN

CG_EXTERN CGEventRef _Nullable CGEventCreateMouseEvent(CGEventSourceRef _Nullable source,
                                                       CGEventType mouseType,
                                                       CGPoint mouseCursorPosition,
                                                       CGMouseButton mouseButton)
    API_AVAILABLE(macos(10.4));

CG_EXTERN CGEventRef _Nullable CGEventCreateKeyboardEvent(CGEventSourceRef _Nullable source,
                                                          CGKeyCode virtualKey, bool keyDown)
    API_AVAILABLE(macos(10.4));

CG_EXTERN CGEventRef _Nullable CGEventCreateScrollWheelEvent2(CGEventSourceRef _Nullable source,
                                                              CGScrollEventUnit units,
                                                              uint32_t wheelCount, int32_t wheel1,
                                                              int32_t wheel2, int32_t wheel3)
    API_AVAILABLE(macos(10.13));

CG_EXTERN void CGEventSetFlags(CGEventRef _Nullable event, CGEventFlags flags)
    API_AVAILABLE(macos(10.4));

CG_EXTERN void CGEventSetIntegerValueField(CGEventRef _Nullable event, CGEventField field,
                                           int64_t value) API_AVAILABLE(macos(10.4));

CG_EXTERN void CGEventKeyboardSetUnicodeString(CGEventRef _Nullable event,
                                               UniCharCount stringLength,
                                               const UniChar* _Nullable unicodeString)
    API_AVAILABLE(macos(10.4));

CG_EXTERN void CGEventPost(CGEventTapLocation tap, CGEventRef _Nullable event)
    API_AVAILABLE(macos(10.4));

CF_ASSUME_NONNULL_END
CF_EXTERN_C_END
