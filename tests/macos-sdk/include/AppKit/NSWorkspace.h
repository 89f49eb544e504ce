// NSWorkspace.h, as far as the macOS provider uses it.
#pragma once

#import <AppKit/NSRunningApplication.h>
#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

API_AVAILABLE(macos(10.15))
@interface NSWorkspaceOpenConfiguration : NSObject <NSCopying>
+ (instancetype)configuration;
@property BOOL activates;
@end

@interface NSWorkspace : NSObject
@property(class, readonly, strong) NSWorkspace* sharedWorkspace;
- (nullable NSURL*)URLForApplicationWithBundleIdentifier:(NSString*)bundleIdentifier
    API_AVAILABLE(macos(10.6));
// The completion handler runs on a queue of the workspace's own, not the caller's.
- (void)openApplicationAtURL:(NSURL*)applicationURL
               configuration:(NSWorkspaceOpenConfiguration*)configuration
           completionHandler:(void (^_Nullable)(NSRunningApplication* _Nullable app,
                                                NSError* _Nullable error))completionHandler
    API_AVAILABLE(macos(10.15));
@end

@interface NSWorkspace (NSWorkspaceRunningApplications)
@property(nullable, readonly, strong)
    NSRunningApplication* frontmostApplication API_AVAILABLE(macos(10.7));
@end

NS_ASSUME_NONNULL_END
