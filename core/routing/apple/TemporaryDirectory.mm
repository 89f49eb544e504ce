#include "core/routing/TemporaryDirectory.h"

#import <Foundation/Foundation.h>

namespace velmora {

std::string platformTemporaryDirectory() {
    @autoreleasepool {
        NSString* directory = NSTemporaryDirectory();
        const char* path = directory.UTF8String;
        return path != nullptr ? std::string(path) : std::string("/tmp/");
    }
}

}  // namespace velmora
