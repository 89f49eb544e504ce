// NSObjCRuntime.h, as far as the macOS provider uses it.
#pragma once

#include <stdint.h>

#include <CoreFoundation/CFAvailability.h>
#include <objc/objc.h>

// 64-bit integers on 64-bit systems.
typedef long NSInteger;
typedef unsigned long NSUInteger;

#define NS_ENUM(_type, _name) CF_ENUM(_type, _name)
#define NS_OPTIONS(_type, _name) CF_OPTIONS(_type, _name)
#define NS_TYPED_EXTENSIBLE_ENUM __attribute__((swift_wrapper(struct)))

#define NS_ASSUME_NONNULL_BEGIN _Pragma("clang assume_nonnull begin")
#define NS_ASSUME_NONNULL_END _Pragma("clang assume_nonnull end")

#define NS_DESIGNATED_INITIALIZER __attribute__((objc_designated_initializer))
#define NS_RETURNS_INNER_POINTER __attribute__((objc_returns_inner_pointer))

#define FOUNDATION_EXTERN CF_EXPORT
