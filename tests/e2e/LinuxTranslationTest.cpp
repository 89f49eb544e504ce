// The Linux provider's pure translations: which application a process is, role
// names, key and wheel translation, PNG encoding. No desktop involved.

#include <atspi/atspi.h>
#include <gtest/gtest.h>
#include <png.h>

#include <X11/XF86keysym.h>
#include <X11/keysym.h>

#include "core/native/linux/PngEncoder.h"
#include "core/native/linux/atspi/RoleNames.h"
#include "core/native/linux/desktop/ApplicationIdentity.h"
#include "core/native/linux/desktop/ToolkitSwitches.h"
#include "core/native/linux/x11/KeyTranslation.h"
#include "core/native/linux/x11/X11Connection.h"

namespace velmora::native::freedesktop {
namespace {

// ---------------------------------------------------------------------------
// Application identity

std::vector<DesktopEntry> installed() {
    return {
        {.id = "org.xfce.mousepad-settings",
         .fileName = "/usr/share/applications/org.xfce.mousepad-settings.desktop",
         .startupWMClass = "",
         .program = "mousepad",
         .shown = true},
        {.id = "org.xfce.mousepad",
         .fileName = "/usr/share/applications/org.xfce.mousepad.desktop",
         .startupWMClass = "",
         .program = "mousepad",
         .shown = true},
        {.id = "galculator",
         .fileName = "/usr/share/applications/galculator.desktop",
         .startupWMClass = "",
         .program = "galculator",
         .shown = true},
        {.id = "org.example.Viewer",
         .fileName = "/usr/share/applications/org.example.Viewer.desktop",
         .startupWMClass = "Viewer",
         .program = "viewer-launcher",
         .shown = true},
        {.id = "hidden-helper",
         .fileName = "/usr/share/applications/hidden-helper.desktop",
         .startupWMClass = "",
         .program = "helper",
         .shown = false},
        {.id = "shown-helper",
         .fileName = "/usr/share/applications/shown-helper.desktop",
         .startupWMClass = "",
         .program = "helper",
         .shown = true},
        // One office process behind several entries, each naming its windows'
        // class; the entries' program is a shell script.
        {.id = "libreoffice-writer",
         .fileName = "/usr/share/applications/libreoffice-writer.desktop",
         .startupWMClass = "libreoffice-writer",
         .program = "libreoffice",
         .shown = true},
        {.id = "libreoffice-calc",
         .fileName = "/usr/share/applications/libreoffice-calc.desktop",
         .startupWMClass = "libreoffice-calc",
         .program = "libreoffice",
         .shown = true},
        // A browser whose entry runs a wrapper script that execs the browser.
        {.id = "chromium",
         .fileName = "/usr/share/applications/chromium.desktop",
         .startupWMClass = "chromium",
         .program = "chromium",
         .shown = true},
    };
}

WindowIdentity windowOfClass(const std::string& instance, const std::string& className) {
    return WindowIdentity{.classes = {instance, className}, .gtkApplicationId = ""};
}

ProcessFacts inheritedLaunch(ProcessFacts facts, const std::string& entryFile, int32_t launcher) {
    facts.launchedDesktopFile = entryFile;
    facts.launchedDesktopFilePid = launcher;
    return facts;
}

ProcessFacts processRunning(const std::string& executable) {
    return ProcessFacts{.processId = 42,
                        .launchedDesktopFile = std::nullopt,
                        .launchedDesktopFilePid = std::nullopt,
                        .executablePath = executable,
                        .commandName = baseName(executable),
                        .windows = {},
                        .display = std::nullopt};
}

TEST(ApplicationIdentity, TheEntryAProcessWasLaunchedFromNamesIt) {
    auto facts = processRunning("/usr/bin/mousepad");
    facts.launchedDesktopFile = "/usr/share/applications/org.xfce.mousepad-settings.desktop";
    facts.launchedDesktopFilePid = 42;
    EXPECT_EQ(applicationIdOf(facts, installed()), "org.xfce.mousepad-settings");
}

TEST(ApplicationIdentity, ALaunchedEntryOutsideTheInstalledOnesIsNamedByItsFile) {
    auto facts = processRunning("/opt/tool/bin/tool");
    facts.launchedDesktopFile = "/home/user/Desktop/my-tool.desktop";
    EXPECT_EQ(applicationIdOf(facts, installed()), "my-tool");
}

TEST(ApplicationIdentity, ALaunchedEntryInheritedFromAParentDoesNotCount) {
    // A program started from a terminal that was itself launched from an entry.
    auto facts = processRunning("/usr/bin/galculator");
    facts.launchedDesktopFile = "/usr/share/applications/org.xfce.mousepad.desktop";
    facts.launchedDesktopFilePid = 7;
    EXPECT_EQ(applicationIdOf(facts, installed()), "galculator");
}

TEST(ApplicationIdentity, StartupWMClassMatchesAWindowClass) {
    auto facts = processRunning("/usr/lib/viewer/viewer-bin");
    facts.windows = {windowOfClass("viewer", "Viewer")};
    EXPECT_EQ(applicationIdOf(facts, installed()), "org.example.Viewer");
}

TEST(ApplicationIdentity, TheExecProgramMatchesTheExecutableShownEntriesAndSmallestIdFirst) {
    EXPECT_EQ(applicationIdOf(processRunning("/usr/bin/galculator"), installed()), "galculator");
    // Two shown entries run mousepad: the smaller id wins.
    EXPECT_EQ(applicationIdOf(processRunning("/usr/bin/mousepad"), installed()),
              "org.xfce.mousepad");
    // A hidden entry loses to a shown one even with a smaller id.
    EXPECT_EQ(applicationIdOf(processRunning("/usr/libexec/helper"), installed()), "shown-helper");
}

TEST(ApplicationIdentity, TheCommandNameMatchesWhenTheExecutableIsAnInterpreter) {
    auto facts = processRunning("/usr/bin/python3.11");
    facts.commandName = "galculator";
    EXPECT_EQ(applicationIdOf(facts, installed()), "galculator");
}

TEST(ApplicationIdentity, WithoutAnEntryTheGtkApplicationIdThenTheExecutableName) {
    auto facts = processRunning("/usr/bin/gnome-calculator");
    facts.windows = {WindowIdentity{.classes = {}, .gtkApplicationId = "org.gnome.Calculator"}};
    EXPECT_EQ(applicationIdOf(facts, installed()), "org.gnome.Calculator");
    EXPECT_EQ(applicationIdOf(processRunning("/usr/bin/xterm"), installed()), "xterm");
    auto unknownExecutable = processRunning("");
    unknownExecutable.commandName = "daemon";
    EXPECT_EQ(applicationIdOf(unknownExecutable, installed()), "daemon");
}

TEST(ApplicationIdentity, AnOfficeProcessStartedByALauncherIsNamedByItsWindows) {
    // libreoffice-writer's script starts oosplash (launched from the entry),
    // which starts soffice.bin: soffice.bin inherits the launch and is named by
    // its window's class.
    auto writer = inheritedLaunch(processRunning("/usr/lib/libreoffice/program/soffice.bin"),
                                  "/usr/share/applications/libreoffice-writer.desktop", 7);
    writer.windows = {windowOfClass("libreoffice", "libreoffice-writer")};
    EXPECT_EQ(applicationIdOf(writer, installed()), "libreoffice-writer");
    EXPECT_EQ(applicationIdsOf(writer, installed()),
              std::vector<std::string>{"libreoffice-writer"});
    EXPECT_TRUE(ownsWindowsOf(writer, "libreoffice-writer", installed()));

    // The launcher itself was launched from the entry but owns no window.
    auto launcher = processRunning("/usr/lib/libreoffice/program/oosplash");
    launcher.processId = 7;
    launcher.launchedDesktopFile = "/usr/share/applications/libreoffice-writer.desktop";
    launcher.launchedDesktopFilePid = 7;
    EXPECT_EQ(applicationIdsOf(launcher, installed()),
              std::vector<std::string>{"libreoffice-writer"});
    EXPECT_FALSE(ownsWindowsOf(launcher, "libreoffice-writer", installed()));
}

TEST(ApplicationIdentity, OneProcessServingSeveralEntriesIsToldApartByItsWindows) {
    auto office = inheritedLaunch(processRunning("/usr/lib/libreoffice/program/soffice.bin"),
                                  "/usr/share/applications/libreoffice-writer.desktop", 7);
    const auto writerWindow = windowOfClass("libreoffice", "libreoffice-writer");
    const auto calcWindow = windowOfClass("libreoffice", "libreoffice-calc");
    const auto dialog = windowOfClass("soffice", "Soffice");  // says nothing
    office.windows = {writerWindow, calcWindow, dialog};
    EXPECT_EQ(applicationIdOfWindow(office, writerWindow, installed()), "libreoffice-writer");
    EXPECT_EQ(applicationIdOfWindow(office, calcWindow, installed()), "libreoffice-calc");
    // A window whose classes name no entry stands for the process's own id.
    EXPECT_EQ(applicationIdOfWindow(office, dialog, installed()), "libreoffice-writer");
    EXPECT_EQ(applicationIdsOf(office, installed()),
              (std::vector<std::string>{"libreoffice-writer", "libreoffice-calc"}));
    EXPECT_TRUE(ownsWindowsOf(office, "libreoffice-calc", installed()));
    EXPECT_FALSE(ownsWindowsOf(office, "org.xfce.mousepad", installed()));
}

TEST(ApplicationIdentity, AProcessLaunchedFromAnEntryKeepsItsIdWhateverItsWindowsSay) {
    // A user's own entry that runs the browser with a profile of its own.
    auto browser = processRunning("/usr/lib/chromium/chromium");
    browser.launchedDesktopFile = "/home/user/.local/share/applications/work-browser.desktop";
    browser.launchedDesktopFilePid = 42;
    const auto window = windowOfClass("chromium", "Chromium");
    browser.windows = {window};
    EXPECT_EQ(applicationIdOfWindow(browser, window, installed()), "work-browser");
    EXPECT_EQ(applicationIdsOf(browser, installed()), std::vector<std::string>{"work-browser"});
}

TEST(ApplicationIdentity, ABrowserBehindAWrapperScriptAndItsHelperProcesses) {
    // The wrapper script execs the browser: the launched process is the browser,
    // with the entry's launch in its own environment and the windows.
    auto browser = processRunning("/usr/lib/chromium/chromium");
    browser.commandName = "chromium";
    browser.launchedDesktopFile = "/usr/share/applications/chromium.desktop";
    browser.launchedDesktopFilePid = 42;
    browser.windows = {windowOfClass("chromium", "Chromium")};
    EXPECT_EQ(applicationIdsOf(browser, installed()), std::vector<std::string>{"chromium"});
    EXPECT_TRUE(ownsWindowsOf(browser, "chromium", installed()));

    // Its renderers run the same executable, inherit the launch and own no
    // window: the same application, but not the one owning its windows.
    auto renderer = inheritedLaunch(processRunning("/usr/lib/chromium/chromium"),
                                    "/usr/share/applications/chromium.desktop", 42);
    renderer.processId = 43;
    EXPECT_EQ(applicationIdsOf(renderer, installed()), std::vector<std::string>{"chromium"});
    EXPECT_FALSE(ownsWindowsOf(renderer, "chromium", installed()));

    // Found without having been launched from the entry (started from a
    // terminal through the script): its window class names it.
    auto started = processRunning("/usr/lib/chromium/chromium");
    started.windows = {windowOfClass("chromium", "Chromium")};
    EXPECT_EQ(applicationIdOf(started, installed()), "chromium");
}

TEST(ApplicationIdentity, AWindowlessProcessIsNamedByTheProcessRule) {
    auto daemon = processRunning("/usr/bin/galculator");
    EXPECT_EQ(applicationIdsOf(daemon, installed()), std::vector<std::string>{"galculator"});
    EXPECT_FALSE(ownsWindowsOf(daemon, "galculator", installed()));
}

TEST(ApplicationIdentity, DesktopIdsOfFiles) {
    EXPECT_EQ(desktopIdOfFile("/usr/share/applications/org.example.Viewer.desktop", installed()),
              "org.example.Viewer");
    EXPECT_EQ(desktopIdOfFile("/tmp/other.desktop", installed()), "other");
    EXPECT_EQ(desktopIdOfFile("/tmp/no-suffix", installed()), "no-suffix");
    EXPECT_EQ(baseName("/a/b/c"), "c");
    EXPECT_EQ(baseName("plain"), "plain");
}

TEST(ApplicationIdentity, DisplayNamesCompareWithoutScreenNumbers) {
    EXPECT_TRUE(sameX11Display(":0", ":0"));
    EXPECT_TRUE(sameX11Display(":0", ":0.1"));
    EXPECT_TRUE(sameX11Display("unix:3", ":3.0"));
    EXPECT_FALSE(sameX11Display(":0", ":1"));
    EXPECT_FALSE(sameX11Display(":10", ":1"));
    EXPECT_FALSE(sameX11Display("otherhost:0", ":0"));
    EXPECT_TRUE(sameX11Display("wayland-0", "wayland-0"));
}

// ---------------------------------------------------------------------------
// Toolkit switches
//
// What the agent itself gives the applications it launches; the tests only
// check the agent's answer, nothing here is applied to an application.

TEST(ToolkitSwitches, ChromiumFamilyLaunchersBuildTheirPageTreesOthersGetNothing) {
    const std::vector<std::string> chromium = {"--force-renderer-accessibility"};
    EXPECT_EQ(accessibilitySwitchesFor("/usr/bin/chromium"), chromium);
    EXPECT_EQ(accessibilitySwitchesFor("chromium"), chromium);
    EXPECT_EQ(accessibilitySwitchesFor("/usr/bin/google-chrome-stable"), chromium);
    EXPECT_EQ(accessibilitySwitchesFor("brave-browser"), chromium);
    EXPECT_TRUE(accessibilitySwitchesFor("/usr/lib/firefox-esr/firefox-esr").empty());
    EXPECT_TRUE(accessibilitySwitchesFor("libreoffice").empty());
    EXPECT_TRUE(accessibilitySwitchesFor("kcalc").empty());
    EXPECT_TRUE(accessibilitySwitchesFor("mousepad").empty());
    EXPECT_TRUE(accessibilitySwitchesFor("").empty());
    // A name that merely starts like one is another program.
    EXPECT_TRUE(accessibilitySwitchesFor("chromium-helper").empty());
}

TEST(ToolkitSwitches, LibreOfficeGetsItsGtkPluginOnlyOnAnUnknownDesktopAndNeverAgainstTheUser) {
    const std::vector<EnvironmentVariable> gtk = {{"SAL_USE_VCLPLUGIN", "gtk3"}};
    EXPECT_EQ(accessibilityEnvironment(std::nullopt, std::nullopt), gtk);
    EXPECT_EQ(accessibilityEnvironment(std::string(""), std::nullopt), gtk);
    // On a desktop it knows, LibreOffice's own choice has accessibility.
    EXPECT_TRUE(accessibilityEnvironment(std::string("GNOME"), std::nullopt).empty());
    EXPECT_TRUE(accessibilityEnvironment(std::string("KDE"), std::nullopt).empty());
    // The user's own choice stands.
    EXPECT_TRUE(accessibilityEnvironment(std::nullopt, std::string("gen")).empty());
    EXPECT_TRUE(accessibilityEnvironment(std::nullopt, std::string("")).empty());
}

// ---------------------------------------------------------------------------
// Role names

TEST(RoleNames, TheTableNamesRolesAsMacOSDoes) {
    EXPECT_EQ(macRoleName(ATSPI_ROLE_PUSH_BUTTON), "AXButton");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_CHECK_BOX), "AXCheckBox");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_RADIO_BUTTON), "AXRadioButton");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_PAGE_TAB), "AXRadioButton");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_ENTRY), "AXTextField");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_TEXT), "AXTextField");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_TEXT, {.multiLine = true}), "AXTextArea");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_LABEL), "AXStaticText");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_FRAME), "AXWindow");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_WINDOW), "AXWindow");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_DIALOG), "AXWindow");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_APPLICATION), "AXApplication");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_MENU_BAR), "AXMenuBar");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_MENU), "AXMenu");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_MENU_ITEM), "AXMenuItem");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_RADIO_MENU_ITEM), "AXMenuItem");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_COMBO_BOX), "AXPopUpButton");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_COMBO_BOX, {.editable = true}), "AXComboBox");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_LIST), "AXList");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_TABLE), "AXTable");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_TABLE_CELL), "AXCell");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_TREE_TABLE), "AXOutline");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_SCROLL_BAR), "AXScrollBar");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_SCROLL_PANE), "AXScrollArea");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_SLIDER), "AXSlider");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_SPIN_BUTTON), "AXIncrementor");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_PROGRESS_BAR), "AXProgressIndicator");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_TOOL_BAR), "AXToolbar");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_PAGE_TAB_LIST), "AXTabGroup");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_IMAGE), "AXImage");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_ICON), "AXImage");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_LINK), "AXLink");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_PANEL), "AXGroup");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_FILLER), "AXGroup");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_HEADING), "AXHeading");
}

