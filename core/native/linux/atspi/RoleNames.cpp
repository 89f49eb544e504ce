#include "core/native/linux/atspi/RoleNames.h"

#include <array>
#include <cctype>
#include <string_view>

namespace velmora::native::freedesktop {

namespace {

// AT-SPI's names of its roles, by role number, as libatspi's atspi_role_get_name
// gives them. Kept here so that naming a role needs no libatspi (and with it
// GLib's type system) in the agent's process.
constexpr std::array<std::string_view, ATSPI_ROLE_LAST_DEFINED> kAtspiRoleNames = {
    "invalid",
    "accelerator label",
    "alert",
    "animation",
    "arrow",
    "calendar",
    "canvas",
    "check box",
    "check menu item",
    "color chooser",
    "column header",
    "combo box",
    "date editor",
    "desktop icon",
    "desktop frame",
    "dial",
    "dialog",
    "directory pane",
    "drawing area",
    "file chooser",
    "filler",
    "focus traversable",
    "font chooser",
    "frame",
    "glass pane",
    "html container",
    "icon",
    "image",
    "internal frame",
    "label",
    "layered pane",
    "list",
    "list item",
    "menu",
    "menu bar",
    "menu item",
    "option pane",
    "page tab",
    "page tab list",
    "panel",
    "password text",
    "popup menu",
    "progress bar",
    "push button",
    "radio button",
    "radio menu item",
    "root pane",
    "row header",
    "scroll bar",
    "scroll pane",
    "separator",
    "slider",
    "spin button",
    "split pane",
    "status bar",
    "table",
    "table cell",
    "table column header",
    "table row header",
    "tearoff menu item",
    "terminal",
    "text",
    "toggle button",
    "tool bar",
    "tool tip",
    "tree",
    "tree table",
    "unknown",
    "viewport",
    "window",
    "extended",
    "header",
    "footer",
    "paragraph",
    "ruler",
    "application",
    "autocomplete",
    "editbar",
    "embedded",
    "entry",
    "chart",
    "caption",
    "document frame",
    "heading",
    "page",
    "section",
    "redundant object",
    "form",
    "link",
    "input method window",
    "table row",
    "tree item",
    "document spreadsheet",
    "document presentation",
    "document text",
    "document web",
    "document email",
    "comment",
    "list box",
    "grouping",
    "image map",
    "notification",
    "info bar",
    "level bar",
    "title bar",
    "block quote",
    "audio",
    "video",
    "definition",
    "article",
    "landmark",
    "log",
    "marquee",
    "math",
    "rating",
    "timer",
    "static",
    "math fraction",
    "math root",
    "subscript",
    "superscript",
    "description list",
    "description term",
    "description value",
    "footnote",
    "content deletion",
    "content insertion",
    "mark",
    "suggestion",
    "push button menu",
};

}  // namespace

std::string_view atspiRoleName(uint32_t role) {
    return role < kAtspiRoleNames.size() ? kAtspiRoleNames[role] : std::string_view();
}

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
    const std::string_view atspiName = atspiRoleName(role);
    return upperCamelRoleName(atspiName.empty() ? "unknown" : std::string(atspiName));
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
