// SCScreenshotManager.h, as far as the macOS provider uses it.
#pragma once

#include <CoreGraphics/CoreGraphics.h>
#import <Foundation/Foundation.h>
#import <ScreenCaptureKit/SCStream.h>

NS_ASSUME_NONNULL_BEGIN

API_AVAILABLE(macos(14.0))
@interface SCScreenshotManager : NSObject
// The image passed to the handler is only borrowed for the handler's duration.
+ (void)captureImageWithFilter:(SCContentFilter*)contentFilter
                 configuration:(SCStreamConfiguration*)config
             completionHandler:(nullable void (^)(CGImageRef _Nullable sampleBuffer,
                                                  NSError* _Nullable error))completionHandler;
@end

NS_ASSUME_NONNULL_END
