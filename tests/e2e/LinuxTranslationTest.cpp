// The Linux provider's pure translations: which application a process is, role
// names, key and wheel translation, PNG encoding. No desktop involved.

#include <gtest/gtest.h>
#include <png.h>

#include <X11/XF86keysym.h>
#include <X11/keysym.h>

#include "core/native/linux/PngEncoder.h"
#include "core/native/linux/atspi/RoleNames.h"
#include "core/native/linux/desktop/ApplicationIdentity.h"
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
    };
}

ProcessFacts processRunning(const std::string& executable) {
    return ProcessFacts{.processId = 42,
                        .launchedDesktopFile = std::nullopt,
                        .launchedDesktopFilePid = std::nullopt,
                        .executablePath = executable,
                        .commandName = baseName(executable),
                        .windowClasses = {},
                        .gtkApplicationId = "",
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
    facts.windowClasses = {"viewer", "Viewer"};
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
    facts.gtkApplicationId = "org.gnome.Calculator";
    EXPECT_EQ(applicationIdOf(facts, installed()), "org.gnome.Calculator");
    EXPECT_EQ(applicationIdOf(processRunning("/usr/bin/xterm"), installed()), "xterm");
    auto unknownExecutable = processRunning("");
    unknownExecutable.commandName = "daemon";
    EXPECT_EQ(applicationIdOf(unknownExecutable, installed()), "daemon");
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
