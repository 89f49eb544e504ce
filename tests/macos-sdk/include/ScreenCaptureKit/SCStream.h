// SCStream.h, as far as the macOS provider uses it: the filter and the
// configuration that a capture takes.
#pragma once

#include <stddef.h>

#import <Foundation/Foundation.h>
#import <ScreenCaptureKit/SCShareableContent.h>

NS_ASSUME_NONNULL_BEGIN

API_AVAILABLE(macos(12.3))
@interface SCContentFilter : NSObject
- (instancetype)initWithDisplay:(SCDisplay*)display excludingWindows:(NSArray<SCWindow*>*)excluded;
@end

API_AVAILABLE(macos(12.3))
@interface SCStreamConfiguration : NSObject
// Output size in pixels.
@property(nonatomic, assign) size_t width;
@property(nonatomic, assign) size_t height;
@end

NS_ASSUME_NONNULL_END
