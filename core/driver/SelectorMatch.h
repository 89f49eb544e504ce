#pragma once

#include <optional>
#include <vector>

#include "core/model/Request.h"
#include "core/model/Response.h"

// How every driver picks elements out with a selector, so that a request
// behaves alike against all of them. The text tests are core/text's.

namespace velmora {

// Whether the element passes every criterion the selector sets, tested in the
// order role (the same text), title (folded substring of the title or ""),
// identifier (present and the same text), valueContains (folded substring of the
// value or ""). "The same text" is canonical equivalence, as the platform's
// string equality: a role or identifier written with a decomposed accent is the
// one written precomposed. `index` is not a criterion: see selectIndex.
bool matchesSelector(const ElementInfo& element, const ElementSelector& selector);

// The elements that match, in order.
std::vector<ElementInfo> filterBySelector(const std::vector<ElementInfo>& elements,
                                          const ElementSelector& selector);

// An index that is present, not negative and below the number of matches narrows the
// matches to that one; any other index leaves them all.
std::vector<ElementInfo> selectIndex(std::vector<ElementInfo> matches,
                                     std::optional<int64_t> index);

}  // namespace velmora
