// <os/object.h>: how libdispatch objects are declared. In Objective-C they are
// Objective-C objects, so automatic reference counting manages them.
#pragma once

#if !defined(__OBJC__)
#error "only the Objective-C form of the OS object declarations is transcribed"
#endif

#import <objc/NSObject.h>

#define OS_OBJECT_USE_OBJC 1
#define OS_OBJECT_RETURNS_RETAINED __attribute__((__ns_returns_retained__))

#define OS_OBJECT_DECL_PROTOCOL(name, ...) \
    @protocol OS_                          \
    ##name __VA_ARGS__ @end
#define OS_OBJECT_DECL_CLASS(name)            \
    OS_OBJECT_DECL_PROTOCOL(name, <NSObject>) \
    typedef NSObject<OS_##name>* name##_t
#define OS_OBJECT_DECL_SUBCLASS(name, super)    \
    OS_OBJECT_DECL_PROTOCOL(name, <OS_##super>) \
    typedef NSObject<OS_##name>* name##_t
