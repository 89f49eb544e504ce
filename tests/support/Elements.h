#pragma once

#include <optional>
#include <string>
#include <utility>

#include "core/model/Response.h"

namespace velmora::testing {

// An element as a driver reports it: `valuePresent` follows whether it has a value.
inline ElementInfo element(std::string role, std::optional<std::string> title = std::nullopt,
                           std::optional<std::string> identifier = std::nullopt,
                           std::optional<std::string> value = std::nullopt,
                           std::optional<Rect> frame = std::nullopt) {
    ElementInfo info;
    info.role = std::move(role);
    info.title = std::move(title);
    info.identifier = std::move(identifier);
    info.valuePresent = value.has_value();
    info.value = std::move(value);
    info.frame = frame;
    return info;
}

// The element as a query without values returns it.
inline ElementInfo withoutValue(ElementInfo info) {
    info.value.reset();
    return info;
}

}  // namespace velmora::testing
