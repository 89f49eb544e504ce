#pragma once

#include <sys/types.h>

#include <set>
#include <string>
#include <vector>

// The applications on this test's own X display, found without asking the
// agent: by the windows the window manager lists and by the desktop entries GIO
// launched processes from. Tests end what they started through these, by
// process id, and never touch processes of other displays.

namespace velmora::e2e {

// Process ids (_NET_WM_PID) of the windows in the window manager's client list.
std::vector<pid_t> windowOwnerProcessIds();

// Process ids (_NET_WM_PID) of the windows in the window manager's client list
// that the server shows (mapped, and every ancestor mapped).
std::vector<pid_t> shownWindowOwnerProcessIds();

// Live processes whose DISPLAY is ours and that GIO launched from the desktop
// entry at `entryPath` (GIO_LAUNCHED_DESKTOP_FILE, not inherited).
std::vector<pid_t> processesLaunchedFrom(const std::string& entryPath);

// Both of the above, every entry.
std::set<pid_t> applicationProcesses();

// Whether a process has ended (gone, or a zombie nobody has reaped yet).
bool processEnded(pid_t processId);

// Notes the applications on the display when it is made; when destroyed, ends
// every application that has appeared since, with the processes it started
// (descendants), by process id: SIGTERM, and SIGKILL for one still running
// five seconds later.
class StartedApplications {
  public:
    StartedApplications();
    ~StartedApplications();
    StartedApplications(const StartedApplications&) = delete;
    StartedApplications& operator=(const StartedApplications&) = delete;

    // Ends the applications started so far; what they were.
    std::vector<pid_t> endAll();

  private:
    std::set<pid_t> before_;
};

}  // namespace velmora::e2e
