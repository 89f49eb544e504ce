#include "core/native/linux/desktop/ToolkitSwitches.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "core/native/linux/desktop/ApplicationIdentity.h"

namespace velmora::native::freedesktop {

namespace {

// The launchers that Debian's and the vendors' packages install for browsers
// built on Chromium.
constexpr std::array<std::string_view, 10> kChromiumFamily = {
    "chromium",           "chromium-browser",
    "google-chrome",      "google-chrome-stable",
    "google-chrome-beta", "microsoft-edge",
    "brave-browser",      "vivaldi",
    "vivaldi-stable",     "opera",
};

}  // namespace

std::vector<std::string> accessibilitySwitchesFor(const std::string& program) {
    const std::string name = baseName(program);
    if (std::find(kChromiumFamily.begin(), kChromiumFamily.end(), name) != kChromiumFamily.end()) {
        return {"--force-renderer-accessibility"};
    }
    return {};
}

std::vector<EnvironmentVariable> accessibilityEnvironment(
    const std::optional<std::string>& currentDesktop, const std::optional<std::string>& vclPlugin) {
    const bool unknownDesktop = !currentDesktop || currentDesktop->empty();
    if (unknownDesktop && !vclPlugin) {
        return {{"SAL_USE_VCLPLUGIN", "gtk3"}};
    }
    return {};
}

}  // namespace velmora::native::freedesktop
