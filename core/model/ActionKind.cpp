#include "core/model/ActionKind.h"

#include <array>
#include <utility>

namespace velmora {

namespace {

constexpr std::array<std::pair<ActionKind, std::string_view>, 12> kRawNames{{
    {ActionKind::launch, "launch"},
    {ActionKind::focus, "focus"},
    {ActionKind::click, "click"},
    {ActionKind::doubleClick, "doubleClick"},
    {ActionKind::typeText, "typeText"},
    {ActionKind::keyPress, "keyPress"},
    {ActionKind::scroll, "scroll"},
    {ActionKind::query, "query"},
    {ActionKind::assert_, "assert"},
    {ActionKind::screenshot, "screenshot"},
    {ActionKind::frontmost, "frontmost"},
    {ActionKind::healthTick, "healthTick"},
}};

}  // namespace

std::string_view rawValue(ActionKind kind) {
    return kRawNames[static_cast<size_t>(kind)].second;
}

std::optional<ActionKind> actionKindFromRaw(std::string_view raw) {
    for (const auto& [kind, name] : kRawNames) {
        if (name == raw) {
            return kind;
        }
    }
    return std::nullopt;
}

bool isInputKind(ActionKind kind) {
    switch (kind) {
        case ActionKind::click:
        case ActionKind::doubleClick:
        case ActionKind::typeText:
        case ActionKind::keyPress:
        case ActionKind::scroll:
            return true;
        default:
            return false;
    }
}

}  // namespace velmora
