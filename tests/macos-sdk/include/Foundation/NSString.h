// NSString.h, as far as the macOS provider uses it.
#pragma once

#import <Foundation/NSObject.h>

NS_ASSUME_NONNULL_BEGIN

typedef NSUInteger NSStringEncoding;

enum : NSStringEncoding {
    NSASCIIStringEncoding = 1,
    NSNEXTSTEPStringEncoding = 2,
    NSJapaneseEUCStringEncoding = 3,
    NSUTF8StringEncoding = 4,
};

@interface NSString : NSObject <NSCopying>
// NULL when the string cannot be converted losslessly.
@property(nullable, readonly) const char* UTF8String NS_RETURNS_INNER_POINTER;
// nil when the bytes are not valid in the encoding.
- (nullable instancetype)initWithBytes:(const void*)bytes
                                length:(NSUInteger)len
                              encoding:(NSStringEncoding)encoding;
@end

NS_ASSUME_NONNULL_END
