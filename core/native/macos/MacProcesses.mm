// Forced activation: osascript run as a child process over NSTask.

#include "core/native/macos/MacPlatform.h"

#import <Foundation/Foundation.h>

#include <string>
#include <vector>

#include "core/native/OsascriptActivation.h"
#include "core/native/macos/MacStrings.h"

namespace velmora::native {

namespace {

// NSTask init, setExecutableURL:, setArguments:, launchAndReturnError:. The
// standard streams are left alone, so the child inherits the agent's own. Nil
// when it cannot be started.
NSTask* startTask(const std::string& executable, const std::vector<std::string>& arguments) {
    NSString* path = toNSString(executable);
    if (path == nil || executable.empty()) {
        return nil;
    }
    std::vector<NSString*> texts;
    texts.reserve(arguments.size());
    for (const std::string& argument : arguments) {
        NSString* text = toNSString(argument);
        if (text == nil) {
            return nil;
        }
        texts.push_back(text);
    }
    NSTask* task = [[NSTask alloc] init];
    task.executableURL = [NSURL fileURLWithPath:path];
    task.arguments = [NSArray arrayWithObjects:texts.data() count:texts.size()];
    NSError* error = nil;
    if (![task launchAndReturnError:&error]) {
        return nil;
    }
    return task;
}

}  // namespace

void MacPlatform::forceActivateApplication(const std::string& bundleId, int32_t /*processId*/) {
    @autoreleasepool {
        // AppleScript activates by bundle identifier; a child that cannot start
        // is not waited for, and its exit status is not looked at.
        NSTask* task = startTask(kOsascriptPath, osascriptActivationArguments(bundleId));
        if (task != nil) {
            [task waitUntilExit];
        }
    }
}

}  // namespace velmora::native
