#include "agent/Modes.h"

#include "core/model/Protocol.h"

namespace velmora {

std::string modeFromArguments(int argc, const char* const* argv) {
    if (argc < 2 || argv[1] == nullptr) {
        return "run";
    }
    std::string mode = argv[1];
    for (size_t at = mode.find("--"); at != std::string::npos; at = mode.find("--", at)) {
        mode.erase(at, 2);
    }
    return mode;
}

SelfCheck makeSelfCheck(bool accessibilityTrusted, bool screenRecordingGranted) {
    return SelfCheck{kDriverBrokerProtocol, accessibilityTrusted, screenRecordingGranted,
                     accessibilityTrusted};
}

std::string readAll(std::FILE* in) {
    std::string text;
    char buffer[1 << 16];
    size_t n = 0;
    while ((n = std::fread(buffer, 1, sizeof buffer, in)) > 0) {
        text.append(buffer, n);
    }
    return text;
}

}  // namespace velmora