TEST(RoleNames, AtspiNamesAreLibatspisOwn) {
    // The agent names roles without libatspi; the names must be the library's.
    for (int role = 0; role < ATSPI_ROLE_LAST_DEFINED; ++role) {
        gchar* expected = atspi_role_get_name(static_cast<AtspiRole>(role));
        ASSERT_NE(expected, nullptr) << role;
        EXPECT_EQ(atspiRoleName(static_cast<uint32_t>(role)), expected) << role;
        g_free(expected);
    }
    EXPECT_EQ(atspiRoleName(ATSPI_ROLE_LAST_DEFINED), "");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_LAST_DEFINED), "AXUnknown");
    EXPECT_EQ(macRoleName(UINT32_MAX), "AXUnknown");
}

TEST(RoleNames, EveryAtspiRoleHasItsName) {
    // Every role libatspi defines, in its order, with the name it reports.
    const std::vector<std::pair<AtspiRole, std::string>> everyRole = {
        {ATSPI_ROLE_INVALID, "AXInvalid"},
        {ATSPI_ROLE_ACCELERATOR_LABEL, "AXAcceleratorLabel"},
        {ATSPI_ROLE_ALERT, "AXAlert"},
        {ATSPI_ROLE_ANIMATION, "AXAnimation"},
        {ATSPI_ROLE_ARROW, "AXArrow"},
        {ATSPI_ROLE_CALENDAR, "AXCalendar"},
        {ATSPI_ROLE_CANVAS, "AXCanvas"},
        {ATSPI_ROLE_CHECK_BOX, "AXCheckBox"},
        {ATSPI_ROLE_CHECK_MENU_ITEM, "AXMenuItem"},
        {ATSPI_ROLE_COLOR_CHOOSER, "AXColorChooser"},
        {ATSPI_ROLE_COLUMN_HEADER, "AXColumnHeader"},
        {ATSPI_ROLE_COMBO_BOX, "AXPopUpButton"},
        {ATSPI_ROLE_DATE_EDITOR, "AXDateEditor"},
        {ATSPI_ROLE_DESKTOP_ICON, "AXDesktopIcon"},
        {ATSPI_ROLE_DESKTOP_FRAME, "AXDesktopFrame"},
        {ATSPI_ROLE_DIAL, "AXDial"},
        {ATSPI_ROLE_DIALOG, "AXWindow"},
        {ATSPI_ROLE_DIRECTORY_PANE, "AXDirectoryPane"},
        {ATSPI_ROLE_DRAWING_AREA, "AXDrawingArea"},
        {ATSPI_ROLE_FILE_CHOOSER, "AXFileChooser"},
        {ATSPI_ROLE_FILLER, "AXGroup"},
        {ATSPI_ROLE_FOCUS_TRAVERSABLE, "AXFocusTraversable"},
        {ATSPI_ROLE_FONT_CHOOSER, "AXFontChooser"},
        {ATSPI_ROLE_FRAME, "AXWindow"},
        {ATSPI_ROLE_GLASS_PANE, "AXGlassPane"},
        {ATSPI_ROLE_HTML_CONTAINER, "AXHtmlContainer"},
        {ATSPI_ROLE_ICON, "AXImage"},
        {ATSPI_ROLE_IMAGE, "AXImage"},
        {ATSPI_ROLE_INTERNAL_FRAME, "AXInternalFrame"},
        {ATSPI_ROLE_LABEL, "AXStaticText"},
        {ATSPI_ROLE_LAYERED_PANE, "AXLayeredPane"},
        {ATSPI_ROLE_LIST, "AXList"},
        {ATSPI_ROLE_LIST_ITEM, "AXListItem"},
        {ATSPI_ROLE_MENU, "AXMenu"},
        {ATSPI_ROLE_MENU_BAR, "AXMenuBar"},
        {ATSPI_ROLE_MENU_ITEM, "AXMenuItem"},
        {ATSPI_ROLE_OPTION_PANE, "AXOptionPane"},
        {ATSPI_ROLE_PAGE_TAB, "AXRadioButton"},
        {ATSPI_ROLE_PAGE_TAB_LIST, "AXTabGroup"},
        {ATSPI_ROLE_PANEL, "AXGroup"},
        {ATSPI_ROLE_PASSWORD_TEXT, "AXTextField"},
        {ATSPI_ROLE_POPUP_MENU, "AXMenu"},
        {ATSPI_ROLE_PROGRESS_BAR, "AXProgressIndicator"},
        {ATSPI_ROLE_PUSH_BUTTON, "AXButton"},
        {ATSPI_ROLE_RADIO_BUTTON, "AXRadioButton"},
        {ATSPI_ROLE_RADIO_MENU_ITEM, "AXMenuItem"},
        {ATSPI_ROLE_ROOT_PANE, "AXRootPane"},
        {ATSPI_ROLE_ROW_HEADER, "AXRowHeader"},
        {ATSPI_ROLE_SCROLL_BAR, "AXScrollBar"},
        {ATSPI_ROLE_SCROLL_PANE, "AXScrollArea"},
        {ATSPI_ROLE_SEPARATOR, "AXSeparator"},
        {ATSPI_ROLE_SLIDER, "AXSlider"},
        {ATSPI_ROLE_SPIN_BUTTON, "AXIncrementor"},
        {ATSPI_ROLE_SPLIT_PANE, "AXSplitPane"},
        {ATSPI_ROLE_STATUS_BAR, "AXStatusBar"},
        {ATSPI_ROLE_TABLE, "AXTable"},
        {ATSPI_ROLE_TABLE_CELL, "AXCell"},
        {ATSPI_ROLE_TABLE_COLUMN_HEADER, "AXTableColumnHeader"},
        {ATSPI_ROLE_TABLE_ROW_HEADER, "AXTableRowHeader"},
        {ATSPI_ROLE_TEAROFF_MENU_ITEM, "AXTearoffMenuItem"},
        {ATSPI_ROLE_TERMINAL, "AXTerminal"},
        {ATSPI_ROLE_TEXT, "AXTextField"},
        {ATSPI_ROLE_TOGGLE_BUTTON, "AXToggleButton"},
        {ATSPI_ROLE_TOOL_BAR, "AXToolbar"},
        {ATSPI_ROLE_TOOL_TIP, "AXToolTip"},
        {ATSPI_ROLE_TREE, "AXTree"},
        {ATSPI_ROLE_TREE_TABLE, "AXOutline"},
        {ATSPI_ROLE_UNKNOWN, "AXUnknown"},
        {ATSPI_ROLE_VIEWPORT, "AXViewport"},
        {ATSPI_ROLE_WINDOW, "AXWindow"},
        {ATSPI_ROLE_EXTENDED, "AXExtended"},
        {ATSPI_ROLE_HEADER, "AXHeader"},
        {ATSPI_ROLE_FOOTER, "AXFooter"},
        {ATSPI_ROLE_PARAGRAPH, "AXGroup"},
        {ATSPI_ROLE_RULER, "AXRuler"},
        {ATSPI_ROLE_APPLICATION, "AXApplication"},
        {ATSPI_ROLE_AUTOCOMPLETE, "AXAutocomplete"},
        {ATSPI_ROLE_EDITBAR, "AXEditbar"},
        {ATSPI_ROLE_EMBEDDED, "AXEmbedded"},
        {ATSPI_ROLE_ENTRY, "AXTextField"},
        {ATSPI_ROLE_CHART, "AXChart"},
        {ATSPI_ROLE_CAPTION, "AXCaption"},
        {ATSPI_ROLE_DOCUMENT_FRAME, "AXDocumentFrame"},
        {ATSPI_ROLE_HEADING, "AXHeading"},
        {ATSPI_ROLE_PAGE, "AXPage"},
        {ATSPI_ROLE_SECTION, "AXGroup"},
        {ATSPI_ROLE_REDUNDANT_OBJECT, "AXRedundantObject"},
        {ATSPI_ROLE_FORM, "AXGroup"},
        {ATSPI_ROLE_LINK, "AXLink"},
        {ATSPI_ROLE_INPUT_METHOD_WINDOW, "AXInputMethodWindow"},
        {ATSPI_ROLE_TABLE_ROW, "AXRow"},
        {ATSPI_ROLE_TREE_ITEM, "AXTreeItem"},
        {ATSPI_ROLE_DOCUMENT_SPREADSHEET, "AXDocumentSpreadsheet"},
        {ATSPI_ROLE_DOCUMENT_PRESENTATION, "AXDocumentPresentation"},
        {ATSPI_ROLE_DOCUMENT_TEXT, "AXDocumentText"},
        {ATSPI_ROLE_DOCUMENT_WEB, "AXWebArea"},
        {ATSPI_ROLE_DOCUMENT_EMAIL, "AXDocumentEmail"},
        {ATSPI_ROLE_COMMENT, "AXComment"},
        {ATSPI_ROLE_LIST_BOX, "AXList"},
        {ATSPI_ROLE_GROUPING, "AXGrouping"},
        {ATSPI_ROLE_IMAGE_MAP, "AXImageMap"},
        {ATSPI_ROLE_NOTIFICATION, "AXNotification"},
        {ATSPI_ROLE_INFO_BAR, "AXInfoBar"},
        {ATSPI_ROLE_LEVEL_BAR, "AXLevelBar"},
        {ATSPI_ROLE_TITLE_BAR, "AXTitleBar"},
        {ATSPI_ROLE_BLOCK_QUOTE, "AXGroup"},
        {ATSPI_ROLE_AUDIO, "AXAudio"},
        {ATSPI_ROLE_VIDEO, "AXVideo"},
        {ATSPI_ROLE_DEFINITION, "AXDefinition"},
        {ATSPI_ROLE_ARTICLE, "AXGroup"},
        {ATSPI_ROLE_LANDMARK, "AXGroup"},
        {ATSPI_ROLE_LOG, "AXLog"},
        {ATSPI_ROLE_MARQUEE, "AXMarquee"},
        {ATSPI_ROLE_MATH, "AXMath"},
        {ATSPI_ROLE_RATING, "AXRating"},
        {ATSPI_ROLE_TIMER, "AXTimer"},
        {ATSPI_ROLE_STATIC, "AXStaticText"},
        {ATSPI_ROLE_MATH_FRACTION, "AXMathFraction"},
        {ATSPI_ROLE_MATH_ROOT, "AXMathRoot"},
        {ATSPI_ROLE_SUBSCRIPT, "AXSubscript"},
        {ATSPI_ROLE_SUPERSCRIPT, "AXSuperscript"},
        {ATSPI_ROLE_DESCRIPTION_LIST, "AXDescriptionList"},
        {ATSPI_ROLE_DESCRIPTION_TERM, "AXDescriptionTerm"},
        {ATSPI_ROLE_DESCRIPTION_VALUE, "AXDescriptionValue"},
        {ATSPI_ROLE_FOOTNOTE, "AXFootnote"},
        {ATSPI_ROLE_CONTENT_DELETION, "AXContentDeletion"},
        {ATSPI_ROLE_CONTENT_INSERTION, "AXContentInsertion"},
        {ATSPI_ROLE_MARK, "AXMark"},
        {ATSPI_ROLE_SUGGESTION, "AXSuggestion"},
        {ATSPI_ROLE_PUSH_BUTTON_MENU, "AXPushButtonMenu"},
    };
    ASSERT_EQ(everyRole.size(), static_cast<size_t>(ATSPI_ROLE_LAST_DEFINED))
        << "libatspi defines roles that this table does not name";
    for (size_t i = 0; i < everyRole.size(); ++i) {
        const auto& [role, name] = everyRole[i];
        EXPECT_EQ(static_cast<size_t>(role), i);
        EXPECT_EQ(macRoleName(role), name) << "role " << role;
    }
}

