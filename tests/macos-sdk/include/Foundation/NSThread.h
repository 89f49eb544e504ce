// NSThread.h, as far as the macOS provider uses it.
#pragma once

#import <Foundation/NSDate.h>
#import <Foundation/NSObject.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSThread : NSObject
+ (void)sleepForTimeInterval:(NSTimeInterval)ti;
@property(class, readonly)
    BOOL isMainThread API_AVAILABLE(macos(10.5), ios(2.0), watchos(2.0), tvos(9.0));
@end

NS_ASSUME_NONNULL_END
