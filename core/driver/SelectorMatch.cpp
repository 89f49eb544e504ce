#include "core/driver/SelectorMatch.h"

#include "core/text/Text.h"

namespace velmora {

bool matchesSelector(const ElementInfo& element, const ElementSelector& selector) {
    if (selector.role && !sameText(element.role, *selector.role)) {
        return false;
    }
    if (selector.title && !containsFolded(element.title.value_or(""), *selector.title)) {
        return false;
    }
    if (selector.identifier &&
        !(element.identifier && sameText(*element.identifier, *selector.identifier))) {
        return false;
    }
    if (selector.valueContains &&
        !containsFolded(element.value.value_or(""), *selector.valueContains)) {
        return false;
    }
    return true;
}

std::vector<ElementInfo> filterBySelector(const std::vector<ElementInfo>& elements,
                                          const ElementSelector& selector) {
    std::vector<ElementInfo> matches;
    for (const auto& element : elements) {
        if (matchesSelector(element, selector)) {
            matches.push_back(element);
        }
    }
    return matches;
}

std::vector<ElementInfo> selectIndex(std::vector<ElementInfo> matches,
                                     std::optional<int64_t> index) {
    if (index && *index >= 0 && static_cast<uint64_t>(*index) < matches.size()) {
        return {std::move(matches[static_cast<size_t>(*index)])};
    }
    return matches;
}

}  // namespace velmora
