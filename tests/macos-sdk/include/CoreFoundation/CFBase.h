// CFBase.h, as far as the macOS provider uses it.
#pragma once

#include <TargetConditionals.h>

#include <CoreFoundation/CFAvailability.h>
#include <MacTypes.h>

CF_EXTERN_C_BEGIN
CF_ASSUME_NONNULL_BEGIN

typedef unsigned long CFTypeID;
typedef unsigned long CFHashCode;
typedef signed long CFIndex;

// A reference to any CoreFoundation object.
typedef const void* CFTypeRef;

typedef const struct CF_BRIDGED_TYPE(NSString) __CFString* CFStringRef;
typedef struct CF_BRIDGED_MUTABLE_TYPE(NSMutableString) __CFString* CFMutableStringRef;
typedef const struct __CFAllocator* CFAllocatorRef;

typedef struct {
    CFIndex location;
    CFIndex length;
} CFRange;

typedef unsigned long CFOptionFlags;

typedef CF_ENUM(CFIndex, CFComparisonResult) {
    kCFCompareLessThan = -1L,
    kCFCompareEqualTo = 0,
    kCFCompareGreaterThan = 1,
};

static const CFIndex kCFNotFound = -1;

CF_INLINE CFRange CFRangeMake(CFIndex loc, CFIndex len) {
    CFRange range;
    range.location = loc;
    range.length = len;
    return range;
}

// The default allocator (the same as passing NULL).
CF_EXPORT const CFAllocatorRef kCFAllocatorDefault;

CF_EXPORT CFTypeID CFGetTypeID(CFTypeRef cf);
CF_EXPORT CFTypeRef CFRetain(CFTypeRef cf);
CF_EXPORT void CFRelease(CFTypeRef cf);
CF_EXPORT Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2);

CF_ASSUME_NONNULL_END
CF_EXTERN_C_END
