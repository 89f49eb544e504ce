#include "core/native/linux/desktop/DesktopWorkspace.h"

#include <algorithm>

#include <sys/stat.h>
#include <unistd.h>

#include "core/native/linux/desktop/ApplicationIdentity.h"
#include "core/native/linux/desktop/DesktopEntries.h"
#include "core/native/linux/desktop/ProcessTable.h"
#include "core/native/linux/x11/X11Windows.h"

namespace velmora::native::freedesktop {

namespace {

const char* const kNoDisplay =
    "no X11 display: DISPLAY is not set (only X11 sessions are supported)";

bool isExecutableFile(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           access(path.c_str(), X_OK) == 0;
}

}  // namespace

const std::vector<DesktopEntry>& DesktopWorkspace::installedEntries() {
    std::call_once(entriesRead_, [this] { entries_ = installedDesktopEntries(); });
    return entries_;
}

std::optional<std::string> DesktopWorkspace::frontmostApplicationId() {
    std::optional<int32_t> processId;
    WindowFacts front;
    std::vector<WindowFacts> windows;
    {
        auto lock = x11_.lock();
        ::Display* display = x11_.display();
        if (display == nullptr) {
            return std::nullopt;
        }
        auto window = frontmostWindow(display);
        if (!window) {
            return std::nullopt;
        }
        windows = topLevelWindows(display);
        // The window in front is normally one of them, already asked about.
        auto listed = std::find_if(windows.begin(), windows.end(), [&](const WindowFacts& facts) {
            return facts.window == *window;
        });
        front = listed != windows.end() ? *listed : windowFacts(display, *window);
        processId = front.processId;
    }
    const auto executable = executableOf(*processId);
    if (!executable) {
        return std::nullopt;  // gone, or a client on another machine
    }
    // The window in front names the application: one process may serve several.
    std::string id = applicationIdOfWindow(
        processFacts(*processId, *executable, windows),
        WindowIdentity{.classes = front.windowClasses, .gtkApplicationId = front.gtkApplicationId},
        installedEntries());
    return id.empty() ? std::nullopt : std::optional(id);
}

std::vector<RunningApplication> DesktopWorkspace::runningApplications(
    const std::string& applicationId) {
    std::vector<WindowFacts> windows;
    {
        auto lock = x11_.lock();
        if (::Display* display = x11_.display()) {
            windows = topLevelWindows(display);
        }
    }
    const auto& entries = installedEntries();
    const auto ourDisplay = x11DisplayName();
    std::vector<RunningApplication> owners;   // own windows of the application
    std::vector<RunningApplication> helpers;  // launchers, renderers, windowless instances
    for (const UserProcess& process : userProcesses()) {
        const int32_t processId = process.processId;
        ProcessFacts facts = processFacts(processId, process.executablePath, windows);
        // A process of another X session (a second desktop of the same user)
        // is not this desktop's application.
        if (facts.display && ourDisplay && !sameX11Display(*facts.display, *ourDisplay)) {
            continue;
        }
        auto ids = applicationIdsOf(facts, entries);
        if (std::find(ids.begin(), ids.end(), applicationId) == ids.end()) {
            continue;
        }
        // A running instance is its executable: what owns its windows and tree,
        // not the script or launcher its entry names.
        RunningApplication application;
        application.processId = processId;
        application.bundleLocation = facts.executablePath;
        application.executableLocation = facts.executablePath;
        (ownsWindowsOf(facts, applicationId, entries) ? owners : helpers)
            .push_back(std::move(application));
    }
    // The processes owning the application's windows come first, so that
    // activating, reading and fingerprinting the first instance reach them.
    owners.insert(owners.end(), helpers.begin(), helpers.end());
    return owners;
}

std::optional<std::string> DesktopWorkspace::applicationLocation(const std::string& applicationId) {
    return desktopFileOfId(applicationId);
}

std::optional<std::string> DesktopWorkspace::bundleExecutableLocation(const std::string& location) {
    if (isDesktopFileName(location)) {
        return desktopFileProgram(location);
    }
    if (isExecutableFile(location)) {
        return location;
    }
    return std::nullopt;
}

void DesktopWorkspace::openApplication(
    const std::string& location,
    const std::function<void(std::optional<std::string>)>& completion) {
    auto displayName = x11DisplayName();
    if (!displayName) {
        completion(std::string(kNoDisplay));
        return;
    }
    completion(launchApplication(location, *displayName));
}

void DesktopWorkspace::activateApplication(int32_t processId) {
    auto lock = x11_.lock();
    if (::Display* display = x11_.display()) {
        activateProcessWindow(display, processId);
    }
}

}  // namespace velmora::native::freedesktop
