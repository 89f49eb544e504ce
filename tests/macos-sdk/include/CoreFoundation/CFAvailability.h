// The declaration macros of CoreFoundation: CF_ENUM and CF_OPTIONS give a fixed
// underlying type. In C++ a CF_ENUM is a distinct enumeration type (an integer
// does not convert to it implicitly) while a CF_OPTIONS type is the integer type
// itself, as in Apple's headers.
#pragma once

#include <os/availability.h>

#if defined(__cplusplus)
#define CF_EXTERN_C_BEGIN extern "C" {
#define CF_EXTERN_C_END }
#define CF_EXPORT extern "C"
#else
#define CF_EXTERN_C_BEGIN
#define CF_EXTERN_C_END
#define CF_EXPORT extern
#endif

#define CF_INLINE static __inline__ __attribute__((always_inline))

#define CF_ENUM(_type, _name) \
    enum _name : _type _name; \
    enum _name : _type
#if defined(__cplusplus)
#define CF_OPTIONS(_type, _name) \
    _type _name;                 \
    enum : _type
#else
#define CF_OPTIONS(_type, _name) \
    enum _name : _type _name;    \
    enum _name : _type
#endif

#if defined(__OBJC__)
#define CF_BRIDGED_TYPE(T) __attribute__((objc_bridge(T)))
#define CF_BRIDGED_MUTABLE_TYPE(T) __attribute__((objc_bridge_mutable(T)))
#else
#define CF_BRIDGED_TYPE(T)
#define CF_BRIDGED_MUTABLE_TYPE(T)
#endif

#define CF_RETURNS_RETAINED __attribute__((cf_returns_retained))
#define CF_ASSUME_NONNULL_BEGIN _Pragma("clang assume_nonnull begin")
#define CF_ASSUME_NONNULL_END _Pragma("clang assume_nonnull end")
