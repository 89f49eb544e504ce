// AXUIElement.h, as far as the macOS provider uses it.
#pragma once

#include <sys/types.h>

#include <CoreFoundation/CoreFoundation.h>
#include <HIServices/AXError.h>

CF_EXTERN_C_BEGIN
CF_ASSUME_NONNULL_BEGIN

typedef const struct CF_BRIDGED_TYPE(id) __AXUIElement* AXUIElementRef;

// Whether this process is a trusted accessibility client.
CF_EXPORT Boolean AXIsProcessTrusted(void) API_AVAILABLE(macos(10.4));

CF_EXPORT CFTypeID AXUIElementGetTypeID(void);

// The top-level element of the application with this process id (the Create rule).
CF_EXPORT AXUIElementRef AXUIElementCreateApplication(pid_t pid);

// On success *value holds a retained value (the Copy rule) or NULL.
CF_EXPORT AXError AXUIElementCopyAttributeValue(AXUIElementRef element, CFStringRef attribute,
                                                CFTypeRef _Nullable* _Nonnull value);

// Sets the time-out of requests to the element's application; 0 restores the
// global default.
CF_EXPORT AXError AXUIElementSetMessagingTimeout(AXUIElementRef element, float timeoutInSeconds);

CF_ASSUME_NONNULL_END
CF_EXTERN_C_END
