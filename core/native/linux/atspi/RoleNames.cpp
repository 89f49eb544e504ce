#include "core/native/linux/atspi/RoleNames.h"

#include <cctype>

#include <atspi/atspi.h>

namespace velmora::native::freedesktop {

std::string upperCamelRoleName(const std::string& atspiRoleName) {
    std::string name = "AX";
    bool startOfWord = true;
    for (char c : atspiRoleName) {
        if (c == ' ' || c == '-' || c == '_') {
            startOfWord = true;
            continue;
        }
        auto byte = static_cast<unsigned char>(c);
        name += static_cast<char>(startOfWord ? std::toupper(byte) : byte);
        startOfWord = false;
    }
    return name;
}

std::string macRoleName(uint32_t role, RoleTraits traits) {
    switch (role) {
        case ATSPI_ROLE_PUSH_BUTTON:
            return "AXButton";
        case ATSPI_ROLE_CHECK_BOX:
            return "AXCheckBox";
        case ATSPI_ROLE_RADIO_BUTTON:
        case ATSPI_ROLE_PAGE_TAB:
            return "AXRadioButton";
        case ATSPI_ROLE_TEXT:
        case ATSPI_ROLE_ENTRY:
        case ATSPI_ROLE_PASSWORD_TEXT:
            return traits.multiLine ? "AXTextArea" : "AXTextField";
        case ATSPI_ROLE_LABEL:
            return "AXStaticText";
        case ATSPI_ROLE_FRAME:
        case ATSPI_ROLE_WINDOW:
        case ATSPI_ROLE_DIALOG:
            return "AXWindow";
        case ATSPI_ROLE_APPLICATION:
            return "AXApplication";
        case ATSPI_ROLE_MENU_BAR:
            return "AXMenuBar";
        case ATSPI_ROLE_MENU:
        case ATSPI_ROLE_POPUP_MENU:
            return "AXMenu";
        case ATSPI_ROLE_MENU_ITEM:
        case ATSPI_ROLE_CHECK_MENU_ITEM:
        case ATSPI_ROLE_RADIO_MENU_ITEM:
            return "AXMenuItem";
        case ATSPI_ROLE_COMBO_BOX:
            return traits.editable ? "AXComboBox" : "AXPopUpButton";
        case ATSPI_ROLE_LIST:
        case ATSPI_ROLE_LIST_BOX:
            return "AXList";
        case ATSPI_ROLE_TABLE:
            return "AXTable";
        case ATSPI_ROLE_TABLE_CELL:
            return "AXCell";
        case ATSPI_ROLE_TREE_TABLE:
            return "AXOutline";
        case ATSPI_ROLE_SCROLL_BAR:
            return "AXScrollBar";
        case ATSPI_ROLE_SCROLL_PANE:
            return "AXScrollArea";
        case ATSPI_ROLE_SLIDER:
            return "AXSlider";
        case ATSPI_ROLE_SPIN_BUTTON:
            return "AXIncrementor";
        case ATSPI_ROLE_PROGRESS_BAR:
            return "AXProgressIndicator";
        case ATSPI_ROLE_TOOL_BAR:
            return "AXToolbar";
        case ATSPI_ROLE_PAGE_TAB_LIST:
            return "AXTabGroup";
        case ATSPI_ROLE_IMAGE:
        case ATSPI_ROLE_ICON:
            return "AXImage";
        case ATSPI_ROLE_LINK:
            return "AXLink";
        case ATSPI_ROLE_PANEL:
        case ATSPI_ROLE_FILLER:
            return "AXGroup";
        case ATSPI_ROLE_HEADING:
            return "AXHeading";
        // The roles of web pages and office documents.
        case ATSPI_ROLE_DOCUMENT_WEB:
            return "AXWebArea";
        case ATSPI_ROLE_STATIC:
            return "AXStaticText";
        case ATSPI_ROLE_SECTION:
        case ATSPI_ROLE_PARAGRAPH:
        case ATSPI_ROLE_ARTICLE:
        case ATSPI_ROLE_BLOCK_QUOTE:
        case ATSPI_ROLE_FORM:
        case ATSPI_ROLE_LANDMARK:
            return "AXGroup";
        case ATSPI_ROLE_TABLE_ROW:
            return "AXRow";
        default:
            break;
    }
    gchar* atspiName = role < ATSPI_ROLE_LAST_DEFINED
                           ? atspi_role_get_name(static_cast<AtspiRole>(role))
                           : nullptr;
    std::string name = upperCamelRoleName(atspiName != nullptr ? atspiName : "unknown");
    g_free(atspiName);
    return name;
}

bool isTextRole(uint32_t role) {
    return role == ATSPI_ROLE_TEXT || role == ATSPI_ROLE_ENTRY || role == ATSPI_ROLE_PASSWORD_TEXT;
}

bool isCheckableRole(uint32_t role) {
    switch (role) {
        case ATSPI_ROLE_CHECK_BOX:
        case ATSPI_ROLE_RADIO_BUTTON:
        case ATSPI_ROLE_TOGGLE_BUTTON:
        case ATSPI_ROLE_CHECK_MENU_ITEM:
        case ATSPI_ROLE_RADIO_MENU_ITEM:
            return true;
        default:
            return false;
    }
}

}  // namespace velmora::native::freedesktop
