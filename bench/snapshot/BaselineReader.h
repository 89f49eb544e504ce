#pragma once

#include <cstdint>
#include <vector>

#include "core/model/Response.h"

// The baseline the snapshot benchmark compares the agent with: a query that reads
// the same attributes of the same elements, in the same order and by the same
// rules as the agent's tree walk, one synchronous libatspi call at a time - the
// straightforward reader that pays a round trip per attribute.
//
// It stands alone on purpose (its own walk and reads over libatspi), so that
// what it measures does not move when the agent's reader changes.

namespace velmora::bench {

// The whole query without selector for the application with this process id:
// the application element, its subtree, then each of its windows again, within
// `budget` elements and 60 levels. Empty when the application is not on the
// accessibility desktop.
std::vector<ElementInfo> baselineQuery(int32_t processId, int64_t budget);

}  // namespace velmora::bench
