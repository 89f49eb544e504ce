#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/native/linux/desktop/ApplicationIdentity.h"

// Installed applications, as GIO finds their desktop entries in the XDG data
// directories, and launching them. The list of every entry, which each request
// reads to name processes, is read without GIO (DesktopEntryScan.h); looking up
// one entry and launching it go through GIO.

namespace velmora::native::freedesktop {

// Every installed application entry, those menus do not show included.
std::vector<DesktopEntry> installedDesktopEntries();

// The desktop file of the installed entry with this id (with or without
// ".desktop"); none when no such entry is installed.
std::optional<std::string> desktopFileOfId(const std::string& id);

// For a desktop file: its Exec program, found on PATH when it is not a path.
// None when the file is no application entry or its program is not found.
std::optional<std::string> desktopFileProgram(const std::string& fileName);

// Whether a path names a .desktop file.
bool isDesktopFileName(const std::string& path);

// Launches a desktop file's application (or an executable file) through GIO on
// the X display `displayName`. GIO records the entry in the new process's
// environment (GIO_LAUNCHED_DESKTOP_FILE), which names the process by the
// entry's id. Returns none on success, else GIO's description of the failure.
std::optional<std::string> launchApplication(const std::string& location,
                                             const std::string& displayName);

}  // namespace velmora::native::freedesktop
