// CFRunLoop.h, as far as the macOS provider uses it.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDate.h>

CF_EXTERN_C_BEGIN
CF_ASSUME_NONNULL_BEGIN

typedef CFStringRef CFRunLoopMode;

typedef struct __CFRunLoop* CFRunLoopRef;
typedef struct __CFRunLoopSource* CFRunLoopSourceRef;

// Why CFRunLoopRunInMode returned.
typedef CF_ENUM(SInt32, CFRunLoopRunResult) {
    kCFRunLoopRunFinished = 1,
    kCFRunLoopRunStopped = 2,
    kCFRunLoopRunTimedOut = 3,
    kCFRunLoopRunHandledSource = 4,
};

CF_EXPORT const CFRunLoopMode kCFRunLoopDefaultMode;

CF_EXPORT CFRunLoopRef CFRunLoopGetCurrent(void);
CF_EXPORT CFRunLoopRef CFRunLoopGetMain(void);

CF_EXPORT CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                                Boolean returnAfterSourceHandled);
CF_EXPORT void CFRunLoopWakeUp(CFRunLoopRef rl);
CF_EXPORT void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode);

// A version 0 source: signalled by hand, then performed by the loop that runs it.
typedef struct {
    CFIndex version;
    void* _Nullable info;
    const void* _Nonnull (*_Nullable retain)(const void* _Nullable info);
    void (*_Nullable release)(const void* _Nullable info);
    CFStringRef _Nonnull (*_Nullable copyDescription)(const void* _Nullable info);
    Boolean (*_Nullable equal)(const void* _Nullable info1, const void* _Nullable info2);
    CFHashCode (*_Nullable hash)(const void* _Nullable info);
    void (*_Nullable schedule)(void* _Nullable info, CFRunLoopRef _Nullable rl,
                               CFRunLoopMode _Nullable mode);
    void (*_Nullable cancel)(void* _Nullable info, CFRunLoopRef _Nullable rl,
                             CFRunLoopMode _Nullable mode);
    void (*_Nullable perform)(void* _Nullable info);
} CFRunLoopSourceContext;

CF_EXPORT CFRunLoopSourceRef _Nullable CFRunLoopSourceCreate(
    CFAllocatorRef _Nullable allocator, CFIndex order,
    CFRunLoopSourceContext* context) CF_RETURNS_RETAINED;
CF_EXPORT void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source);
CF_EXPORT void CFRunLoopSourceSignal(CFRunLoopSourceRef source);

CF_ASSUME_NONNULL_END
CF_EXTERN_C_END
