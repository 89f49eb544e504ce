#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <atspi/atspi-constants.h>

namespace velmora::native::freedesktop {

// What besides its role decides an element's role name.
struct RoleTraits {
    bool multiLine = false;  // ATSPI_STATE_MULTI_LINE
    bool editable = false;   // ATSPI_STATE_EDITABLE, or an editable child (combo boxes)
};

// The role an AT-SPI element reports as "AXRole": the name that the macOS
// accessibility interface gives the same kind of element, so that selectors and
// role histograms read alike on both systems. The one table is:
//
//   AT-SPI role                          AXRole
//   push button                          AXButton
//   check box                            AXCheckBox
//   radio button, page tab               AXRadioButton
//   text, entry, password text           AXTextField (AXTextArea when multi-line)
//   label                                AXStaticText
//   frame, window, dialog                AXWindow
//   application                          AXApplication
//   menu bar                             AXMenuBar
//   menu, popup menu                     AXMenu
//   menu item, check/radio menu item     AXMenuItem
//   combo box                            AXComboBox when editable, else AXPopUpButton
//   list, list box                       AXList
//   table                                AXTable
//   table cell                           AXCell
//   tree table                           AXOutline
//   scroll bar                           AXScrollBar
//   scroll pane                          AXScrollArea
//   slider                               AXSlider
//   spin button                          AXIncrementor
//   progress bar                         AXProgressIndicator
//   tool bar                             AXToolbar
//   page tab list                        AXTabGroup
//   image, icon                          AXImage
//   link                                 AXLink
//   panel, filler                        AXGroup
//   heading                              AXHeading
//   document web (a web page)            AXWebArea
//   static (a web page's text)           AXStaticText
//   section, paragraph, article,         AXGroup
//     block quote, form, landmark
//   table row                            AXRow
//   any other role                       "AX" + its AT-SPI name in upper camel case
//                                        (tree item -> AXTreeItem, document text
//                                        -> AXDocumentText), as macOS has no
//                                        such role
//
// The role is a number as it came from the application, which may be one that
// no AT-SPI version defines (it reads as "AXUnknown"); it is never made an
// AtspiRole before it is known to be one.
std::string macRoleName(uint32_t role, RoleTraits traits = {});

// Roles whose value is their text: single-line, multi-line and password text.
bool isTextRole(uint32_t role);
// Roles that are checkable by nature, whatever states they report.
bool isCheckableRole(uint32_t role);

// AT-SPI's own name of a role ("push button"), the same as libatspi's
// atspi_role_get_name; empty for a number past the roles AT-SPI defines.
std::string_view atspiRoleName(uint32_t role);

// "AX" followed by an AT-SPI role name in upper camel case: "document frame" ->
// "AXDocumentFrame". Blanks, hyphens and underscores separate words.
std::string upperCamelRoleName(const std::string& atspiRoleName);

}  // namespace velmora::native::freedesktop
