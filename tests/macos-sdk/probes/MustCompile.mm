// Must compile for every target: BOOL has the architecture's own type, as
// Apple's <objc/objc.h> gives it, and a newer API behind an availability check
// is accepted.
#import <Foundation/Foundation.h>

#include <type_traits>

#if defined(__arm64__)
static_assert(std::is_same_v<BOOL, bool>, "BOOL is bool on Apple silicon");
#elif defined(__x86_64__)
static_assert(std::is_same_v<BOOL, signed char>, "BOOL is a signed char on Intel Macs");
#else
#error "an architecture of the universal binary was expected"
#endif

// Stands for an Apple API newer than the deployment target.
void newerThanTheTarget(void) API_AVAILABLE(macos(15.0));

void guardedCall() {
    if (@available(macOS 15.0, *)) {
        newerThanTheTarget();
    }
}
