#pragma once

#include <string>
#include <vector>

// The records of the side modes: what "self-check" and "register" print.

namespace velmora {

// "darwin" on macOS, "linux" elsewhere.
extern const char* const kAgentPlatform;

// This machine's host name up to its first dot; "localhost" when it has none.
std::string shortHostName();

struct SelfCheck {
    std::string protocolVersion{};
    bool accessibilityTrusted = false;
    bool screenRecordingGranted = false;
    bool healthy = false;

    friend bool operator==(const SelfCheck&, const SelfCheck&) = default;
};

struct DriverInstanceManifest {
    std::string kind{};
    std::string surface{};
    std::vector<std::string> capabilities{};
    bool requiresLease = false;
    std::string endpoint{};
    std::string protocolVersion{};
    std::string bundleIdentifier{};
    std::string platform{};

    // The manifest this agent announces for `bundleIdentifier`: reached at
    // "loopback://" + shortHostName() + "/exec", on the platform it was built for.
    static DriverInstanceManifest makeDefault(const std::string& bundleIdentifier);

    friend bool operator==(const DriverInstanceManifest&, const DriverInstanceManifest&) = default;
};

}  // namespace velmora