TEST(RoleNames, OtherRolesKeepTheirAtspiNameInUpperCamelCase) {
    EXPECT_EQ(macRoleName(ATSPI_ROLE_TOGGLE_BUTTON), "AXToggleButton");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_TREE_ITEM), "AXTreeItem");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_DOCUMENT_FRAME), "AXDocumentFrame");
    EXPECT_EQ(macRoleName(ATSPI_ROLE_SEPARATOR), "AXSeparator");
    EXPECT_EQ(upperCamelRoleName("push-button_menu item"), "AXPushButtonMenuItem");
    EXPECT_EQ(upperCamelRoleName(""), "AX");
}

// ---------------------------------------------------------------------------
// Keys, modifiers, wheels, buttons

TEST(KeyTranslation, VirtualKeyCodesByAnsiPosition) {
    EXPECT_EQ(keysymForVirtualKey(0), XK_a);
    EXPECT_EQ(keysymForVirtualKey(1), XK_s);
    EXPECT_EQ(keysymForVirtualKey(8), XK_c);
    EXPECT_EQ(keysymForVirtualKey(29), XK_0);
    EXPECT_EQ(keysymForVirtualKey(46), XK_m);
    EXPECT_EQ(keysymForVirtualKey(36), XK_Return);
    EXPECT_EQ(keysymForVirtualKey(48), XK_Tab);
    EXPECT_EQ(keysymForVirtualKey(49), XK_space);
    EXPECT_EQ(keysymForVirtualKey(51), XK_BackSpace);
    EXPECT_EQ(keysymForVirtualKey(53), XK_Escape);
    EXPECT_EQ(keysymForVirtualKey(117), XK_Delete);
    EXPECT_EQ(keysymForVirtualKey(115), XK_Home);
    EXPECT_EQ(keysymForVirtualKey(119), XK_End);
    EXPECT_EQ(keysymForVirtualKey(116), XK_Prior);
    EXPECT_EQ(keysymForVirtualKey(121), XK_Next);
    EXPECT_EQ(keysymForVirtualKey(123), XK_Left);
    EXPECT_EQ(keysymForVirtualKey(124), XK_Right);
    EXPECT_EQ(keysymForVirtualKey(125), XK_Down);
    EXPECT_EQ(keysymForVirtualKey(126), XK_Up);
    EXPECT_EQ(keysymForVirtualKey(122), XK_F1);
    EXPECT_EQ(keysymForVirtualKey(55), XK_Super_L);
    EXPECT_EQ(keysymForVirtualKey(72), XF86XK_AudioRaiseVolume);
    EXPECT_EQ(keysymForVirtualKey(63), std::nullopt);  // fn
    EXPECT_EQ(keysymForVirtualKey(127), std::nullopt);
    EXPECT_EQ(keysymForVirtualKey(500), std::nullopt);
}

