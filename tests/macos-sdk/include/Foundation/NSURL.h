// NSURL.h, as far as the macOS provider uses it.
#pragma once

#import <Foundation/NSObject.h>
#import <Foundation/NSString.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSURL : NSObject <NSCopying>
// `path` must be a non-empty string; the call raises otherwise.
+ (NSURL*)fileURLWithPath:(NSString*)path;
@property(nullable, readonly, copy) NSString* path;
@end

NS_ASSUME_NONNULL_END
