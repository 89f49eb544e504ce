// How the pipelined reader answers each attribute from what it fetched, and how
// it indexes an application's cache. Pure translations: no bus, no desktop.

#include <gtest/gtest.h>

#include <atspi/atspi-constants.h>

#include <climits>

#include "core/native/linux/atspi/AtspiCacheIndex.h"
#include "core/native/linux/atspi/AtspiRecord.h"

namespace velmora::native::freedesktop {
namespace {

AtspiStateBits statesWith(std::initializer_list<uint32_t> states) {
    AtspiStateBits bits{};
    for (uint32_t state : states) {
        bits[state / 32] |= uint32_t{1} << (state % 32);
    }
    return bits;
}

AtspiRecord recordOf(uint32_t role, AtspiInterfaces interfaces, AtspiStateBits states = {}) {
    AtspiRecord record;
    record.role.answer(role);
    record.interfaces.answer(interfaces);
    record.states.answer(states);
    return record;
}

std::string text(const AttributeRead& read) {
    EXPECT_EQ(read.code, kAXErrorSuccess);
    EXPECT_TRUE(read.value.has_value());
    if (!read.value) {
        return "";
    }
    EXPECT_EQ(read.value->type, AttributeValue::Type::text);
    return read.value->text;
}

double number(const AttributeRead& read) {
    EXPECT_EQ(read.code, kAXErrorSuccess);
    EXPECT_TRUE(read.value.has_value());
    if (!read.value) {
        return -1;
    }
    EXPECT_EQ(read.value->type, AttributeValue::Type::number);
    return read.value->number;
}

TEST(AtspiRecordTest, RolesUseTheMacNamesWithTheirTraits) {
    EXPECT_EQ(text(roleAnswer(recordOf(ATSPI_ROLE_PUSH_BUTTON, 0))), "AXButton");
    EXPECT_EQ(text(roleAnswer(recordOf(ATSPI_ROLE_ENTRY, 0))), "AXTextField");
    EXPECT_EQ(text(roleAnswer(recordOf(ATSPI_ROLE_TEXT, 0, statesWith({ATSPI_STATE_MULTI_LINE})))),
              "AXTextArea");
    EXPECT_EQ(text(roleAnswer(
                  recordOf(ATSPI_ROLE_PASSWORD_TEXT, 0, statesWith({ATSPI_STATE_MULTI_LINE})))),
              "AXTextArea");
    // Multi-line means nothing to other roles.
    EXPECT_EQ(text(roleAnswer(recordOf(ATSPI_ROLE_LABEL, 0, statesWith({ATSPI_STATE_MULTI_LINE})))),
              "AXStaticText");
    EXPECT_EQ(text(roleAnswer(recordOf(ATSPI_ROLE_TREE_ITEM, 0))), "AXTreeItem");
}

TEST(AtspiRecordTest, ARoleNumberNoAtspiVersionDefinesIsUnknown) {
    // An application may answer any number; found by the AT-SPI reply fuzzer,
    // where 15616 was once made an AtspiRole it cannot hold.
    EXPECT_EQ(text(roleAnswer(recordOf(15616, 0))), "AXUnknown");
    EXPECT_EQ(text(roleAnswer(recordOf(ATSPI_ROLE_LAST_DEFINED, 0))), "AXUnknown");
    EXPECT_EQ(text(roleAnswer(recordOf(UINT32_MAX, 0))), "AXUnknown");
    // The last role that is defined still has its name.
    EXPECT_EQ(text(roleAnswer(recordOf(ATSPI_ROLE_LAST_DEFINED - 1, 0))).substr(0, 2), "AX");
    EXPECT_NE(text(roleAnswer(recordOf(ATSPI_ROLE_LAST_DEFINED - 1, 0))), "AXUnknown");
}

TEST(AtspiRecordTest, ARoleThatFailedCannotComplete) {
    AtspiRecord record;
    record.role.fail();
    EXPECT_EQ(roleAnswer(record).code, kAXErrorCannotComplete);
    EXPECT_FALSE(roleAnswer(record).value);
}

TEST(AtspiRecordTest, StatesThatFailedReadAsTheEmptySet) {
    AtspiRecord record = recordOf(ATSPI_ROLE_TEXT, kAtspiText);
    record.states.fail();
    EXPECT_EQ(text(roleAnswer(record)), "AXTextField");
}

TEST(AtspiRecordTest, AComboBoxIsEditableByStateOrByAnEditableChild) {
    AtspiRecord byState = recordOf(ATSPI_ROLE_COMBO_BOX, 0, statesWith({ATSPI_STATE_EDITABLE}));
    EXPECT_FALSE(needsChildRoles(byState));
    EXPECT_EQ(text(roleAnswer(byState)), "AXComboBox");

    AtspiRecord byChild = recordOf(ATSPI_ROLE_COMBO_BOX, 0);
    EXPECT_TRUE(needsChildRoles(byChild));
    byChild.children.answer({{":1.2", "/a"}, {":1.2", "/b"}});
    byChild.childRoles.resize(2);
    byChild.childRoles[0].answer(ATSPI_ROLE_MENU);
    byChild.childRoles[1].answer(ATSPI_ROLE_ENTRY);
    EXPECT_EQ(text(roleAnswer(byChild)), "AXComboBox");

    AtspiRecord plain = byChild;
    plain.childRoles[1].answer(ATSPI_ROLE_PUSH_BUTTON);
    EXPECT_EQ(text(roleAnswer(plain)), "AXPopUpButton");

    // The search ends at the first child whose role cannot be read.
    AtspiRecord stopped = byChild;
    stopped.childRoles[0].fail();
    EXPECT_EQ(text(roleAnswer(stopped)), "AXPopUpButton");

    AtspiRecord orphan = recordOf(ATSPI_ROLE_COMBO_BOX, 0);
    orphan.children.fail();
    EXPECT_EQ(text(roleAnswer(orphan)), "AXPopUpButton");
}

TEST(AtspiRecordTest, EmptyTitlesAndIdentifiersAreNoValue) {
    AtspiRecord record;
    record.name.answer("");
    record.accessibleId.answer("");
    EXPECT_EQ(titleAnswer(record).code, kAXErrorNoValue);
    EXPECT_EQ(identifierAnswer(record).code, kAXErrorNoValue);
    record.name.answer("Save");
    record.accessibleId.answer("save-button");
    EXPECT_EQ(text(titleAnswer(record)), "Save");
    EXPECT_EQ(text(identifierAnswer(record)), "save-button");
    record.name.fail();
    record.accessibleId.fail();
    EXPECT_EQ(titleAnswer(record).code, kAXErrorCannotComplete);
    EXPECT_EQ(identifierAnswer(record).code, kAXErrorCannotComplete);
}

TEST(AtspiRecordTest, TheValueInterfaceGivesANumber) {
    AtspiRecord record = recordOf(ATSPI_ROLE_SLIDER, kAtspiValue | kAtspiText);
    EXPECT_EQ(valueSource(record), ValueSource::currentValue);
    record.currentValue.answer(42.5);
    EXPECT_EQ(number(valueAnswer(record)), 42.5);
    record.currentValue.fail();
    EXPECT_EQ(valueAnswer(record).code, kAXErrorCannotComplete);
}

TEST(AtspiRecordTest, ValueSourceWaitsForWhatDecidesIt) {
    AtspiRecord record;
    EXPECT_EQ(valueSource(record), ValueSource::undecided);
    record.interfaces.answer(kAtspiText);
    EXPECT_EQ(valueSource(record), ValueSource::undecided);  // states and role unknown
    record.states.answer({});
    record.role.answer(ATSPI_ROLE_LABEL);
    EXPECT_EQ(valueSource(record), ValueSource::text);
    // With the Value interface nothing else is needed.
    AtspiRecord slider;
    slider.interfaces.answer(kAtspiValue);
    EXPECT_EQ(valueSource(slider), ValueSource::currentValue);
}

TEST(AtspiRecordTest, CheckableElementsReadTheirStateAsANumber) {
    // Checkable by state, whatever the role; text is not consulted.
    AtspiRecord byState = recordOf(ATSPI_ROLE_PUSH_BUTTON, kAtspiText,
                                   statesWith({ATSPI_STATE_CHECKABLE, ATSPI_STATE_CHECKED}));
    EXPECT_EQ(number(valueAnswer(byState)), 1);
    // Checkable by role.
    EXPECT_EQ(number(valueAnswer(recordOf(ATSPI_ROLE_CHECK_BOX, 0))), 0);
    EXPECT_EQ(number(valueAnswer(
                  recordOf(ATSPI_ROLE_TOGGLE_BUTTON, 0, statesWith({ATSPI_STATE_PRESSED})))),
              1);
    EXPECT_EQ(
        number(valueAnswer(recordOf(ATSPI_ROLE_RADIO_MENU_ITEM, 0,
                                    statesWith({ATSPI_STATE_CHECKED, ATSPI_STATE_INDETERMINATE})))),
        2);
    // A role that cannot be read makes nothing checkable.
    AtspiRecord unknown = recordOf(ATSPI_ROLE_CHECK_BOX, 0);
    unknown.role.fail();
    EXPECT_EQ(valueSource(unknown), ValueSource::none);
}

TEST(AtspiRecordTest, TextElementsReadTheirTextEvenWhenEmpty) {
    AtspiRecord record = recordOf(ATSPI_ROLE_ENTRY, kAtspiText);
    record.characterCount.answer(0);
    record.text.answer("");
    EXPECT_EQ(text(valueAnswer(record)), "");
    record.characterCount.answer(5);
    record.text.answer("héllo");
    EXPECT_EQ(text(valueAnswer(record)), "héllo");
    record.text.fail();
    EXPECT_EQ(valueAnswer(record).code, kAXErrorCannotComplete);
    AtspiRecord uncounted = recordOf(ATSPI_ROLE_ENTRY, kAtspiText);
    uncounted.characterCount.fail();
    EXPECT_EQ(valueAnswer(uncounted).code, kAXErrorCannotComplete);
}

TEST(AtspiRecordTest, WithoutValueCheckOrTextThereIsNoValue) {
    EXPECT_EQ(valueAnswer(recordOf(ATSPI_ROLE_FILLER, kAtspiComponent)).code, kAXErrorNoValue);
    AtspiRecord noInterfaces = recordOf(ATSPI_ROLE_LABEL, 0);
    noInterfaces.interfaces.fail();
    EXPECT_EQ(valueAnswer(noInterfaces).code, kAXErrorNoValue);
}

TEST(AtspiRecordTest, ExtentsGiveThePositionAndTheSize) {
    AtspiRecord record = recordOf(ATSPI_ROLE_PUSH_BUTTON, kAtspiComponent);
    record.extents.answer({10, -20, 30, 40});
    AttributeRead position = positionAnswer(record);
    ASSERT_EQ(position.code, kAXErrorSuccess);
    ASSERT_EQ(position.value->type, AttributeValue::Type::boxed);
    EXPECT_EQ(position.value->boxed.type, kAXValueCGPointType);
    EXPECT_EQ(position.value->boxed.point, (Point{10, -20}));
    AttributeRead size = sizeAnswer(record);
    ASSERT_EQ(size.code, kAXErrorSuccess);
    EXPECT_EQ(size.value->boxed.type, kAXValueCGSizeType);
    EXPECT_EQ(size.value->boxed.size, (Size{30, 40}));
}

TEST(AtspiRecordTest, OffScreenUnsupportedAndFailedExtents) {
    AtspiRecord offScreen = recordOf(ATSPI_ROLE_MENU_ITEM, kAtspiComponent);
    offScreen.extents.answer({INT32_MIN, INT32_MIN, 0, 0});
    EXPECT_EQ(positionAnswer(offScreen).code, kAXErrorNoValue);
    EXPECT_EQ(sizeAnswer(offScreen).code, kAXErrorNoValue);

    AtspiRecord noComponent = recordOf(ATSPI_ROLE_APPLICATION, 0);
    noComponent.extents.answer({1, 2, 3, 4});  // whatever came back: unused
    EXPECT_EQ(positionAnswer(noComponent).code, kAXErrorAttributeUnsupported);
    EXPECT_EQ(sizeAnswer(noComponent).code, kAXErrorAttributeUnsupported);

    AtspiRecord failed = recordOf(ATSPI_ROLE_PUSH_BUTTON, kAtspiComponent);
    failed.extents.fail();
    EXPECT_EQ(positionAnswer(failed).code, kAXErrorCannotComplete);
}

TEST(AtspiRecordTest, ChildrenAndWindows) {
    AtspiRecord application = recordOf(ATSPI_ROLE_APPLICATION, 0);
    application.children.answer({{":1.2", "/w1"}, {":1.2", "/w2"}});
    EXPECT_EQ(childrenAnswer(application).addresses.size(), 2u);
    EXPECT_EQ(windowsAnswer(application).code, kAXErrorSuccess);
    EXPECT_EQ(windowsAnswer(application).addresses[1].path, "/w2");

    AtspiRecord window = recordOf(ATSPI_ROLE_FRAME, 0);
    window.children.answer({});
    EXPECT_EQ(childrenAnswer(window).code, kAXErrorSuccess);
    EXPECT_EQ(windowsAnswer(window).code, kAXErrorAttributeUnsupported);

    AtspiRecord failed = recordOf(ATSPI_ROLE_APPLICATION, 0);
    failed.children.fail();
    EXPECT_EQ(childrenAnswer(failed).code, kAXErrorCannotComplete);
    failed.role.fail();
    EXPECT_EQ(windowsAnswer(failed).code, kAXErrorCannotComplete);
}

AtspiCacheItem item(const std::string& path, const std::string& parent, int32_t index,
                    int32_t childCount) {
    AtspiCacheItem made;
    made.object = {":1.5", path};
    made.parent = {":1.5", parent};
    made.indexInParent = index;
    made.childCount = childCount;
    made.name = path;
    return made;
}

TEST(AtspiCacheIndexTest, ObjectsAreFoundByTheirAddress) {
    AtspiCacheIndex index(":1.5", {item("/c", "/p", 2, 0), item("/p", "/root", 0, 3),
                                   item("/a", "/p", 0, 0), item("/b", "/p", 1, 0)});
    ASSERT_NE(index.find({":1.5", "/b"}), nullptr);
    EXPECT_EQ(index.find({":1.5", "/b"})->name, "/b");
    EXPECT_EQ(index.find({":1.6", "/b"}), nullptr);
    EXPECT_EQ(index.find({":1.5", "/missing"}), nullptr);
    EXPECT_EQ(index.size(), 4u);
}

}  // namespace
}  // namespace velmora::native::freedesktop
