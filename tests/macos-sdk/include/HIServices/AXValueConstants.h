// AXValueConstants.h: the kinds of value an AXValue boxes.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

typedef CF_ENUM(UInt32, AXValueType) {
    kAXValueTypeCGPoint API_AVAILABLE(macos(10.11)) = 1,
    kAXValueTypeCGSize API_AVAILABLE(macos(10.11)) = 2,
    kAXValueTypeCGRect API_AVAILABLE(macos(10.11)) = 3,
    kAXValueTypeCFRange API_AVAILABLE(macos(10.11)) = 4,
    kAXValueTypeAXError API_AVAILABLE(macos(10.11)) = 5,
    kAXValueTypeIllegal API_AVAILABLE(macos(10.11)) = 0,
};
