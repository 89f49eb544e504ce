// NSTask.h, as far as the macOS provider uses it. A task inherits the standard
// streams of the process that starts it unless told otherwise.
#pragma once

#import <Foundation/NSArray.h>
#import <Foundation/NSError.h>
#import <Foundation/NSObject.h>
#import <Foundation/NSString.h>
#import <Foundation/NSURL.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSTask : NSObject
- (instancetype)init NS_DESIGNATED_INITIALIZER;
@property(nullable, copy) NSURL* executableURL API_AVAILABLE(macos(10.13));
@property(nullable, copy) NSArray<NSString*>* arguments;
- (BOOL)launchAndReturnError:(out NSError** _Nullable)error API_AVAILABLE(macos(10.13));
- (void)waitUntilExit;
@end

NS_ASSUME_NONNULL_END
