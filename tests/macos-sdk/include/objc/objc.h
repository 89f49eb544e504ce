// <objc/objc.h>: the basic Objective-C types.
#pragma once

#if !defined(__OBJC__)
#error "objc/objc.h is for Objective-C and Objective-C++ only"
#endif

typedef struct objc_class* Class;
typedef struct objc_object {
    Class isa;
} * id;
typedef struct objc_selector* SEL;

// BOOL is bool on Apple silicon and a signed char on Intel Macs. The compiler
// says which through __OBJC_BOOL_IS_BOOL (1 for arm64, 0 for x86_64 macOS
// targets); without it a macOS build has the signed char.
#if defined(__OBJC_BOOL_IS_BOOL)
#if __OBJC_BOOL_IS_BOOL
#define OBJC_BOOL_IS_BOOL 1
#else
#define OBJC_BOOL_IS_BOOL 0
#endif
#else
#define OBJC_BOOL_IS_BOOL 0
#endif

#if OBJC_BOOL_IS_BOOL
typedef bool BOOL;
#else
#define OBJC_BOOL_IS_CHAR 1
typedef signed char BOOL;
#endif

#define YES __objc_yes
#define NO __objc_no

#if defined(__cplusplus)
#define nil nullptr
#else
#define nil ((void*)0)
#endif
