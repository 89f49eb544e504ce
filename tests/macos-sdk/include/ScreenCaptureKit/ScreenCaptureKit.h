// The ScreenCaptureKit umbrella header, as far as the macOS provider uses it.
#pragma once

#import <ScreenCaptureKit/SCScreenshotManager.h>
#import <ScreenCaptureKit/SCShareableContent.h>
#import <ScreenCaptureKit/SCStream.h>
