// NSData.h, as far as the macOS provider uses it.
#pragma once

#import <Foundation/NSError.h>
#import <Foundation/NSObject.h>
#import <Foundation/NSString.h>

NS_ASSUME_NONNULL_BEGIN

typedef NS_OPTIONS(NSUInteger, NSDataReadingOptions) {
    NSDataReadingMappedIfSafe = 1UL << 0,
    NSDataReadingUncached = 1UL << 1,
    NSDataReadingMappedAlways API_AVAILABLE(macos(10.7)) = 1UL << 3,
};

typedef NS_OPTIONS(NSUInteger, NSDataWritingOptions) {
    NSDataWritingAtomic = 1UL << 0,
    NSDataWritingWithoutOverwriting API_AVAILABLE(macos(10.8)) = 1UL << 1,
};

@interface NSData : NSObject <NSCopying>
@property(readonly) NSUInteger length;
@property(readonly) const void* bytes NS_RETURNS_INNER_POINTER;
@end

@interface NSData (NSExtendedData)
- (BOOL)writeToFile:(NSString*)path
            options:(NSDataWritingOptions)writeOptionsMask
              error:(NSError**)errorPtr;
@end

@interface NSData (NSDataCreation)
+ (instancetype)dataWithBytes:(nullable const void*)bytes length:(NSUInteger)length;
+ (nullable instancetype)dataWithContentsOfFile:(NSString*)path
                                        options:(NSDataReadingOptions)readOptionsMask
                                          error:(NSError**)errorPtr;
@end

NS_ASSUME_NONNULL_END
