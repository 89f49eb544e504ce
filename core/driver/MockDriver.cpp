#include "core/driver/MockDriver.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "core/driver/SelectorMatch.h"
#include "core/text/NumberText.h"

namespace velmora {

std::string coordinateText(double value) {
    return doubleDescription(value);
}

MockDriver::MockDriver(std::optional<std::string> frontmost, std::vector<ElementInfo> elements,
                       std::string sha)
    : frontmost(std::move(frontmost)), elements(std::move(elements)), sha(std::move(sha)) {}

void MockDriver::record(const std::string& op, const std::string& detail) {
    calls.push_back(Call{op, detail});
    if (failOn.count(op) != 0) {
        throw DriverError::osFailure(op);
    }
}

std::optional<std::string> MockDriver::frontmostBundleId() {
    return frontmost;
}

std::string MockDriver::binarySha256(const std::string&) {
    return sha;
}

void MockDriver::launch(const std::string& bundleId) {
    record("launch", bundleId);
}

bool MockDriver::focus(const std::string& bundleId) {
    record("focus", bundleId);
    if (focusSucceeds) {
        frontmost = bundleId;
    }
    return frontmost == bundleId;
}

void MockDriver::click(Point point, bool doubleClick) {
    record(doubleClick ? "doubleClick" : "click",
           coordinateText(point.x) + "," + coordinateText(point.y));
}

void MockDriver::typeText(const std::string& text) {
    record("typeText", text);
}

void MockDriver::pressKeys(const std::vector<std::string>& keys) {
    std::string joined;
    for (size_t i = 0; i < keys.size(); ++i) {
        if (i > 0) {
            joined += "+";
        }
        joined += keys[i];
    }
    record("pressKeys", joined);
}

void MockDriver::scroll(const ScrollSpec& spec) {
    record("scroll", std::to_string(spec.dx) + "," + std::to_string(spec.dy));
}

std::vector<ElementInfo> MockDriver::query(const std::string&,
                                           const std::optional<ElementSelector>& selector,
                                           bool includeValues) {
    record("query", selector ? describe(*selector) : "<all>");
    std::vector<ElementInfo> result;
    if (!selector) {
        result = elements;
    } else {
        if (selector->index && *selector->index < 0) {
            // Stricter than the native driver on purpose: a script that asks for a
            // negative position is broken, and stopping shows it at once.
            std::fprintf(stderr, "MockDriver: negative selector index %lld\n",
                         static_cast<long long>(*selector->index));
            std::abort();
        }
        result = selectIndex(filterBySelector(elements, *selector), selector->index);
    }
    // Cleared only now, so valueContains was tested against the stored values.
    if (!includeValues) {
        for (auto& element : result) {
            element.value.reset();
        }
    }
    return result;
}

StructuralState MockDriver::structuralState(const std::string& bundleId) {
    record("structuralState", bundleId);
    StructuralState state;
    state.frontmostBundleId = frontmost;
    state.elementCount = static_cast<int64_t>(elements.size());
    for (const auto& element : elements) {
        ++state.roleHistogram[element.role];
    }
    return state;
}

void MockDriver::screenshot(const std::string&, const std::string& path) {
    record("screenshot", path);
    if (screenshotShouldFail) {
        throw DriverError::screenshotFailed("mock");
    }
}

}  // namespace velmora
