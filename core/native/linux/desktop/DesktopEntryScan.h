#pragma once

#include <string>
#include <vector>

#include "core/native/linux/desktop/ApplicationIdentity.h"

// The installed application entries, found the way GIO's application list finds
// them, but read with GLib's key-file parser alone. GIO's own list watches every
// applications directory with inotify, and the kernel takes a grace period
// (some 4 to 20 ms) to tear such a watch down when the process exits: a cost on
// every request of a short-lived agent that reads the list only once.

namespace velmora::native::freedesktop {

struct DesktopEntrySearch {
    // The applications directories, the first the most important: an id found
    // in one hides the same id in every later one.
    std::vector<std::string> directories;
    // The session's desktops (XDG_CURRENT_DESKTOP, split at colons), for
    // OnlyShowIn and NotShowIn.
    std::vector<std::string> currentDesktops;
};

// Where the session keeps its entries: $XDG_DATA_HOME/applications, then the
// applications folder of each of $XDG_DATA_DIRS (GLib's defaults when unset).
DesktopEntrySearch sessionDesktopEntrySearch();

// Every application entry the search finds, in no particular order. An entry's
// id is its path below its directory with "/" read as "-". An entry is left out
// (and hides the same id further down) when its file has no [Desktop Entry]
// group first, its Type is not Application, its TryExec program is not on PATH,
// or it says Hidden=true. `shown` is false for NoDisplay=true and for an entry
// that OnlyShowIn or NotShowIn keeps off the current desktops.
std::vector<DesktopEntry> scanDesktopEntries(const DesktopEntrySearch& search);

}  // namespace velmora::native::freedesktop
