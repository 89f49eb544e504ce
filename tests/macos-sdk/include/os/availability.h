// <os/availability.h>: Apple's availability annotations, with Apple's meaning.
// Each platform argument becomes clang's availability attribute, so that, built
// for a macOS target, a call to an API newer than the deployment target outside
// an @available check fails -Wunguarded-availability-new, and a call to a
// deprecated one fails -Wdeprecated-declarations, as they do against the SDK:
//
//   API_AVAILABLE(macos(10.15), ios(13.0))          introduced in these releases
//   API_DEPRECATED("why", macos(10.6, 14.0))        introduced, then deprecated
//   API_DEPRECATED_WITH_REPLACEMENT("newName", macos(10.0, 10.13))
//   API_UNAVAILABLE(ios, tvos)                      never on these platforms
//
// API_TO_BE_DEPRECATED is the version Apple gives to APIs it intends to
// deprecate later; such a deprecation never fires.
#pragma once

#include <Availability.h>

#define API_TO_BE_DEPRECATED 100000

#define __API_AVAILABLE_PLATFORM_macos(x) macos, introduced = x
#define __API_AVAILABLE_PLATFORM_macosx(x) macosx, introduced = x
#define __API_AVAILABLE_PLATFORM_ios(x) ios, introduced = x
#define __API_AVAILABLE_PLATFORM_macCatalyst(x) macCatalyst, introduced = x
#define __API_AVAILABLE_PLATFORM_watchos(x) watchos, introduced = x
#define __API_AVAILABLE_PLATFORM_tvos(x) tvos, introduced = x
#define __API_AVAILABLE_PLATFORM_driverkit(x) driverkit, introduced = x

#define __API_DEPRECATED_PLATFORM_macos(x, y) macos, introduced = x, deprecated = y
#define __API_DEPRECATED_PLATFORM_macosx(x, y) macosx, introduced = x, deprecated = y
#define __API_DEPRECATED_PLATFORM_ios(x, y) ios, introduced = x, deprecated = y
#define __API_DEPRECATED_PLATFORM_macCatalyst(x, y) macCatalyst, introduced = x, deprecated = y
#define __API_DEPRECATED_PLATFORM_watchos(x, y) watchos, introduced = x, deprecated = y
#define __API_DEPRECATED_PLATFORM_tvos(x, y) tvos, introduced = x, deprecated = y
#define __API_DEPRECATED_PLATFORM_driverkit(x, y) driverkit, introduced = x, deprecated = y

#define __API_UNAVAILABLE_PLATFORM_macos macos, unavailable
#define __API_UNAVAILABLE_PLATFORM_macosx macosx, unavailable
#define __API_UNAVAILABLE_PLATFORM_ios ios, unavailable
#define __API_UNAVAILABLE_PLATFORM_macCatalyst macCatalyst, unavailable
#define __API_UNAVAILABLE_PLATFORM_watchos watchos, unavailable
#define __API_UNAVAILABLE_PLATFORM_tvos tvos, unavailable
#define __API_UNAVAILABLE_PLATFORM_driverkit driverkit, unavailable

// One attribute per platform argument.
#define __API_A(x) __attribute__((availability(__API_AVAILABLE_PLATFORM_##x)))
#define __API_D(msg, x) __attribute__((availability(__API_DEPRECATED_PLATFORM_##x, message = msg)))
#define __API_R(rep, x) \
    __attribute__((availability(__API_DEPRECATED_PLATFORM_##x, replacement = rep)))
#define __API_U(x) __attribute__((availability(__API_UNAVAILABLE_PLATFORM_##x)))

#define __API_PICK(_1, _2, _3, _4, _5, _6, _7, NAME, ...) NAME

#define __API_A1(a) __API_A(a)
#define __API_A2(a, b) __API_A(a) __API_A(b)
#define __API_A3(a, b, c) __API_A(a) __API_A(b) __API_A(c)
#define __API_A4(a, b, c, d) __API_A(a) __API_A(b) __API_A(c) __API_A(d)
#define __API_A5(a, b, c, d, e) __API_A(a) __API_A(b) __API_A(c) __API_A(d) __API_A(e)
#define __API_A6(a, b, c, d, e, f) __API_A5(a, b, c, d, e) __API_A(f)
#define __API_A7(a, b, c, d, e, f, g) __API_A6(a, b, c, d, e, f) __API_A(g)
#define API_AVAILABLE(...)                                                              \
    __API_PICK(__VA_ARGS__, __API_A7, __API_A6, __API_A5, __API_A4, __API_A3, __API_A2, \
               __API_A1, )                                                              \
    (__VA_ARGS__)

#define __API_D1(m, a) __API_D(m, a)
#define __API_D2(m, a, b) __API_D(m, a) __API_D(m, b)
#define __API_D3(m, a, b, c) __API_D2(m, a, b) __API_D(m, c)
#define __API_D4(m, a, b, c, d) __API_D3(m, a, b, c) __API_D(m, d)
#define __API_D5(m, a, b, c, d, e) __API_D4(m, a, b, c, d) __API_D(m, e)
#define __API_D6(m, a, b, c, d, e, f) __API_D5(m, a, b, c, d, e) __API_D(m, f)
#define API_DEPRECATED(m, ...)                                                          \
    __API_PICK(__VA_ARGS__, __API_D6, __API_D6, __API_D5, __API_D4, __API_D3, __API_D2, \
               __API_D1, )                                                              \
    (m, __VA_ARGS__)

#define __API_R1(r, a) __API_R(r, a)
#define __API_R2(r, a, b) __API_R(r, a) __API_R(r, b)
#define __API_R3(r, a, b, c) __API_R2(r, a, b) __API_R(r, c)
#define __API_R4(r, a, b, c, d) __API_R3(r, a, b, c) __API_R(r, d)
#define __API_R5(r, a, b, c, d, e) __API_R4(r, a, b, c, d) __API_R(r, e)
#define __API_R6(r, a, b, c, d, e, f) __API_R5(r, a, b, c, d, e) __API_R(r, f)
#define API_DEPRECATED_WITH_REPLACEMENT(r, ...)                                         \
    __API_PICK(__VA_ARGS__, __API_R6, __API_R6, __API_R5, __API_R4, __API_R3, __API_R2, \
               __API_R1, )                                                              \
    (r, __VA_ARGS__)

#define __API_U1(a) __API_U(a)
#define __API_U2(a, b) __API_U(a) __API_U(b)
#define __API_U3(a, b, c) __API_U2(a, b) __API_U(c)
#define __API_U4(a, b, c, d) __API_U3(a, b, c) __API_U(d)
#define __API_U5(a, b, c, d, e) __API_U4(a, b, c, d) __API_U(e)
#define __API_U6(a, b, c, d, e, f) __API_U5(a, b, c, d, e) __API_U(f)
#define __API_U7(a, b, c, d, e, f, g) __API_U6(a, b, c, d, e, f) __API_U(g)
#define API_UNAVAILABLE(...)                                                            \
    __API_PICK(__VA_ARGS__, __API_U7, __API_U6, __API_U5, __API_U4, __API_U3, __API_U2, \
               __API_U1, )                                                              \
    (__VA_ARGS__)