TEST(KeyTranslation, EveryLetterAndDigitOfTheChordTableHasItsKey) {
    const std::pair<uint16_t, char> letters[] = {
        {0, 'a'},  {1, 's'},  {2, 'd'},  {3, 'f'},  {4, 'h'},  {5, 'g'},  {6, 'z'},  {7, 'x'},
        {8, 'c'},  {9, 'v'},  {11, 'b'}, {12, 'q'}, {13, 'w'}, {14, 'e'}, {15, 'r'}, {16, 'y'},
        {17, 't'}, {18, '1'}, {19, '2'}, {20, '3'}, {21, '4'}, {22, '6'}, {23, '5'}, {25, '9'},
        {26, '7'}, {28, '8'}, {29, '0'}, {31, 'o'}, {32, 'u'}, {34, 'i'}, {35, 'p'}, {37, 'l'},
        {38, 'j'}, {40, 'k'}, {45, 'n'}, {46, 'm'}};
    for (auto [code, character] : letters) {
        EXPECT_EQ(keysymForVirtualKey(code), static_cast<KeySym>(character)) << code;
    }
}

TEST(KeyTranslation, CodePointsBecomeKeysyms) {
    EXPECT_EQ(keysymForCodePoint(U'a'), XK_a);
    EXPECT_EQ(keysymForCodePoint(U'A'), XK_A);
    EXPECT_EQ(keysymForCodePoint(U' '), XK_space);
    EXPECT_EQ(keysymForCodePoint(U'é'), XK_eacute);
    EXPECT_EQ(keysymForCodePoint(U'ß'), XK_ssharp);
    EXPECT_EQ(keysymForCodePoint(U'€'), 0x10020ACu);
    EXPECT_EQ(keysymForCodePoint(U'世'), 0x1004E16u);
    EXPECT_EQ(keysymForCodePoint(U'😀'), 0x101F600u);
    EXPECT_EQ(keysymForCodePoint(U'\n'), XK_Return);
    EXPECT_EQ(keysymForCodePoint(U'\r'), XK_Return);
    EXPECT_EQ(keysymForCodePoint(U'\t'), XK_Tab);
    EXPECT_EQ(keysymForCodePoint(U'\b'), XK_BackSpace);
}

