// NSThread.h, as far as the macOS provider uses it.
#pragma once

#import <Foundation/NSDate.h>
#import <Foundation/NSObject.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSThread : NSObject
+ (void)sleepForTimeInterval:(NSTimeInterval)ti;
@end

NS_ASSUME_NONNULL_END
