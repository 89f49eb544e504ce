// NSArray.h, as far as the macOS provider uses it.
#pragma once

#import <Foundation/NSEnumerator.h>
#import <Foundation/NSObject.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSArray<__covariant ObjectType> : NSObject <NSCopying, NSFastEnumeration>
// What an array literal @[...] calls.
+ (instancetype)arrayWithObjects:(const ObjectType _Nonnull[_Nonnull])objects count:(NSUInteger)cnt;
@end

NS_ASSUME_NONNULL_END
