// Foundation's NSObject.h, as far as the macOS provider uses it.
#pragma once

#import <Foundation/NSObjCRuntime.h>
#import <Foundation/NSZone.h>
#import <objc/NSObject.h>

NS_ASSUME_NONNULL_BEGIN

@protocol NSCopying
- (id)copyWithZone:(nullable NSZone*)zone;
@end

NS_ASSUME_NONNULL_END
