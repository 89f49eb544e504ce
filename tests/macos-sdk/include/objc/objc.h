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

// BOOL is bool on Apple silicon and a signed char on Intel Macs; the compiler
// says which through __OBJC_BOOL_IS_BOOL.
#if defined(__OBJC_BOOL_IS_BOOL) && __OBJC_BOOL_IS_BOOL
typedef bool BOOL;
#else
typedef signed char BOOL;
#endif

#define YES __objc_yes
#define NO __objc_no

#if defined(__cplusplus)
#define nil nullptr
#else
#define nil ((void*)0)
#endif
