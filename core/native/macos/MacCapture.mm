// Screen capture over ScreenCaptureKit, PNG encoding over AppKit's
// NSBitmapImageRep, and the capture permission over CoreGraphics.

#include "core/native/macos/MacPlatform.h"

#import <AppKit/AppKit.h>
#include <CoreGraphics/CoreGraphics.h>
#import <Foundation/Foundation.h>
#import <ScreenCaptureKit/ScreenCaptureKit.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/native/macos/CFReference.h"
#include "core/native/macos/MacStrings.h"

namespace velmora::native {

namespace {

// The SCDisplay behind a Display.
struct DisplayHandle {
    SCDisplay* display;
};

// A CGImageRef, owned.
class MacImage final : public CapturedImage {
  public:
    explicit MacImage(CFReference image) : image_(std::move(image)) {}

    CGImageRef get() const { return static_cast<CGImageRef>(const_cast<void*>(image_.get())); }

  private:
    CFReference image_;
};

}  // namespace

void MacPlatform::shareableDisplays(std::function<void(std::optional<std::vector<Display>> displays,
                                                       std::optional<std::string> error)>
                                        completion) {
    @autoreleasepool {
        // SCShareableContent getShareableContentWithCompletionHandler:. The handler
        // runs on a queue of ScreenCaptureKit's, possibly after the caller has
        // stopped waiting; it holds its own copy of `completion`.
        [SCShareableContent getShareableContentWithCompletionHandler:^(
                                SCShareableContent* _Nullable content, NSError* _Nullable error) {
          if (error != nil) {
              completion(std::nullopt, describe(error));
              return;
          }
          if (content == nil) {
              completion(std::nullopt, std::nullopt);
              return;
          }
          // SCShareableContent displays, SCDisplay width and height, in the
          // platform's order.
          std::vector<Display> displays;
          for (SCDisplay* display in content.displays) {
              displays.push_back(Display{
                  .width = display.width,
                  .height = display.height,
                  .native = std::make_shared<DisplayHandle>(DisplayHandle{.display = display}),
              });
          }
          completion(std::move(displays), std::nullopt);
        }];
    }
}

void MacPlatform::captureImage(
    const Display& display, int64_t width, int64_t height,
    std::function<void(ImageRef image, std::optional<std::string> error)> completion) {
    @autoreleasepool {
        const auto* handle = static_cast<const DisplayHandle*>(display.native.get());
        if (handle == nullptr || handle->display == nil) {
            completion(nullptr, "not a display of the shareable content");
            return;
        }
        // SCStreamConfiguration init, setWidth:, setHeight:
        SCStreamConfiguration* configuration = [[SCStreamConfiguration alloc] init];
        configuration.width = static_cast<size_t>(width);
        configuration.height = static_cast<size_t>(height);
        // SCContentFilter initWithDisplay:excludingWindows: with no windows.
        SCContentFilter* filter = [[SCContentFilter alloc] initWithDisplay:handle->display
                                                          excludingWindows:@[]];
        // SCScreenshotManager captureImageWithFilter:configuration:completionHandler:.
        // The image is only lent to the handler, so the handler retains it
        // (CFRetain) for the CapturedImage that outlives the call.
        [SCScreenshotManager
            captureImageWithFilter:filter
                     configuration:configuration
                 completionHandler:^(CGImageRef _Nullable image, NSError* _Nullable error) {
                   if (error != nil) {
                       completion(nullptr, describe(error));
                   } else if (image == nullptr) {
                       completion(nullptr, std::nullopt);
                   } else {
                       completion(std::make_shared<const MacImage>(CFReference::retain(image)),
                                  std::nullopt);
                   }
                 }];
    }
}

std::optional<std::vector<uint8_t>> MacPlatform::encodePNG(const CapturedImage& image) {
    const auto* mac = dynamic_cast<const MacImage*>(&image);
    if (mac == nullptr) {
        return std::nullopt;
    }
    @autoreleasepool {
        // NSBitmapImageRep initWithCGImage:, then
        // representationUsingType:NSBitmapImageFileTypePNG properties:@{}.
        NSBitmapImageRep* representation = [[NSBitmapImageRep alloc] initWithCGImage:mac->get()];
        NSData* png = [representation representationUsingType:NSBitmapImageFileTypePNG
                                                   properties:@{}];
        if (png == nil) {
            return std::nullopt;
        }
        const auto* bytes = static_cast<const uint8_t*>(png.bytes);
        return std::vector<uint8_t>(bytes, bytes + png.length);
    }
}

bool MacPlatform::preflightScreenCaptureAccess() {
    // CGPreflightScreenCaptureAccess
    return CGPreflightScreenCaptureAccess();
}

bool MacPlatform::requestScreenCaptureAccess() {
    // CGRequestScreenCaptureAccess
    return CGRequestScreenCaptureAccess();
}

}  // namespace velmora::native
