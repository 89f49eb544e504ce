#include "core/driver/UIDriver.h"

#include <vector>

namespace velmora {

Point resolveClickPoint(UIDriver& driver, const std::string& bundleId,
                        const ElementSelector& selector) {
    auto found = driver.query(bundleId, selector, false);
    // Only the first match counts: a frameless first match is as good as no match,
    // even when a later one has a frame.
    if (found.empty() || !found.front().frame) {
        throw DriverError::elementNotFound(describe(selector));
    }
    const Rect& frame = *found.front().frame;
    return Point{frame.x + frame.width * 0.5, frame.y + frame.height * 0.5};
}

std::string describe(const ElementSelector& selector) {
    std::vector<std::string> parts;
    if (selector.role) {
        parts.push_back("role=" + *selector.role);
    }
    if (selector.title) {
        parts.push_back("title~=" + *selector.title);
    }
    if (selector.identifier) {
        parts.push_back("id=" + *selector.identifier);
    }
    if (selector.valueContains) {
        parts.push_back("value~=" + *selector.valueContains);
    }
    if (selector.index) {
        parts.push_back("index=" + std::to_string(*selector.index));
    }
    if (parts.empty()) {
        return "<any>";
    }
    std::string text = parts.front();
    for (size_t i = 1; i < parts.size(); ++i) {
        text += "," + parts[i];
    }
    return text;
}

}  // namespace velmora
