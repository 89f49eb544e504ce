// <objc/NSObject.h>: the root class and its protocol, as far as the macOS
// provider uses them.
#pragma once

#include <objc/objc.h>

@class NSString;

_Pragma("clang assume_nonnull begin")

    @protocol NSObject
// The default textual description of the object.
@property(readonly, copy) NSString* description;
@end

__attribute__((objc_root_class))
@interface NSObject<NSObject> {
    Class isa;
}
+ (instancetype)alloc;
- (instancetype)init;
@end

_Pragma("clang assume_nonnull end")
