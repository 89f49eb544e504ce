// SCShareableContent.h, as far as the macOS provider uses it.
#pragma once

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

API_AVAILABLE(macos(12.3))
@interface SCWindow : NSObject
@end

API_AVAILABLE(macos(12.3))
@interface SCDisplay : NSObject
// In points.
@property(readonly) NSInteger width;
@property(readonly) NSInteger height;
@end

API_AVAILABLE(macos(12.3))
@interface SCShareableContent : NSObject
// The completion handler runs on a queue of ScreenCaptureKit's own.
+ (void)getShareableContentWithCompletionHandler:
    (void (^)(SCShareableContent* _Nullable shareableContent,
              NSError* _Nullable error))completionHandler;
@property(readonly) NSArray<SCDisplay*>* displays;
@end

NS_ASSUME_NONNULL_END
