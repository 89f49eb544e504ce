#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "core/driver/UIDriver.h"
#include "core/model/Request.h"
#include "core/model/Response.h"

namespace velmora {

// Blocks the calling thread for a number of seconds. Injected so that tests can
// record every pause instead of waiting.
using Sleep = std::function<void(double seconds)>;

// Whether the elements satisfy the expectation. Checks run in order and the first
// failing one decides: exists, minCount, then valueEquals (exact; it wins over
// valueContains), else valueContains (folded substring), else "at least one
// element". An absent value reads as "". So `exists: false` alone never passes.
bool checkExpectation(const Expectation& expectation, const std::vector<ElementInfo>& elements);

struct AssertOutcome {
    bool passed = false;
    std::vector<ElementInfo> elements;  // from the last attempt
};

// Queries the target with the action's selector (empty when absent), values
// included, until the action's expectation (exists: true when absent) holds, at
// most `attempts` times, sleeping `retryDelay` seconds between two attempts; never
// before the first or after the last. A query error ends the evaluation and
// propagates. With no attempts at all, the expectation is checked once against
// an empty list.
AssertOutcome evaluateAssert(UIDriver& driver, const DriverAction& action,
                             const std::string& target, int64_t attempts, double retryDelay,
                             const Sleep& sleep);

}  // namespace velmora