TEST(KeyTranslation, Utf16UnitsDecodeToCodePoints) {
    EXPECT_EQ(codePointsOfUtf16(u"aé€"), U"aé€");
    EXPECT_EQ(codePointsOfUtf16(u"😀"), U"😀");
    EXPECT_EQ(codePointsOfUtf16(u"👍🏽"), U"👍🏽");  // one character, two code points
    std::u16string unpaired = {0xD83D, u'x', 0xDE00};
    EXPECT_EQ(codePointsOfUtf16(unpaired), (std::u32string{0xFFFD, U'x', 0xFFFD}));
    EXPECT_EQ(codePointsOfUtf16(u""), U"");
}

TEST(KeyTranslation, FlagsBecomeModifierKeysAndFnIsIgnored) {
    EXPECT_TRUE(modifierKeysyms(0).empty());
    EXPECT_EQ(modifierKeysyms(0x120000), (std::vector<KeySym>{XK_Shift_L, XK_Super_L}));
    EXPECT_EQ(modifierKeysyms(0x40000), (std::vector<KeySym>{XK_Control_L}));
    EXPECT_EQ(modifierKeysyms(0x80000 | 0x800000), (std::vector<KeySym>{XK_Alt_L}));
    EXPECT_EQ(modifierKeysyms(0x1E0000),
              (std::vector<KeySym>{XK_Shift_L, XK_Control_L, XK_Alt_L, XK_Super_L}));
    EXPECT_TRUE(modifierKeysyms(0x800000).empty());
}

