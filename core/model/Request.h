#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/model/ActionKind.h"
#include "core/model/Geometry.h"
#include "core/model/Protocol.h"

// The records of one request, as a broker writes them. Plain values; every
// field that may be absent is an optional.

namespace velmora {

// Picks out accessibility elements. Every field is optional: {} constrains nothing.
struct ElementSelector {
    std::optional<std::string> role{};
    std::optional<std::string> title{};
    std::optional<std::string> identifier{};
    std::optional<std::string> valueContains{};
    std::optional<int64_t> index{};

    friend bool operator==(const ElementSelector&, const ElementSelector&) = default;
};

struct ScrollSpec {
    int64_t dx = 0;
    int64_t dy = 0;
    std::optional<Point> at{};

    friend bool operator==(const ScrollSpec&, const ScrollSpec&) = default;
};

// What an assert checks. `exists` is three-valued: true, false or unchecked.
struct Expectation {
    std::optional<bool> exists{};
    std::optional<std::string> valueEquals{};
    std::optional<std::string> valueContains{};
    std::optional<int64_t> minCount{};

    friend bool operator==(const Expectation&, const Expectation&) = default;
};

// Screenshots are allowed unless refused; training use must be granted.
struct ConsentScope {
    bool allowScreenshots = true;
    bool trainingCorpus = false;

    friend bool operator==(const ConsentScope&, const ConsentScope&) = default;
};

struct DriverAction {
    ActionKind kind = ActionKind::healthTick;
    std::optional<ElementSelector> selector{};
    std::optional<std::string> text{};
    std::optional<std::vector<std::string>> keys{};  // absent and [] are distinct
    std::optional<Point> point{};
    std::optional<ScrollSpec> scroll{};
    std::optional<Expectation> expect{};
    std::optional<std::string> label{};

    friend bool operator==(const DriverAction&, const DriverAction&) = default;
};

// One run's worth of work. No equality, by design: a request is consumed, not compared.
struct DriverRequest {
    std::string protocolVersion{};
    std::string sessionId{};
    std::string seatLease{};
    std::string targetBundleId{};
    std::optional<std::string> targetAppName{};
    std::vector<std::string> approvedApps{};
    std::vector<std::string> deniedApps{};
    std::vector<DriverAction> actions{};
    std::optional<ConsentScope> consent{};
    std::optional<std::string> screenshotDir{};

    // With no approved list the request approves exactly its own target.
    DriverRequest(std::string sessionId, std::string seatLease, std::string targetBundleId,
                  std::vector<DriverAction> actions,
                  std::optional<std::string> targetAppName = std::nullopt,
                  std::optional<std::vector<std::string>> approvedApps = std::nullopt,
                  std::vector<std::string> deniedApps = {},
                  std::optional<ConsentScope> consent = std::nullopt,
                  std::optional<std::string> screenshotDir = std::nullopt,
                  std::string protocolVersion = kDriverBrokerProtocol);
};

}  // namespace velmora
