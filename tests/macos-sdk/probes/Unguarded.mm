// Must not compile: an API newer than the deployment target, called without an
// availability check.
#import <Foundation/Foundation.h>

// Stands for an Apple API newer than the deployment target.
void newerThanTheTarget(void) API_AVAILABLE(macos(15.0));

void unguardedCall() {
    newerThanTheTarget();
}
