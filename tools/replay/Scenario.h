#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "core/model/Response.h"
#include "core/routing/Clock.h"

namespace velmora::replay {

// The mock desktop and router settings a replay runs against.
struct Scenario {
    std::optional<std::string> frontmost;
    std::vector<ElementInfo> elements;
    std::string sha;
    std::set<std::string> failOn;
    bool focusSucceeds = true;
    bool screenshotShouldFail = false;
    // A pinned clock; none means wall time and random identifiers.
    struct FixedClock {
        Clock::TimePoint date;
        std::string idPrefix;
    };
    std::optional<FixedClock> clock;
    int64_t assertRetries = 4;
    double assertRetryDelay = 0.3;
};

class ScenarioError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Decodes a scenario document. Strict: unknown keys, wrong types, unknown
// operation names in failOn, a malformed date and a negative or non-finite
// delay are errors whose message names the offending key.
Scenario decodeScenario(std::string_view text);

// An internet date-time such as 2026-11-16T03:04:05Z or 2026-11-16T04:04:05.5+01:00.
std::optional<Clock::TimePoint> parseInternetDateTime(std::string_view text);

}  // namespace velmora::replay
