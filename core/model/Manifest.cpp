#include "core/model/Manifest.h"

#include <unistd.h>

#include <array>

#include "core/model/Protocol.h"

namespace velmora {

#ifdef __APPLE__
const char* const kAgentPlatform = "darwin";
#else
const char* const kAgentPlatform = "linux";
#endif

std::string shortHostName() {
    std::array<char, 256> buffer{};
    if (gethostname(buffer.data(), buffer.size() - 1) != 0) {
        return "localhost";
    }
    std::string name(buffer.data());
    name = name.substr(0, name.find('.'));
    return name.empty() ? "localhost" : name;
}

DriverInstanceManifest DriverInstanceManifest::makeDefault(const std::string& bundleIdentifier) {
    return DriverInstanceManifest{
        .kind = "native_gui",
        .surface = "desktop_app",
        .capabilities = {"read", "write", "destructive"},
        .requiresLease = true,
        .endpoint = "loopback://" + shortHostName() + "/exec",
        .protocolVersion = kDriverBrokerProtocol,
        .bundleIdentifier = bundleIdentifier,
        .platform = kAgentPlatform,
    };
}

}  // namespace velmora
