#pragma once

#include <cstdio>
#include <string>

#include "core/model/Manifest.h"

namespace velmora {

// The reverse-DNS identifier this agent announces to the broker in "register".
inline constexpr const char* kAgentBundleIdentifier = "org.velmora.agent";

// Fixed in the entry point; no request can change them.
inline constexpr int64_t kNodeBudget = 3000;
inline constexpr double kFocusTimeoutSeconds = 1.5;
inline constexpr int64_t kAssertRetries = 4;
inline constexpr double kAssertRetryDelaySeconds = 0.3;

// The mode word: "run" with no argument, else the first argument with every "--"
// removed (so "--run", "run" and "r--un" all mean run, and "--" is the empty mode).
// Further arguments are ignored.
std::string modeFromArguments(int argc, const char* const* argv);

// The self-check verdict follows accessibility alone: without it nothing works,
// while screen recording only matters to screenshots.
SelfCheck makeSelfCheck(bool accessibilityTrusted, bool screenRecordingGranted);

// Reads the stream to its end.
std::string readAll(std::FILE* in);

}  // namespace velmora
