// NSRunningApplication.h, as far as the macOS provider uses it.
#pragma once

#include <sys/types.h>

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

typedef NS_OPTIONS(NSUInteger, NSApplicationActivationOptions) {
    NSApplicationActivateAllWindows = 1 << 0,
    NSApplicationActivateIgnoringOtherApps API_DEPRECATED(
        "ignoringOtherApps is deprecated in macOS 14 and will have no effect.",
        macos(10.6, 14.0)) = 1 << 1,
};

API_AVAILABLE(macos(10.6))
@interface NSRunningApplication : NSObject
@property(nullable, readonly, copy) NSString* bundleIdentifier;
@property(nullable, readonly, copy) NSURL* bundleURL;
@property(nullable, readonly, copy) NSURL* executableURL;
@property(readonly) pid_t processIdentifier;
- (BOOL)activateWithOptions:(NSApplicationActivationOptions)options;
// In the system's order; empty when no instance runs.
+ (NSArray<NSRunningApplication*>*)runningApplicationsWithBundleIdentifier:
    (NSString*)bundleIdentifier;
+ (nullable instancetype)runningApplicationWithProcessIdentifier:(pid_t)pid;
@end

NS_ASSUME_NONNULL_END
