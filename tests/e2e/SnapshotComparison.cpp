#include "tests/e2e/SnapshotComparison.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "agent/Modes.h"
#include "core/model/Json.h"
#include "core/native/AXCGDriver.h"
#include "tests/e2e/DesktopSupport.h"

namespace velmora::e2e {

using native::AXCGDriver;

namespace {

// An element as the agent writes it, for failure messages.
std::string shown(const ElementInfo& element) {
    Json json;
    to_json(json, element);
    return json.dump();
}

}  // namespace

size_t stableElementCount(native::Platform& oneAtATime, const std::string& id, size_t atLeast,
                          double seconds) {
    AXCGDriver slow(oneAtATime, kNodeBudget, kFocusTimeoutSeconds);
    std::vector<ElementInfo> last;
    size_t count = 0;
    waitUntil(
        [&] {
            auto elements = slow.query(id, std::nullopt, true);
            const bool same = elements.size() >= atLeast && elements == last;
            last = std::move(elements);
            count = same ? last.size() : 0;
            return same;
        },
        seconds);
    return count;
}

void expectSameSnapshots(native::Platform& pipelined, native::Platform& oneAtATime,
                         const std::string& id, size_t expectedElements) {
    AXCGDriver fast(pipelined, kNodeBudget, kFocusTimeoutSeconds);
    AXCGDriver slow(oneAtATime, kNodeBudget, kFocusTimeoutSeconds);
    const auto before = fast.query(id, std::nullopt, true);
    const auto reference = slow.query(id, std::nullopt, true);
    const auto after = fast.query(id, std::nullopt, true);
    ASSERT_EQ(before, after) << "the application changed between the queries";
    ASSERT_EQ(reference.size(), expectedElements);
    ASSERT_EQ(before.size(), reference.size());
    for (size_t i = 0; i < reference.size(); ++i) {
        ASSERT_EQ(before[i], reference[i])
            << "element " << i << " of " << reference.size() << " of " << id
            << "\n  pipelined: " << shown(before[i]) << "\n  one call:  " << shown(reference[i]);
    }
    const auto fastState = fast.structuralState(id);
    const auto slowState = slow.structuralState(id);
    EXPECT_EQ(fastState, slowState);
    EXPECT_EQ(fastState.elementCount, static_cast<int64_t>(expectedElements));
    // The structural state reads only roles and child lists, with the query's
    // budget, depth limit and window walks, and counts what the query found.
    std::map<std::string, int64_t> histogram;
    for (const auto& element : reference) {
        ++histogram[element.role];
    }
    EXPECT_EQ(fastState.roleHistogram, histogram);
    EXPECT_EQ(slowState.roleHistogram, histogram);
    // Without values, and through a selector, as the router asks.
    EXPECT_EQ(fast.query(id, std::nullopt, false), slow.query(id, std::nullopt, false));
    ElementSelector buttons;
    buttons.role = "AXButton";
    EXPECT_EQ(fast.query(id, buttons, true), slow.query(id, buttons, true));
}

}  // namespace velmora::e2e
