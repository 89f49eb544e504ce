// The workspace over AppKit (NSWorkspace, NSRunningApplication) and NSBundle.

#include "core/native/macos/MacPlatform.h"

#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/native/macos/MacStrings.h"

namespace velmora::native {

std::optional<std::string> MacPlatform::frontmostApplicationBundleId() {
    @autoreleasepool {
        // NSWorkspace sharedWorkspace, frontmostApplication, bundleIdentifier
        NSString* bundleId = NSWorkspace.sharedWorkspace.frontmostApplication.bundleIdentifier;
        if (bundleId == nil) {
            return std::nullopt;
        }
        return toString(bundleId);
    }
}

std::vector<RunningApplication> MacPlatform::runningApplications(const std::string& bundleId) {
    std::vector<RunningApplication> applications;
    @autoreleasepool {
        NSString* identifier = toNSString(bundleId);
        if (identifier == nil) {
            return applications;
        }
        // NSRunningApplication runningApplicationsWithBundleIdentifier:, then
        // processIdentifier, bundleURL and executableURL of each.
        for (NSRunningApplication* application in
             [NSRunningApplication runningApplicationsWithBundleIdentifier:identifier]) {
            applications.push_back(RunningApplication{
                .processId = application.processIdentifier,
                .bundleLocation = pathOf(application.bundleURL),
                .executableLocation = pathOf(application.executableURL),
            });
        }
    }
    return applications;
}

std::optional<std::string> MacPlatform::applicationLocation(const std::string& bundleId) {
    @autoreleasepool {
        NSString* identifier = toNSString(bundleId);
        if (identifier == nil) {
            return std::nullopt;
        }
        // NSWorkspace URLForApplicationWithBundleIdentifier:
        return pathOf(
            [NSWorkspace.sharedWorkspace URLForApplicationWithBundleIdentifier:identifier]);
    }
}

std::optional<std::string> MacPlatform::bundleExecutableLocation(
    const std::string& bundleLocation) {
    @autoreleasepool {
        NSString* path = toNSString(bundleLocation);
        if (path == nil || bundleLocation.empty()) {
            return std::nullopt;
        }
        // NSBundle initWithURL: (nil when there is no bundle there), then executableURL.
        NSBundle* bundle = [[NSBundle alloc] initWithURL:[NSURL fileURLWithPath:path]];
        return pathOf(bundle.executableURL);
    }
}

void MacPlatform::openApplication(
    const std::string& location, bool activates,
    std::function<void(std::optional<std::string> error)> completion) {
    @autoreleasepool {
        NSString* path = toNSString(location);
        if (path == nil || location.empty()) {
            completion("no application at \"" + location + "\"");
            return;
        }
        // NSWorkspaceOpenConfiguration configuration, setActivates:
        NSWorkspaceOpenConfiguration* configuration = [NSWorkspaceOpenConfiguration configuration];
        configuration.activates = activates;
        // NSWorkspace openApplicationAtURL:configuration:completionHandler:. The
        // handler runs on a queue of the workspace's, possibly after the caller has
        // stopped waiting; it holds its own copy of `completion`.
        [NSWorkspace.sharedWorkspace
            openApplicationAtURL:[NSURL fileURLWithPath:path]
                   configuration:configuration
               completionHandler:^(NSRunningApplication* _Nullable application,
                                   NSError* _Nullable error) {
                 (void)application;
                 if (error != nil) {
                     completion(describe(error));
                 } else {
                     completion(std::nullopt);
                 }
               }];
    }
}

void MacPlatform::activateApplication(int32_t processId, uint32_t options) {
    @autoreleasepool {
        // NSRunningApplication runningApplicationWithProcessIdentifier:, then
        // activateWithOptions: (its answer is not reported).
        NSRunningApplication* application =
            [NSRunningApplication runningApplicationWithProcessIdentifier:processId];
        [application activateWithOptions:options];
    }
}

}  // namespace velmora::native
