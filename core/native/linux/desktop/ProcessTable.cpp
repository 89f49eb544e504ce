#include "core/native/linux/desktop/ProcessTable.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velmora::native::freedesktop {

namespace {

// Every request scans the user's processes more than once (the fingerprint, each
// walk, the frontmost application), so each process costs as few system calls
// and path walks as it can: names are looked up from /proc's own descriptor.
int procDirectory() {
    static const int directory = open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return directory;
}

std::string entryPath(int32_t processId, const char* entry) {
    return std::to_string(processId) + "/" + entry;
}

// The whole of /proc/PID/environ or /proc/PID/cmdline; empty when unreadable
// (another user's process, or one that has just ended). Read with plain system
// calls: a stream costs twice as much. The kernel fills a read of these files
// as far as the process's strings reach, so a read that comes back short has
// reached their end and no further read is needed to find it.
std::string readProcStrings(int32_t processId, const char* entry) {
    std::string contents;
    const int file =
        openat(procDirectory(), entryPath(processId, entry).c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return contents;
    }
    char buffer[16384];
    while (true) {
        const ssize_t got = read(file, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        contents.append(buffer, static_cast<size_t>(got));
        if (static_cast<size_t>(got) < sizeof buffer) {
            break;
        }
    }
    close(file);
    return contents;
}

// The NUL-separated strings of /proc/PID/environ or /proc/PID/cmdline.
std::vector<std::string> nulSeparated(const std::string& contents) {
    std::vector<std::string> items;
    size_t start = 0;
    while (start < contents.size()) {
        size_t end = contents.find('\0', start);
        if (end == std::string::npos) {
            end = contents.size();
        }
        items.push_back(contents.substr(start, end - start));
        start = end + 1;
    }
    return items;
}

std::optional<int32_t> parseProcessId(const std::string& text) {
    if (text.empty() || text.size() > 10 ||
        !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        return std::nullopt;
    }
    long value = std::strtol(text.c_str(), nullptr, 10);
    if (value <= 0 || value > INT32_MAX) {
        return std::nullopt;
    }
    return static_cast<int32_t>(value);
}

}  // namespace

std::optional<std::string> executableOf(int32_t processId) {
    std::string target(4096, '\0');
    ssize_t length = readlinkat(procDirectory(), entryPath(processId, "exe").c_str(), target.data(),
                                target.size());
    if (length <= 0 || static_cast<size_t>(length) >= target.size()) {
        return std::nullopt;
    }
    target.resize(static_cast<size_t>(length));
    // An executable replaced on disk since the start reads as "PATH (deleted)".
    constexpr std::string_view kDeleted = " (deleted)";
    if (target.ends_with(kDeleted)) {
        target.resize(target.size() - kDeleted.size());
    }
    return target;
}

std::vector<UserProcess> userProcesses() {
    std::vector<UserProcess> processes;
    const int directory = procDirectory();
    if (directory < 0) {
        return processes;
    }
    // A descriptor of its own to list from: the shared one is for lookups.
    const int listing = openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* proc = listing < 0 ? nullptr : fdopendir(listing);
    if (proc == nullptr) {
        if (listing >= 0) {
            close(listing);
        }
        return processes;
    }
    const uid_t user = getuid();
    while (dirent* entry = readdir(proc)) {
        auto pid = parseProcessId(entry->d_name);
        if (!pid) {
            continue;
        }
        struct stat status {};
        if (fstatat(directory, entry->d_name, &status, 0) != 0 || status.st_uid != user) {
            continue;
        }
        if (auto executable = executableOf(*pid)) {
            processes.push_back(UserProcess{*pid, std::move(*executable)});
        }
    }
    closedir(proc);
    std::sort(processes.begin(), processes.end(),
              [](const UserProcess& a, const UserProcess& b) { return a.processId < b.processId; });
    return processes;
}

ProcessFacts processFacts(int32_t processId, const std::string& executablePath,
                          const std::vector<WindowFacts>& windows) {
    ProcessFacts facts;
    facts.processId = processId;

    constexpr std::string_view kLaunchedFile = "GIO_LAUNCHED_DESKTOP_FILE=";
    constexpr std::string_view kLaunchedPid = "GIO_LAUNCHED_DESKTOP_FILE_PID=";
    constexpr std::string_view kDisplay = "DISPLAY=";
    for (const auto& variable : nulSeparated(readProcStrings(processId, "environ"))) {
        if (variable.starts_with(kLaunchedFile)) {
            facts.launchedDesktopFile = variable.substr(kLaunchedFile.size());
        } else if (variable.starts_with(kLaunchedPid)) {
            facts.launchedDesktopFilePid = parseProcessId(variable.substr(kLaunchedPid.size()));
            if (!facts.launchedDesktopFilePid) {
                facts.launchedDesktopFilePid = 0;  // present but unreadable: not this process
            }
        } else if (variable.starts_with(kDisplay)) {
            facts.display = variable.substr(kDisplay.size());
        }
    }

    facts.executablePath = executablePath;
    auto arguments = nulSeparated(readProcStrings(processId, "cmdline"));
    if (!arguments.empty()) {
        facts.commandName = baseName(arguments.front());
    }

    for (const auto& window : windows) {
        if (window.processId == processId) {
            facts.windows.push_back(WindowIdentity{.classes = window.windowClasses,
                                                   .gtkApplicationId = window.gtkApplicationId});
        }
    }
    return facts;
}

}  // namespace velmora::native::freedesktop
