// Must not compile: the option is deprecated from macOS 14.0, the deployment target.
#import <AppKit/AppKit.h>

void deprecatedCall(NSRunningApplication* application) {
    [application activateWithOptions:NSApplicationActivateIgnoringOtherApps];
}
