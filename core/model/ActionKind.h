#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velmora {

// The kinds of action a request may ask for. The wire form is the raw name,
// matched exactly and case-sensitively.
enum class ActionKind {
    launch,
    focus,
    click,
    doubleClick,
    typeText,
    keyPress,
    scroll,
    query,
    assert_,  // "assert"; the trailing underscore only dodges the C macro.
    screenshot,
    frontmost,
    healthTick,
};

// The raw wire name of a kind. Total.
std::string_view rawValue(ActionKind kind);

// The kind whose raw name is exactly `raw`, or none.
std::optional<ActionKind> actionKindFromRaw(std::string_view raw);

// Input kinds synthesise events: they need the target in front and are never reversible.
bool isInputKind(ActionKind kind);

}  // namespace velmora
