#pragma once

// Conversions between the agent's UTF-8 strings and Foundation's objects, for
// the Objective-C++ files of the macOS provider.

#import <Foundation/Foundation.h>

#include <optional>
#include <string>

namespace velmora::native {

// NSString initWithBytes:length:encoding: with UTF-8; nil when the text is not
// valid UTF-8.
inline NSString* toNSString(const std::string& text) {
    return [[NSString alloc] initWithBytes:text.data()
                                    length:text.size()
                                  encoding:NSUTF8StringEncoding];
}

// NSString UTF8String; empty for nil.
inline std::string toString(NSString* text) {
    const char* utf8 = text.UTF8String;
    return utf8 != nullptr ? std::string(utf8) : std::string();
}

// NSURL path; none for a nil URL or a URL without a path.
inline std::optional<std::string> pathOf(NSURL* url) {
    NSString* path = url.path;
    if (path == nil) {
        return std::nullopt;
    }
    return toString(path);
}

// The error's default textual description (NSObject description), the text the
// agent reports for a platform error.
inline std::string describe(NSError* error) {
    return toString(error.description);
}

}  // namespace velmora::native
