// NSBundle.h, as far as the macOS provider uses it.
#pragma once

#import <Foundation/NSObject.h>
#import <Foundation/NSURL.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSBundle : NSObject
// nil when `url` names no bundle.
- (nullable instancetype)initWithURL:(NSURL*)url API_AVAILABLE(macos(10.6), ios(4.0));
@property(nullable, readonly, copy) NSURL* executableURL API_AVAILABLE(macos(10.6), ios(4.0));
@end

NS_ASSUME_NONNULL_END
