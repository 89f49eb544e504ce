#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/native/Platform.h"
#include "core/native/linux/desktop/ApplicationIdentity.h"
#include "core/native/linux/x11/X11Connection.h"

namespace velmora::native::freedesktop {

// The workspace operations of the platform layer on an X11 desktop: which
// application is in front, which processes an application identifier names,
// where an application is installed, launching and activating. Every identifier
// here is an application's desktop-entry id (see ApplicationIdentity.h). The
// running applications are the user's processes on this X display: a process
// whose DISPLAY names another one belongs to another session.
class DesktopWorkspace {
  public:
    explicit DesktopWorkspace(X11Connection& x11) : x11_(x11) {}

    std::optional<std::string> frontmostApplicationId();
    std::vector<RunningApplication> runningApplications(const std::string& applicationId);
    std::optional<std::string> applicationLocation(const std::string& applicationId);
    std::optional<std::string> bundleExecutableLocation(const std::string& location);
    // Completes on the calling thread before returning.
    void openApplication(const std::string& location,
                         const std::function<void(std::optional<std::string>)>& completion);
    void activateApplication(int32_t processId);

  private:
    // The installed desktop entries, read at the first use. The agent lives for
    // one request, in which every identity check needs them, and reading them
    // parses every desktop file on the system.
    const std::vector<DesktopEntry>& installedEntries();

    X11Connection& x11_;
    std::once_flag entriesRead_;
    std::vector<DesktopEntry> entries_;
};

}  // namespace velmora::native::freedesktop
