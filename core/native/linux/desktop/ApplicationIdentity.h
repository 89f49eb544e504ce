#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Which application a running process is.
//
// On this system an application's identifier (what macOS calls its bundle
// identifier) is the id of its desktop entry as GIO names it, without the
// ".desktop" suffix: org.xfce.mousepad, galculator. Every lookup that names a
// process by identifier - the frontmost application, the running instances of an
// identifier, and the process that a launch started - goes through the one rule
// below, so an entry that was launched is then found and focused by the same id.

namespace velmora::native::freedesktop {

// An installed desktop entry, as far as the rule needs it.
struct DesktopEntry {
    std::string id;              // desktop id without ".desktop"
    std::string fileName;        // the .desktop file
    std::string startupWMClass;  // StartupWMClass, or empty
    std::string program;         // file name of the first word of Exec, or empty
    bool shown = true;           // whether menus show it (not NoDisplay, not hidden)
};

// What is known about one process and the top-level windows it owns.
struct ProcessFacts {
    int32_t processId = 0;
    // GIO_LAUNCHED_DESKTOP_FILE and GIO_LAUNCHED_DESKTOP_FILE_PID from its environment.
    std::optional<std::string> launchedDesktopFile;
    std::optional<int32_t> launchedDesktopFilePid;
    std::string executablePath;              // /proc/PID/exe resolved, or empty
    std::string commandName;                 // file name of argv[0], or empty
    std::vector<std::string> windowClasses;  // WM_CLASS instance and class names
    std::string gtkApplicationId;            // _GTK_APPLICATION_ID, or empty
    // DISPLAY from its environment: the X session it belongs to. Not part of the
    // identity; it keeps the processes of another session apart.
    std::optional<std::string> display;
};

// The application identifier of a process, first match wins:
//  1. the entry it was launched from: GIO_LAUNCHED_DESKTOP_FILE, unless
//     GIO_LAUNCHED_DESKTOP_FILE_PID names another process (then the variable was
//     merely inherited from a launched parent, such as a terminal);
//  2. the installed entry whose StartupWMClass is one of its window classes;
//  3. the installed entry whose Exec program is its executable's or argv[0]'s
//     file name;
//  4. its GTK application id;
//  5. its executable's file name (argv[0]'s when the executable is unknown).
// Among several installed entries that match, shown entries come first, then the
// smallest id. `entries` is the list of installed entries in any order.
std::string applicationIdOf(const ProcessFacts& facts, const std::vector<DesktopEntry>& entries);

// The desktop id (without ".desktop") of a desktop file: the id of the installed
// entry with that file name, else the file's name without ".desktop".
std::string desktopIdOfFile(const std::string& fileName, const std::vector<DesktopEntry>& entries);

// The last component of a path.
std::string baseName(const std::string& path);

}  // namespace velmora::native::freedesktop
