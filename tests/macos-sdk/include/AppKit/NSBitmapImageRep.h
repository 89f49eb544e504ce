// NSBitmapImageRep.h, as far as the macOS provider uses it.
#pragma once

#import <AppKit/NSImageRep.h>
#include <CoreGraphics/CoreGraphics.h>
#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

typedef NS_ENUM(NSUInteger, NSBitmapImageFileType) {
    NSBitmapImageFileTypeTIFF,
    NSBitmapImageFileTypeBMP,
    NSBitmapImageFileTypeGIF,
    NSBitmapImageFileTypeJPEG,
    NSBitmapImageFileTypePNG,
    NSBitmapImageFileTypeJPEG2000,
};

typedef NSString* NSBitmapImageRepPropertyKey NS_TYPED_EXTENSIBLE_ENUM;

@interface NSBitmapImageRep : NSImageRep
- (instancetype)initWithCGImage:(CGImageRef)cgImage API_AVAILABLE(macos(10.5));
@end

@interface NSBitmapImageRep (NSBitmapImageFileTypeExtensions)
// nil when the image cannot be encoded in that type.
- (nullable NSData*)representationUsingType:(NSBitmapImageFileType)storageType
                                 properties:
                                     (NSDictionary<NSBitmapImageRepPropertyKey, id>*)properties;
@end

NS_ASSUME_NONNULL_END
