// NSError.h, as far as the macOS provider uses it. The provider reports an error
// by its `description` (declared by the NSObject protocol).
#pragma once

#import <Foundation/NSObject.h>
#import <Foundation/NSString.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSError : NSObject <NSCopying>
@end

NS_ASSUME_NONNULL_END
