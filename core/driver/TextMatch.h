#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/model/Request.h"
#include "core/model/Response.h"

// The text and selector matching rules that every driver, the assertions and the
// app policy share, so that a request behaves alike against all of them.

namespace velmora {

// Full Unicode lower-casing (root locale). Invalid UTF-8 is kept byte for byte.
std::string lowercased(std::string_view text);

// Whether `haystack` contains `needle` as a substring. An empty needle is never found.
bool containsText(std::string_view haystack, std::string_view needle);

// containsText of both sides lower-cased.
bool containsFolded(std::string_view haystack, std::string_view needle);

// Trims spaces and tabs (not newlines) from both ends.
std::string trimBlanks(std::string_view text);

// Whether the element passes every criterion the selector sets, tested in the order
// role (exact), title (folded substring of the title or ""), identifier (exact, and
// present), valueContains (folded substring of the value or ""). `index` is not a
// criterion: see selectIndex.
bool matchesSelector(const ElementInfo& element, const ElementSelector& selector);

// The elements that match, in order.
std::vector<ElementInfo> filterBySelector(const std::vector<ElementInfo>& elements,
                                          const ElementSelector& selector);

// An index that is present, not negative and below the number of matches narrows the
// matches to that one; any other index leaves them all.
std::vector<ElementInfo> selectIndex(std::vector<ElementInfo> matches,
                                     std::optional<int64_t> index);

}  // namespace velmora