TEST(KeyTranslation, WheelAmountsBecomeClicks) {
    EXPECT_EQ(wheelClicks(kCGScrollEventUnitPixel, 0), 0);
    EXPECT_EQ(wheelClicks(kCGScrollEventUnitPixel, 1), 1);  // never lost
    EXPECT_EQ(wheelClicks(kCGScrollEventUnitPixel, -1), 1);
    EXPECT_EQ(wheelClicks(kCGScrollEventUnitPixel, 40), 1);
    EXPECT_EQ(wheelClicks(kCGScrollEventUnitPixel, 59), 1);
    EXPECT_EQ(wheelClicks(kCGScrollEventUnitPixel, 60), 2);
    EXPECT_EQ(wheelClicks(kCGScrollEventUnitPixel, -100), 3);
    EXPECT_EQ(wheelClicks(kCGScrollEventUnitPixel, 400), 10);
    EXPECT_EQ(wheelClicks(kCGScrollEventUnitPixel, INT32_MIN), kMaxWheelClicks);
    EXPECT_EQ(wheelClicks(1, 3), 3);  // line units: a click a line
    EXPECT_EQ(wheelClicks(1, -2), 2);
}

TEST(KeyTranslation, WheelButtonsFollowMacDirections) {
    EXPECT_EQ(verticalWheelButton(10), 4u);   // up
    EXPECT_EQ(verticalWheelButton(-10), 5u);  // down
    EXPECT_EQ(horizontalWheelButton(3), 6u);  // left
    EXPECT_EQ(horizontalWheelButton(-3), 7u);
}

