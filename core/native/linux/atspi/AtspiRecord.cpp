#include "core/native/linux/atspi/AtspiRecord.h"

#include <algorithm>
#include <climits>

#include <atspi/atspi-constants.h>

#include "core/native/linux/atspi/RoleNames.h"

namespace velmora::native::freedesktop {

namespace {

AtspiStateBits statesOf(const AtspiRecord& record) {
    return record.states.ok() ? record.states.value : AtspiStateBits{};
}

bool isCheckable(const AtspiRecord& record) {
    if (hasState(statesOf(record), ATSPI_STATE_CHECKABLE)) {
        return true;
    }
    if (!record.role.ok()) {
        return false;
    }
    return isCheckableRole(record.role.value);
}

// The children are looked at in order; the first that fails ends the search.
bool hasEditableChild(const AtspiRecord& record) {
    if (!record.children.ok()) {
        return false;
    }
    for (const auto& role : record.childRoles) {
        if (!role.ok()) {
            return false;
        }
        if (role.value == ATSPI_ROLE_TEXT || role.value == ATSPI_ROLE_ENTRY) {
            return true;
        }
    }
    return false;
}

AttributeRead nonEmptyText(const Fetched<std::string>& text) {
    if (!text.ok()) {
        return AttributeRead::failure(kAXErrorCannotComplete);
    }
    if (text.value.empty()) {
        return AttributeRead::failure(kAXErrorNoValue);
    }
    return AttributeRead::success(AttributeValue::ofText(text.value));
}

AttributeRead extentsAnswer(const AtspiRecord& record, bool position) {
    if (!hasInterface(record, kAtspiComponent)) {
        return AttributeRead::failure(kAXErrorAttributeUnsupported);
    }
    if (!record.extents.ok()) {
        return AttributeRead::failure(kAXErrorCannotComplete);
    }
    const AtspiExtents& extents = record.extents.value;
    // Toolkits place what is not on screen at the smallest coordinate.
    if (extents.x == INT32_MIN || extents.y == INT32_MIN) {
        return AttributeRead::failure(kAXErrorNoValue);
    }
    if (position) {
        return AttributeRead::success(AttributeValue::ofPoint(
            Point{.x = static_cast<double>(extents.x), .y = static_cast<double>(extents.y)}));
    }
    return AttributeRead::success(
        AttributeValue::ofSize(Size{.width = static_cast<double>(extents.width),
                                    .height = static_cast<double>(extents.height)}));
}

}  // namespace

bool hasInterface(const AtspiRecord& record, AtspiInterfaces interface) {
    return record.interfaces.ok() && (record.interfaces.value & interface) != 0;
}

ValueSource valueSource(const AtspiRecord& record) {
    if (!record.interfaces.known()) {
        return ValueSource::undecided;
    }
    if (hasInterface(record, kAtspiValue)) {
        return ValueSource::currentValue;
    }
    if (!record.states.known() || !record.role.known()) {
        return ValueSource::undecided;
    }
    if (isCheckable(record)) {
        return ValueSource::checkState;
    }
    if (hasInterface(record, kAtspiText)) {
        return ValueSource::text;
    }
    return ValueSource::none;
}

bool readsTextToTheEndAtMinusOne(const std::string& toolkitName) {
    return toolkitName == "Gecko" || toolkitName == "Chromium" || toolkitName == "gtk";
}

bool cachedChildlessMeansNoChildren(const std::string& toolkitName) {
    return toolkitName == "gtk";
}

bool answersPropertyBatches(const std::string& toolkitName) {
    return toolkitName == "gtk" || toolkitName == "GTK" || toolkitName == "Gecko" ||
           toolkitName == "Chromium";
}

bool roleNamedByStates(uint32_t role) {
    return isTextRole(role) || role == ATSPI_ROLE_COMBO_BOX;
}

bool needsChildRoles(const AtspiRecord& record) {
    return record.role.ok() && record.role.value == ATSPI_ROLE_COMBO_BOX && record.states.known() &&
           !hasState(statesOf(record), ATSPI_STATE_EDITABLE);
}

AttributeRead roleAnswer(const AtspiRecord& record) {
    if (!record.role.ok()) {
        return AttributeRead::failure(kAXErrorCannotComplete);
    }
    const uint32_t role = record.role.value;
    RoleTraits traits;
    if (isTextRole(role)) {
        traits.multiLine = hasState(statesOf(record), ATSPI_STATE_MULTI_LINE);
    } else if (role == ATSPI_ROLE_COMBO_BOX) {
        traits.editable =
            hasState(statesOf(record), ATSPI_STATE_EDITABLE) || hasEditableChild(record);
    }
    return AttributeRead::success(AttributeValue::ofText(macRoleName(role, traits)));
}

AttributeRead titleAnswer(const AtspiRecord& record) {
    return nonEmptyText(record.name);
}

AttributeRead identifierAnswer(const AtspiRecord& record) {
    return nonEmptyText(record.accessibleId);
}

AttributeRead valueAnswer(const AtspiRecord& record) {
    switch (valueSource(record)) {
        case ValueSource::currentValue:
            if (!record.currentValue.ok()) {
                return AttributeRead::failure(kAXErrorCannotComplete);
            }
            return AttributeRead::success(AttributeValue::ofNumber(record.currentValue.value));
        case ValueSource::checkState: {
            const AtspiStateBits states = statesOf(record);
            const double checked =
                hasState(states, ATSPI_STATE_INDETERMINATE) ? 2
                : hasState(states, ATSPI_STATE_CHECKED) || hasState(states, ATSPI_STATE_PRESSED)
                    ? 1
                    : 0;
            return AttributeRead::success(AttributeValue::ofNumber(checked));
        }
        case ValueSource::text:
            // Read after its character count, or to the end at once.
            if (!record.text.ok()) {
                return AttributeRead::failure(kAXErrorCannotComplete);
            }
            // An empty text field has the empty text as its value.
            return AttributeRead::success(AttributeValue::ofText(record.text.value));
        case ValueSource::none:
            return AttributeRead::failure(kAXErrorNoValue);
        case ValueSource::undecided:
            break;
    }
    return AttributeRead::failure(kAXErrorCannotComplete);
}

AttributeRead positionAnswer(const AtspiRecord& record) {
    return extentsAnswer(record, true);
}

AttributeRead sizeAnswer(const AtspiRecord& record) {
    return extentsAnswer(record, false);
}

AtspiListAnswer childrenAnswer(const AtspiRecord& record) {
    if (!record.children.ok()) {
        return {kAXErrorCannotComplete, {}};
    }
    return {kAXErrorSuccess, record.children.value};
}

AtspiListAnswer windowsAnswer(const AtspiRecord& record) {
    if (!record.role.ok()) {
        return {kAXErrorCannotComplete, {}};
    }
    if (record.role.value != ATSPI_ROLE_APPLICATION) {
        return {kAXErrorAttributeUnsupported, {}};
    }
    return childrenAnswer(record);
}

}  // namespace velmora::native::freedesktop
