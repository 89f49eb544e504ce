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
//
// Applications that start through a wrapper (Chromium's and Firefox's shell
// scripts exec the browser; LibreOffice's script starts a launcher, oosplash,
// which starts soffice.bin) are the process that owns their windows: its
// executable is the one fingerprinted. One process may serve several entries
// (soffice.bin serves libreoffice-writer, libreoffice-calc, ...); its windows
// tell them apart by their classes.

namespace velmora::native::freedesktop {

// An installed desktop entry, as far as the rule needs it.
struct DesktopEntry {
    std::string id;              // desktop id without ".desktop"
    std::string fileName;        // the .desktop file
    std::string startupWMClass;  // StartupWMClass, or empty
    std::string program;         // file name of the first word of Exec, or empty
    bool shown = true;           // whether menus show it (not NoDisplay, not hidden)
};

// What a top-level window says about the application it belongs to.
struct WindowIdentity {
    std::vector<std::string> classes;  // WM_CLASS instance and class names
    std::string gtkApplicationId;      // _GTK_APPLICATION_ID, or empty
};

// What is known about one process and the top-level windows it owns.
struct ProcessFacts {
    int32_t processId = 0;
    // GIO_LAUNCHED_DESKTOP_FILE and GIO_LAUNCHED_DESKTOP_FILE_PID from its environment.
    std::optional<std::string> launchedDesktopFile;
    std::optional<int32_t> launchedDesktopFilePid;
    std::string executablePath;           // /proc/PID/exe resolved, or empty
    std::string commandName;              // file name of argv[0], or empty
    std::vector<WindowIdentity> windows;  // its top-level windows, oldest first
    // DISPLAY from its environment: the X session it belongs to. Not part of the
    // identity; it keeps the processes of another session apart.
    std::optional<std::string> display;
};

// The application identifier of a process, first match wins:
//  1. the entry it was launched from: GIO_LAUNCHED_DESKTOP_FILE, unless
//     GIO_LAUNCHED_DESKTOP_FILE_PID names another process (then the variable was
//     merely inherited from a launched parent, such as a terminal, or from the
//     launcher that started it);
//  2. the installed entry whose StartupWMClass is a class of one of its
//     windows, the oldest window first;
//  3. the installed entry whose Exec program is its executable's or argv[0]'s
//     file name;
//  4. its first window's GTK application id;
//  5. its executable's file name (argv[0]'s when the executable is unknown).
// Among several installed entries that match, shown entries come first, then the
// smallest id. `entries` is the list of installed entries in any order.
std::string applicationIdOf(const ProcessFacts& facts, const std::vector<DesktopEntry>& entries);

// The application identifier that one window of the process stands for: the
// process's own when it was launched from an entry itself (rule 1), else the
// installed entry whose StartupWMClass is one of this window's classes, else the
// process's. So the Writer and Calc windows of one soffice.bin are
// libreoffice-writer and libreoffice-calc.
std::string applicationIdOfWindow(const ProcessFacts& facts, const WindowIdentity& window,
                                  const std::vector<DesktopEntry>& entries);

// Every identifier a process stands for: those of its windows, each once, oldest
// window first; for a process without windows, applicationIdOf.
std::vector<std::string> applicationIdsOf(const ProcessFacts& facts,
                                          const std::vector<DesktopEntry>& entries);

// Whether a process serving `applicationId` owns windows of it (the process that
// owns the application's windows and tree, rather than a launcher or a helper
// process of the same program, such as a browser's renderers).
bool ownsWindowsOf(const ProcessFacts& facts, const std::string& applicationId,
                   const std::vector<DesktopEntry>& entries);

// The desktop id (without ".desktop") of a desktop file: the id of the installed
// entry with that file name, else the file's name without ".desktop".
std::string desktopIdOfFile(const std::string& fileName, const std::vector<DesktopEntry>& entries);

// The last component of a path.
std::string baseName(const std::string& path);

}  // namespace velmora::native::freedesktop