TEST(KeyTranslation, MouseButtons) {
    EXPECT_EQ(xButtonOf(0), 1u);
    EXPECT_EQ(xButtonOf(1), 3u);
    EXPECT_EQ(xButtonOf(2), 2u);
    EXPECT_EQ(xButtonOf(3), 8u);
    EXPECT_EQ(xButtonOf(4), 9u);
}

// ---------------------------------------------------------------------------
// PNG

TEST(PngEncoder, EncodesRgbThatDecodesToTheSamePixels) {
    RgbImage image;
    image.width = 3;
    image.height = 2;
    image.pixels = {255, 0, 0, 0, 255, 0, 0, 0, 255, 10, 20, 30, 40, 50, 60, 70, 80, 90};
    auto png = encodePng(image);
    ASSERT_TRUE(png);
    const uint8_t signature[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    ASSERT_GT(png->size(), sizeof signature);
    EXPECT_TRUE(std::equal(std::begin(signature), std::end(signature), png->begin()));

    png_image decoded{};
    decoded.version = PNG_IMAGE_VERSION;
    ASSERT_NE(png_image_begin_read_from_memory(&decoded, png->data(), png->size()), 0);
    EXPECT_EQ(decoded.width, 3u);
    EXPECT_EQ(decoded.height, 2u);
    EXPECT_EQ(decoded.format, static_cast<png_uint_32>(PNG_FORMAT_RGB));
    decoded.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> pixels(PNG_IMAGE_SIZE(decoded));
    ASSERT_NE(png_image_finish_read(&decoded, nullptr, pixels.data(), 0, nullptr), 0);
    EXPECT_EQ(pixels, image.pixels);
}

TEST(PngEncoder, RefusesEmptyAndInconsistentImages) {
    EXPECT_EQ(encodePng(RgbImage{}), std::nullopt);
    RgbImage shortOfPixels;
    shortOfPixels.width = 2;
    shortOfPixels.height = 2;
    shortOfPixels.pixels.resize(11);
    EXPECT_EQ(encodePng(shortOfPixels), std::nullopt);
}

}  // namespace
}  // namespace velmora::native::freedesktop
