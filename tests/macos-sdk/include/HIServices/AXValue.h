// AXValue.h, as far as the macOS provider uses it.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <HIServices/AXValueConstants.h>

CF_EXTERN_C_BEGIN
CF_ASSUME_NONNULL_BEGIN

typedef const struct CF_BRIDGED_TYPE(id) __AXValue* AXValueRef;

CF_EXPORT CFTypeID AXValueGetTypeID(void);
CF_EXPORT AXValueType AXValueGetType(AXValueRef value);
// Copies the boxed value into *valuePtr when it is of the asked kind.
CF_EXPORT Boolean AXValueGetValue(AXValueRef value, AXValueType theType, void* valuePtr);

CF_ASSUME_NONNULL_END
CF_EXTERN_C_END
