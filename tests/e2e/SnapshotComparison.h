#pragma once

#include <cstddef>
#include <string>

#include "core/native/Platform.h"

// The native driver's snapshot of one running application through two readers:
// the pipelined one the agent uses and the one-call-at-a-time one. Shared by the
// snapshot tests of the fixture, the GTK and Qt applications, the browsers and
// the office suite.

namespace velmora::e2e {

// Queries `id` through the one-call reader until two walks in a row give the
// same elements (values and frames included) and at least `atLeast` of them:
// the application has loaded and stopped changing its tree. The number of
// elements, or 0 when that did not happen within `seconds`.
size_t stableElementCount(native::Platform& oneAtATime, const std::string& id, size_t atLeast,
                          double seconds);

// The query without selector (every element, in order, values and frames
// included) and the structural state must be the same whichever reader answers,
// and the structural state's count and role histogram those of the query. The
// fast reader is asked before and after the one-call reader, so that a
// difference is the readers' and not the application changing in between.
// Records test failures; `expectedElements` is the query's expected length.
void expectSameSnapshots(native::Platform& pipelined, native::Platform& oneAtATime,
                         const std::string& id, size_t expectedElements);

}  // namespace velmora::e2e
