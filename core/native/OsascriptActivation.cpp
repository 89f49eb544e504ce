#include "core/native/OsascriptActivation.h"

namespace velmora::native {

std::string osascriptActivationScript(const std::string& bundleId) {
    return "tell application id \"" + bundleId + "\" to activate";
}

std::vector<std::string> osascriptActivationArguments(const std::string& bundleId) {
    return {"-e", osascriptActivationScript(bundleId)};
}

}  // namespace velmora::native
