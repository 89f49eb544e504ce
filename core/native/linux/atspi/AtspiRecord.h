#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/native/Platform.h"
#include "core/native/linux/atspi/AtspiCalls.h"

// What the pipelined reader knows about one accessible element, and how each
// attribute the driver reads is answered from it.
//
// The answers follow the rules of the one-call-at-a-time reader exactly (see
// AtspiAccessibility.h): the same role names with the same traits, the same
// number-or-text values, the same frames and child order, and the same result
// codes for what failed. Only where the facts come from differs.

namespace velmora::native::freedesktop {

// One fact about the element: not asked for, asked for, answered, or failed.
template <typename T>
struct Fetched {
    enum class State { unasked, asked, answered, failed };
    State state = State::unasked;
    T value{};

    bool known() const { return state == State::answered || state == State::failed; }
    bool ok() const { return state == State::answered; }
    void answer(T answer) {
        value = std::move(answer);
        state = State::answered;
    }
    void fail() { state = State::failed; }
};

struct AtspiRecord {
    Fetched<uint32_t> role;  // an AtspiRole
    Fetched<std::string> name;
    Fetched<std::string> accessibleId;
    Fetched<AtspiInterfaces> interfaces;  // failed: it has none
    Fetched<AtspiStateBits> states;       // failed: the empty set
    Fetched<AtspiExtents> extents;
    Fetched<double> currentValue;
    Fetched<int32_t> characterCount;
    Fetched<std::string> text;
    Fetched<std::vector<AtspiAddress>> children;  // null references left out
    // Combo boxes without the editable state: their children's roles, in order.
    std::vector<Fetched<uint32_t>> childRoles;
};

bool hasInterface(const AtspiRecord& record, AtspiInterfaces interface);

// Where the element's "AXValue" comes from, once enough is known to tell.
enum class ValueSource {
    undecided,     // the interfaces, or the states and role, are not known yet
    currentValue,  // the Value interface
    checkState,    // a checkable element: its states
    text,          // the Text interface: character count, then the text
    none,          // no value
};
ValueSource valueSource(const AtspiRecord& record);

// Whether the toolkit of that name (the application's ToolkitName) reads an end
// offset of -1 in GetText as the end of the text, as ATK says: then one request
// reads a text, not its character count first. The toolkits whose texts the
// equality tests read both ways: Gecko (Firefox), Chromium, and GTK 3 and the
// applications it carries (LibreOffice), which call themselves "gtk". GTK 4
// ("GTK") reads -1 as 0; others are not known.
bool readsTextToTheEndAtMinusOne(const std::string& toolkitName);

// Whether, in the cache of an application of that toolkit, an object counted
// with no children is one whose GetChildren lists none, so that its child list
// need not be asked for. ATK's bridge counts an object's children for the cache
// as GetChildren lists them (and -1 where it does not say): GTK 3 and the
// applications it carries ("gtk"). GTK 4 ("GTK") counts none for its
// application object, which has windows; others are not known.
bool cachedChildlessMeansNoChildren(const std::string& toolkitName);

// Whether an application of that toolkit answers Properties.GetAll on an
// object's Accessible interface with the properties Get gives one at a time:
// ATK's bridge does (GTK 3 "gtk", Gecko, Chromium), and so does GTK 4 ("GTK").
// Qt's bridge never answers it, so that each request waits out the time limit;
// others are not known.
bool answersPropertyBatches(const std::string& toolkitName);

// Whether the states name the role (a multi-line text, an editable combo box):
// for every other role, roleAnswer needs the role alone.
bool roleNamedByStates(uint32_t role);

// Whether the role's traits need the children's roles (a combo box that is not
// editable itself); false until the role and states are known.
bool needsChildRoles(const AtspiRecord& record);

// The answers. Each needs the facts it uses to be known.
AttributeRead roleAnswer(const AtspiRecord& record);        // "AXRole"
AttributeRead titleAnswer(const AtspiRecord& record);       // "AXTitle"
AttributeRead identifierAnswer(const AtspiRecord& record);  // "AXIdentifier"
AttributeRead valueAnswer(const AtspiRecord& record);       // "AXValue"
AttributeRead positionAnswer(const AtspiRecord& record);    // "AXPosition"
AttributeRead sizeAnswer(const AtspiRecord& record);        // "AXSize"

// "AXChildren" and "AXWindows": a result code and, on success, the addresses in
// order (the caller turns them into elements).
struct AtspiListAnswer {
    int32_t code = kAXErrorFailure;
    std::vector<AtspiAddress> addresses;
};
AtspiListAnswer childrenAnswer(const AtspiRecord& record);
AtspiListAnswer windowsAnswer(const AtspiRecord& record);

}  // namespace velmora::native::freedesktop
