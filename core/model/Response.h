#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "core/model/Geometry.h"
#include "core/model/Protocol.h"

// The records of one response. Optional fields are left out of the JSON when absent.

namespace velmora {

// One accessibility element as reported to the broker. `valuePresent` says whether
// the element has a value at all; `value` carries it only when it is text and asked for.
struct ElementInfo {
    std::string role{};
    std::optional<std::string> title{};
    std::optional<std::string> identifier{};
    bool valuePresent = false;
    std::optional<std::string> value{};
    std::optional<Rect> frame{};

    friend bool operator==(const ElementInfo&, const ElementInfo&) = default;
};

// A summary of the target's accessibility tree after an action.
struct StructuralState {
    std::optional<std::string> frontmostBundleId{};
    int64_t elementCount = 0;
    std::map<std::string, int64_t> roleHistogram{};

    friend bool operator==(const StructuralState&, const StructuralState&) = default;
};

// The record of one action.
struct ActionReceipt {
    std::string schema = kNativeAppRuntimeReceiptSchema;
    std::string action{};
    std::optional<std::string> label{};
    std::string bundleIdentifier{};
    std::string binarySha256{};
    bool frontmostTargetMatch = false;
    StructuralState postActionStructuralState{};
    bool succeeded = false;
    bool reversible = false;
    std::string ts{};
    std::string receiptId{};
    std::optional<std::string> screenshotPath{};
    std::optional<std::vector<ElementInfo>> queryResult{};  // [] is not absent
    std::optional<std::string> errorMessage{};
};

struct DriverResponse {
    std::string protocolVersion = kDriverBrokerProtocol;
    std::string sessionId{};
    bool ok = false;
    std::vector<ActionReceipt> receipts{};
    std::optional<std::string> error{};

    DriverResponse(std::string sessionId, bool ok, std::vector<ActionReceipt> receipts,
                   std::optional<std::string> error = std::nullopt,
                   std::string protocolVersion = kDriverBrokerProtocol)
        : protocolVersion(std::move(protocolVersion)),
          sessionId(std::move(sessionId)),
          ok(ok),
          receipts(std::move(receipts)),
          error(std::move(error)) {}
};

}  // namespace velmora
