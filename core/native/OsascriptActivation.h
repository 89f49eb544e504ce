#pragma once

#include <string>
#include <vector>

// How macOS is made to bring a stubborn application to the front: osascript
// running an AppleScript that activates the application by its bundle
// identifier. Kept apart from the macOS provider, which runs it, so that the
// script's text is checked on every system.

namespace velmora::native {

inline constexpr const char* kOsascriptPath = "/usr/bin/osascript";

// The AppleScript that activates an application; the identifier goes in unescaped.
std::string osascriptActivationScript(const std::string& bundleId);

// The arguments osascript is started with: "-e" and that script.
std::vector<std::string> osascriptActivationArguments(const std::string& bundleId);

}  // namespace velmora::native
