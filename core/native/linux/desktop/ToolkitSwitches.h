#pragma once

#include <optional>
#include <string>
#include <vector>

// Command-line switches and environment that make an application's toolkit
// build and expose the accessibility tree it would otherwise not.
//
// Chromium, and the browsers built on it, expose the tree of a web page only
// once they believe a screen reader runs, which they do not detect on an X11
// desktop from the session's accessibility switch alone: their window frames
// show, their pages do not. Their documented switch --force-renderer-accessibility
// builds the page trees from the start. Every other toolkit the agent drives
// (GTK, Qt, Gecko, LibreOffice) needs no switch; an unknown switch would make
// some of them refuse to start, so none is given to them.
//
// LibreOffice picks its window-system plugin by the desktop it runs on. On a
// desktop it does not know (no XDG_CURRENT_DESKTOP: a bare window manager) it
// picks its plain X11 plugin, which has no accessibility on Linux; its GTK 3
// plugin, chosen with SAL_USE_VCLPLUGIN=gtk3, exposes its tree over AT-SPI. On
// known desktops its own choice (GTK 3, or Qt on KDE) has one already.

namespace velmora::native::freedesktop {

// The switches to add to the command line of `program` (an entry's Exec
// program, a file name or a path): Chromium's for the Chromium family's
// launchers, none for anything else.
std::vector<std::string> accessibilitySwitchesFor(const std::string& program);

struct EnvironmentVariable {
    std::string name;
    std::string value;

    friend bool operator==(const EnvironmentVariable&, const EnvironmentVariable&) = default;
};

// The variables to set for an application the agent launches, given the
// session's XDG_CURRENT_DESKTOP and the agent's own SAL_USE_VCLPLUGIN (none when
// unset). A variable the user has set is never overridden. Only LibreOffice
// reads SAL_USE_VCLPLUGIN, so it is set for every launch.
std::vector<EnvironmentVariable> accessibilityEnvironment(
    const std::optional<std::string>& currentDesktop, const std::optional<std::string>& vclPlugin);

}  // namespace velmora::native::freedesktop
