// Whole-file reads and writes over NSData.

#include "core/native/macos/MacPlatform.h"

#import <Foundation/Foundation.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/model/DriverError.h"
#include "core/native/macos/MacStrings.h"

namespace velmora::native {

namespace {

// Keeps the NSData, and with it the mapping of the file, alive.
struct DataHolder {
    NSData* data;
};

}  // namespace

FileContents MacPlatform::readFile(const std::string& path) {
    FileContents contents;
    std::optional<std::string> failure;
    @autoreleasepool {
        // NSData dataWithContentsOfFile:options:NSDataReadingMappedIfSafe error:
        // (A path that is not UTF-8 becomes the empty path, which reads nothing.)
        NSString* file = toNSString(path);
        NSError* error = nil;
        NSData* data = [NSData dataWithContentsOfFile:(file != nil ? file : @"")
                                              options:NSDataReadingMappedIfSafe
                                                error:&error];
        if (data == nil) {
            failure = describe(error);
        } else {
            contents.data = static_cast<const uint8_t*>(data.bytes);
            contents.size = data.length;
            contents.owner = std::make_shared<const DataHolder>(DataHolder{.data = data});
        }
    }
    if (failure) {
        throw PlatformError(*failure);
    }
    return contents;
}

void MacPlatform::writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::optional<std::string> failure;
    @autoreleasepool {
        // NSData dataWithBytes:length:, then writeToFile:options:error: with no
        // options: a plain, non-atomic write over any existing file, creating no
        // directory.
        NSString* file = toNSString(path);
        NSData* data = [NSData dataWithBytes:bytes.data() length:bytes.size()];
        NSError* error = nil;
        if (![data writeToFile:(file != nil ? file : @"") options:0 error:&error]) {
            failure = describe(error);
        }
    }
    if (failure) {
        throw PlatformError(*failure);
    }
}

}  // namespace velmora::native
