// The Linux platform layer driving real GTK applications (galculator, mousepad)
// on the desktop of scripts/desktop, through the Platform interface alone.

#include <dirent.h>
#include <png.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "core/native/SystemPlatform.h"
#include "tests/e2e/DesktopSupport.h"

namespace velmora::e2e {
namespace {

using native::AttributeValue;
using native::kAXErrorAttributeUnsupported;
using native::kAXErrorSuccess;
using native::kCGEventFlagMaskControl;

constexpr uint16_t kKeyA = 0;
constexpr uint16_t kKeyL = 37;
constexpr uint16_t kKeyEscape = 53;
constexpr uint16_t kKeyDelete = 51;

size_t openDescriptors() {
    size_t count = 0;
    if (DIR* directory = opendir("/proc/self/fd")) {
        while (readdir(directory) != nullptr) {
            ++count;
        }
        closedir(directory);
    }
    return count;
}

class LinuxDesktop : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!onDesktop()) {
            GTEST_FAIL() << kNeedsDesktop;
        }
        platform = native::makeSystemPlatform();
        launched = std::make_unique<LaunchedApplications>(*platform);
    }
    void TearDown() override { launched.reset(); }

    std::optional<double> numberValue(const AXElement& element) {
        auto read = platform->copyAttribute(element, "AXValue");
        if (read.code != kAXErrorSuccess || !read.value ||
            read.value->type != AttributeValue::Type::number) {
            return std::nullopt;
        }
        return read.value->number;
    }

    // Activates the application and waits until it is in front and the X server
    // routes the keyboard to it, so that no input reaches it before its focus does.
    bool bringToFront(int32_t processId, const std::string& bundleId) {
        platform->activateApplication(processId, 0);
        return waitUntil(
            [&] {
                return platform->frontmostApplicationBundleId() == bundleId &&
                       inputFocusProcessId() == processId;
            },
            10);
    }

    // mousepad, launched, in front and holding the keyboard, with its text area.
    struct Editor : Node {
        int32_t processId = 0;
        AXElement application;
    };
    std::optional<Editor> openEditor() {
        Editor editor;
        editor.processId = launched->launch("org.xfce.mousepad");
        if (editor.processId == 0) {
            return std::nullopt;
        }
        if (!bringToFront(editor.processId, "org.xfce.mousepad")) {
            ADD_FAILURE() << "mousepad did not come to the front; frontmost: "
                          << platform->frontmostApplicationBundleId().value_or("(none)");
            return std::nullopt;
        }
        editor.application = launched->application(editor.processId);
        auto area = findNode(*platform, editor.application, "AXTextArea");
        if (!area || !area->frame) {
            ADD_FAILURE() << "mousepad shows no text area with a frame";
            return std::nullopt;
        }
        static_cast<Node&>(editor) = *area;
        return editor;
    }

    // The text of galculator's display.
    std::string calculatorDisplay(int32_t processId) {
        auto display = findNode(*platform, launched->application(processId), "AXTextArea");
        if (!display) {
            return "";
        }
        return textAttribute(*platform, display->element, "AXValue").value_or("");
    }

    std::unique_ptr<native::Platform> platform;
    std::unique_ptr<LaunchedApplications> launched;
};

TEST_F(LinuxDesktop, ConstructingTheProviderOpensNoConnection) {
    size_t before = openDescriptors();
    auto fresh = native::makeSystemPlatform();
    EXPECT_EQ(openDescriptors(), before);
    // The first use connects.
    EXPECT_TRUE(fresh->preflightScreenCaptureAccess());
    EXPECT_GT(openDescriptors(), before);
}

TEST_F(LinuxDesktop, PermissionsAreGrantedOnTheDesktop) {
    EXPECT_TRUE(platform->isProcessTrusted());
    EXPECT_TRUE(platform->preflightScreenCaptureAccess());
    EXPECT_TRUE(platform->requestScreenCaptureAccess());
}

TEST_F(LinuxDesktop, InstalledApplicationsAreFoundByDesktopEntryId) {
    EXPECT_EQ(platform->applicationLocation("galculator"),
              "/usr/share/applications/galculator.desktop");
    EXPECT_EQ(platform->applicationLocation("org.xfce.mousepad"),
              "/usr/share/applications/org.xfce.mousepad.desktop");
    EXPECT_EQ(platform->applicationLocation("no.such.application"), std::nullopt);
    EXPECT_EQ(platform->bundleExecutableLocation("/usr/share/applications/galculator.desktop"),
              "/usr/bin/galculator");
    EXPECT_EQ(platform->bundleExecutableLocation("/usr/bin/galculator"), "/usr/bin/galculator");
    EXPECT_EQ(platform->bundleExecutableLocation("/nonexistent/program"), std::nullopt);
    EXPECT_TRUE(platform->runningApplications("no.such.application").empty());
}

TEST_F(LinuxDesktop, LaunchedApplicationRunsUnderItsEntryId) {
    int32_t pid = launched->launch("galculator");
    ASSERT_NE(pid, 0);
    auto running = platform->runningApplications("galculator");
    ASSERT_EQ(running.size(), 1u);
    EXPECT_EQ(running[0].processId, pid);
    // A running instance is located at its executable, which is fingerprinted.
    EXPECT_EQ(running[0].bundleLocation, "/usr/bin/galculator");
    EXPECT_EQ(running[0].executableLocation, "/usr/bin/galculator");

    // GIO recorded the entry in the process's environment.
    std::ifstream environ("/proc/" + std::to_string(pid) + "/environ", std::ios::binary);
    std::string variables((std::istreambuf_iterator<char>(environ)),
                          std::istreambuf_iterator<char>());
    EXPECT_NE(
        variables.find("GIO_LAUNCHED_DESKTOP_FILE=/usr/share/applications/galculator.desktop"),
        std::string::npos);
}

// Starts `sleep 30` with DISPLAY set to `display`; its process id.
pid_t startSleep(const std::string& display) {
    pid_t pid = fork();
    if (pid == 0) {
        setenv("DISPLAY", display.c_str(), 1);
        execl("/bin/sleep", "sleep", "30", static_cast<char*>(nullptr));
        _exit(127);
    }
    return pid;
}

TEST_F(LinuxDesktop, ProcessesOfAnotherDisplayAreNotRunningHere) {
    // Two processes that the identity rule names "sleep": one on this display,
    // one of another X session.
    pid_t here = startSleep(std::getenv("DISPLAY"));
    pid_t elsewhere = startSleep(":4242");
    ASSERT_GT(here, 0);
    ASSERT_GT(elsewhere, 0);
    bool hereListed = false;
    bool elsewhereListed = false;
    waitUntil(
        [&] {
            for (const auto& application : platform->runningApplications("sleep")) {
                hereListed = hereListed || application.processId == here;
                elsewhereListed = elsewhereListed || application.processId == elsewhere;
            }
            return hereListed;
        },
        3);
    EXPECT_TRUE(hereListed);
    EXPECT_FALSE(elsewhereListed);
    for (pid_t pid : {here, elsewhere}) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}

TEST_F(LinuxDesktop, OpeningAMissingEntryReportsAnError) {
    std::optional<std::string> error;
    bool completed = false;
    platform->openApplication("/nonexistent/velmora.desktop", true,
                              [&](std::optional<std::string> e) {
                                  completed = true;
                                  error = std::move(e);
                              });
    ASSERT_TRUE(completed);
    ASSERT_TRUE(error);
    EXPECT_NE(error->find("/nonexistent/velmora.desktop"), std::string::npos) << *error;
}

TEST_F(LinuxDesktop, ActivationBringsEachApplicationToTheFront) {
    int32_t calculator = launched->launch("galculator");
    int32_t editor = launched->launch("org.xfce.mousepad");
    ASSERT_NE(calculator, 0);
    ASSERT_NE(editor, 0);

    platform->activateApplication(calculator, 0);
    EXPECT_TRUE(
        waitUntil([&] { return platform->frontmostApplicationBundleId() == "galculator"; }, 3))
        << platform->frontmostApplicationBundleId().value_or("(none)");

    platform->activateApplication(editor, 0);
    EXPECT_TRUE(waitUntil(
        [&] { return platform->frontmostApplicationBundleId() == "org.xfce.mousepad"; }, 3))
        << platform->frontmostApplicationBundleId().value_or("(none)");

    // The frontmost id finds the process it names.
    auto running = platform->runningApplications(*platform->frontmostApplicationBundleId());
    ASSERT_EQ(running.size(), 1u);
    EXPECT_EQ(running[0].processId, editor);
}

TEST_F(LinuxDesktop, WithoutAWindowManagerTheFocusedWindowIsFrontmost) {
    // A second X server of the test's own, with no window manager on it.
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    pid_t server = fork();
    ASSERT_GE(server, 0);
    if (server == 0) {
        close(ready[0]);
        std::string fd = std::to_string(ready[1]);
        execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", "800x600x24", "-nolisten",
               "tcp", static_cast<char*>(nullptr));
        _exit(127);
    }
    close(ready[1]);
    std::string number;
    char c = 0;
    while (read(ready[0], &c, 1) == 1 && c != '\n') {
        number += c;
    }
    close(ready[0]);
    ASSERT_FALSE(number.empty()) << "Xvfb did not start";
    const std::string ourDisplay = std::getenv("DISPLAY");
    setenv("DISPLAY", (":" + number).c_str(), 1);

    {
        auto bare = native::makeSystemPlatform();
        // An empty screen: no window holds the focus.
        EXPECT_EQ(bare->frontmostApplicationBundleId(), std::nullopt);
        bool completed = false;
        bare->openApplication(
            "/usr/share/applications/galculator.desktop", true,
            [&](std::optional<std::string> error) { completed = !error.has_value(); });
        EXPECT_TRUE(completed);
        int32_t pid = 0;
        EXPECT_TRUE(waitUntil(
            [&] {
                auto running = bare->runningApplications("galculator");
                pid = running.empty() ? 0 : running.front().processId;
                return pid != 0;
            },
            10));
        if (pid != 0) {
            // Nothing gives a new window the focus here; activation does.
            EXPECT_TRUE(waitUntil(
                [&] {
                    bare->activateApplication(pid, 0);
                    return bare->frontmostApplicationBundleId() == "galculator";
                },
                10))
                << bare->frontmostApplicationBundleId().value_or("(none)");
            kill(pid, SIGTERM);
        }
    }

    setenv("DISPLAY", ourDisplay.c_str(), 1);
    kill(server, SIGTERM);
    waitpid(server, nullptr, 0);
}

TEST_F(LinuxDesktop, ApplicationElementListsItsWindows) {
    int32_t pid = launched->launch("galculator");
    ASSERT_NE(pid, 0);
    AXElement application = launched->application(pid);

    EXPECT_EQ(textAttribute(*platform, application, "AXRole"), "AXApplication");
    EXPECT_EQ(textAttribute(*platform, application, "AXTitle"), "galculator");
    EXPECT_EQ(platform->copyAttribute(application, "AXPosition").code,
              kAXErrorAttributeUnsupported);
    EXPECT_EQ(platform->copyAttribute(application, "AXNoSuchAttribute").code,
              kAXErrorAttributeUnsupported);

    auto windows = elementsAttribute(*platform, application, "AXWindows");
    ASSERT_EQ(windows.size(), 1u);
    EXPECT_EQ(textAttribute(*platform, windows[0], "AXRole"), "AXWindow");
    EXPECT_EQ(textAttribute(*platform, windows[0], "AXTitle"), "galculator");
    auto frame = frameOf(*platform, windows[0]);
    ASSERT_TRUE(frame);
    EXPECT_GT(frame->width, 100);
    EXPECT_GT(frame->height, 100);
    // A window has no windows of its own.
    EXPECT_EQ(platform->copyAttribute(windows[0], "AXWindows").code, kAXErrorAttributeUnsupported);
    // The top-level children are the windows.
    auto children = elementsAttribute(*platform, application, "AXChildren");
    ASSERT_EQ(children.size(), 1u);
    EXPECT_EQ(frameOf(*platform, children[0]), frame);
}

TEST_F(LinuxDesktop, ElementsReadWithMacRolesFramesAndValues) {
    int32_t pid = launched->launch("galculator");
    ASSERT_NE(pid, 0);
    AXElement application = launched->application(pid);
    auto window = elementsAttribute(*platform, application, "AXWindows").at(0);
    Rect windowFrame = frameOf(*platform, window).value();

    auto nodes = subtree(*platform, application);
    auto count = [&](const std::string& role) {
        return std::count_if(nodes.begin(), nodes.end(),
                             [&](const Node& node) { return node.role == role; });
    };
    EXPECT_EQ(count("AXMenuBar"), 1);
    EXPECT_GE(count("AXMenu"), 5);
    EXPECT_GE(count("AXMenuItem"), 10);
    EXPECT_EQ(count("AXUnknown"), 0);

    // Galculator's keys are GTK toggle buttons: they keep the AT-SPI name.
    auto seven = findNode(*platform, application, "AXToggleButton", "7");
    ASSERT_TRUE(seven);
    ASSERT_TRUE(seven->frame);
    EXPECT_GT(seven->frame->width, 10);
    EXPECT_GT(seven->frame->height, 10);
    EXPECT_GE(seven->frame->x, windowFrame.x);
    EXPECT_LE(seven->frame->x + seven->frame->width, windowFrame.x + windowFrame.width);
    EXPECT_EQ(numberValue(seven->element), 0);  // a toggle reads as a number

    // A checked radio menu item reads 1, an unchecked one 0; a closed menu's
    // items are not on screen and have no frame.
    auto basic = findNode(*platform, application, "AXMenuItem", "Basic Mode");
    auto scientific = findNode(*platform, application, "AXMenuItem", "Scientific Mode");
    ASSERT_TRUE(basic);
    ASSERT_TRUE(scientific);
    EXPECT_EQ(numberValue(basic->element), 1);
    EXPECT_EQ(numberValue(scientific->element), 0);
    EXPECT_FALSE(basic->frame);

    // The display is a multi-line text view; its value is its text.
    auto display = findNode(*platform, application, "AXTextArea");
    ASSERT_TRUE(display);
    EXPECT_EQ(textAttribute(*platform, display->element, "AXValue"), "0");
    // A menu has a title but no value and no identifier.
    auto file = findNode(*platform, application, "AXMenu", "File");
    ASSERT_TRUE(file);
    EXPECT_NE(platform->copyAttribute(file->element, "AXValue").code, kAXErrorSuccess);
    EXPECT_NE(platform->copyAttribute(file->element, "AXIdentifier").code, kAXErrorSuccess);
}

TEST_F(LinuxDesktop, ClicksPressButtons) {
    int32_t pid = launched->launch("galculator");
    ASSERT_NE(pid, 0);
    ASSERT_TRUE(bringToFront(pid, "galculator"))
        << platform->frontmostApplicationBundleId().value_or("(none)");
    AXElement application = launched->application(pid);
    auto seven = findNode(*platform, application, "AXToggleButton", "7");
    auto eight = findNode(*platform, application, "AXToggleButton", "8");
    ASSERT_TRUE(seven && seven->frame);
    ASSERT_TRUE(eight && eight->frame);

    click(*platform, centre(*seven->frame));
    EXPECT_TRUE(waitUntil([&] { return calculatorDisplay(pid) == "7"; }, 3))
        << calculatorDisplay(pid);
    click(*platform, centre(*eight->frame));
    EXPECT_TRUE(waitUntil([&] { return calculatorDisplay(pid) == "78"; }, 3))
        << calculatorDisplay(pid);
}

TEST_F(LinuxDesktop, DoubleClickSelectsAWord) {
    auto editor = openEditor();
    ASSERT_TRUE(editor);
    click(*platform, centre(*editor->frame));
    auto value = [&] { return textAttribute(*platform, editor->element, "AXValue"); };

    // Down, up, down, up on the first word, which starts the first line: the
    // text view takes it as a double click and selects the word, which typing
    // then replaces; a single click would only place the caret. GTK counts
    // presses as one click when its main loop falls behind its double-click
    // time, which a loaded machine can make happen: up to three tries.
    const Point onFirstWord{.x = editor->frame->x + 30, .y = editor->frame->y + 8};
    bool selected = false;
    std::string last;
    for (int attempt = 0; attempt < 3 && !selected; ++attempt) {
        pressKey(*platform, kKeyA, kCGEventFlagMaskControl);
        typeText(*platform, u"doubleclickableword second");
        ASSERT_TRUE(waitUntil([&] { return value() == "doubleclickableword second"; }, 3))
            << value().value_or("(none)");
        platform->sleep(0.6);  // the earlier clicks' count has ended
        click(*platform, onFirstWord, 2);
        platform->sleep(0.3);
        typeText(*platform, u"X");
        selected = waitUntil([&] { return value() == "X second"; }, 2);
        last = value().value_or("(none)");
        EXPECT_NE(last.find('X'), std::string::npos) << last;  // the click reached the text
    }
    EXPECT_TRUE(selected) << last;
}

TEST_F(LinuxDesktop, TypedUnicodeTextReadsBackAsTheValue) {
    auto editor = openEditor();
    ASSERT_TRUE(editor);
    EXPECT_EQ(textAttribute(*platform, editor->element, "AXValue"), "");
    click(*platform, centre(*editor->frame));

    // Latin-1, other scripts and symbols the US layout lacks, and a character
    // beyond the basic plane.
    int keycodesBefore = mappedKeycodes();
    const std::string text = "Grüße, Ünïcödé! 世界 ✓ € Ω 😀 Tab\tEnd";
    typeText(*platform, utf16(text));
    EXPECT_TRUE(
        waitUntil([&] { return textAttribute(*platform, editor->element, "AXValue") == text; }, 3))
        << textAttribute(*platform, editor->element, "AXValue").value_or("(none)");

    // The characters the layout lacks went through spare keycodes, which are
    // empty again once the provider is gone.
    EXPECT_GT(mappedKeycodes(), keycodesBefore);
    launched.reset();
    platform.reset();
    EXPECT_EQ(mappedKeycodes(), keycodesBefore);
}

TEST_F(LinuxDesktop, SpareKeycodesAreRestoredWhenTheProcessExits) {
    // The agent keeps its platform until the process ends: the exit restores
    // the keycodes that typing bound.
    int before = mappedKeycodes();
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        auto* kept = native::makeSystemPlatform().release();
        auto down = kept->createKeyboardEvent(nullptr, 0, true);
        auto up = kept->createKeyboardEvent(nullptr, 0, false);
        if (down == nullptr || up == nullptr) {
            std::exit(2);
        }
        kept->setUnicodeString(*down, u"\u4E16");
        kept->setUnicodeString(*up, u"\u4E16");
        kept->postEvent(native::kCGSessionEventTap, *down);
        kept->postEvent(native::kCGSessionEventTap, *up);
        std::exit(mappedKeycodes() > before ? 0 : 3);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "2: no events, 3: no keycode was bound";
    EXPECT_EQ(mappedKeycodes(), before);
}

TEST_F(LinuxDesktop, KeyChordsReachTheApplication) {
    auto editor = openEditor();
    ASSERT_TRUE(editor);
    const AXElement& application = editor->application;
    click(*platform, centre(*editor->frame));
    typeText(*platform, u"select me");
    ASSERT_TRUE(waitUntil(
        [&] { return textAttribute(*platform, editor->element, "AXValue") == "select me"; }, 3))
        << textAttribute(*platform, editor->element, "AXValue").value_or("(none)");

    // ctrl+a selects everything, delete removes it.
    pressKey(*platform, kKeyA, kCGEventFlagMaskControl);
    pressKey(*platform, kKeyDelete);
    EXPECT_TRUE(
        waitUntil([&] { return textAttribute(*platform, editor->element, "AXValue") == ""; }, 3))
        << textAttribute(*platform, editor->element, "AXValue").value_or("(none)");

    // ctrl+l opens the go-to-line dialog, whose push buttons read as AXButton
    // with frames inside the dialog; escape closes it.
    pressKey(*platform, kKeyL, kCGEventFlagMaskControl);
    std::vector<AXElement> windows;
    ASSERT_TRUE(waitUntil(
        [&] {
            windows = elementsAttribute(*platform, application, "AXWindows");
            return windows.size() == 2;
        },
        3))
        << windows.size() << " windows";
    std::optional<Node> button;
    Rect dialogFrame;
    for (const auto& window : windows) {
        if (auto found = findNode(*platform, window, "AXButton")) {
            button = found;
            dialogFrame = frameOf(*platform, window).value_or(Rect{});
        }
    }
    ASSERT_TRUE(button);
    ASSERT_TRUE(button->frame);
    EXPECT_TRUE(button->title && !button->title->empty());
    EXPECT_GT(button->frame->width, 0);
    EXPECT_GT(button->frame->height, 0);
    EXPECT_GE(button->frame->y, dialogFrame.y);
    EXPECT_LE(button->frame->y + button->frame->height, dialogFrame.y + dialogFrame.height);

    pressKey(*platform, kKeyEscape);
    EXPECT_TRUE(waitUntil(
        [&] { return elementsAttribute(*platform, application, "AXWindows").size() == 1; }, 3));
}

TEST_F(LinuxDesktop, ScrollEventsMoveTheView) {
    auto editor = openEditor();
    ASSERT_TRUE(editor);
    const AXElement& application = editor->application;
    click(*platform, centre(*editor->frame));

    // Enough lines to scroll, typed as one event; the view follows the caret
    // to the end.
    std::u16string lines;
    for (int i = 0; i < 120; ++i) {
        lines += u"line\n";
    }
    typeText(*platform, lines);

    auto verticalPosition = [&]() -> std::optional<double> {
        // The scroll area's scroll bars: the vertical one is the one that moved.
        std::optional<double> largest;
        for (const auto& node : subtree(*platform, application)) {
            if (node.role == "AXScrollBar") {
                auto value = numberValue(node.element);
                if (value && (!largest || *value > *largest)) {
                    largest = value;
                }
            }
        }
        return largest;
    };
    ASSERT_TRUE(waitUntil([&] { return verticalPosition().value_or(0) > 100; }, 5))
        << verticalPosition().value_or(-1);
    double bottom = *verticalPosition();

    // A positive amount scrolls up, as on macOS.
    scroll(*platform, centre(*editor->frame), 400);
    EXPECT_TRUE(waitUntil([&] { return verticalPosition().value_or(bottom) < bottom; }, 3));
    double up = verticalPosition().value_or(bottom);

    scroll(*platform, centre(*editor->frame), -200);
    EXPECT_TRUE(waitUntil([&] { return verticalPosition().value_or(up) > up; }, 3));
}

TEST_F(LinuxDesktop, CaptureIsAPngOfTheFirstDisplay) {
    int32_t pid = launched->launch("galculator");
    ASSERT_NE(pid, 0);

    auto [screenWidth, screenHeight] = screenSize();
    ASSERT_GT(screenWidth, 0);

    auto displaysDone = platform->makeSemaphore();
    auto displays = std::make_shared<std::vector<native::Display>>();
    auto displaysError = std::make_shared<std::optional<std::string>>();
    platform->shareableDisplays(
        [=](std::optional<std::vector<native::Display>> list, std::optional<std::string> error) {
            *displays = list.value_or(std::vector<native::Display>{});
            *displaysError = std::move(error);
            displaysDone->signal();
        });
    ASSERT_TRUE(displaysDone->wait(8.0));
    ASSERT_FALSE(*displaysError) << **displaysError;
    ASSERT_EQ(displays->size(), 1u);
    const native::Display first = displays->front();
    EXPECT_EQ(first.width, screenWidth);
    EXPECT_EQ(first.height, screenHeight);

    auto imageDone = platform->makeSemaphore();
    auto image = std::make_shared<native::ImageRef>();
    auto imageError = std::make_shared<std::optional<std::string>>();
    platform->captureImage(first, first.width, first.height,
                           [=](native::ImageRef captured, std::optional<std::string> error) {
                               *image = std::move(captured);
                               *imageError = std::move(error);
                               imageDone->signal();
                           });
    ASSERT_TRUE(imageDone->wait(8.0));
    ASSERT_FALSE(*imageError) << **imageError;
    ASSERT_NE(*image, nullptr);

    auto png = platform->encodePNG(**image);
    ASSERT_TRUE(png);
    png_image decoded{};
    decoded.version = PNG_IMAGE_VERSION;
    ASSERT_NE(png_image_begin_read_from_memory(&decoded, png->data(), png->size()), 0);
    EXPECT_EQ(decoded.width, static_cast<png_uint_32>(screenWidth));
    EXPECT_EQ(decoded.height, static_cast<png_uint_32>(screenHeight));
    decoded.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> pixels(PNG_IMAGE_SIZE(decoded));
    ASSERT_NE(png_image_finish_read(&decoded, nullptr, pixels.data(), 0, nullptr), 0);
    // The calculator's window is on it: the picture is not one flat colour.
    bool varied = false;
    for (size_t i = 3; i < pixels.size() && !varied; ++i) {
        varied = pixels[i] != pixels[i % 3];
    }
    EXPECT_TRUE(varied);

    // A smaller size asked for is honoured.
    auto smallDone = platform->makeSemaphore();
    auto small = std::make_shared<native::ImageRef>();
    platform->captureImage(first, 320, 200,
                           [=](native::ImageRef captured, std::optional<std::string>) {
                               *small = std::move(captured);
                               smallDone->signal();
                           });
    ASSERT_TRUE(smallDone->wait(8.0));
    ASSERT_NE(*small, nullptr);
    auto smallPng = platform->encodePNG(**small);
    ASSERT_TRUE(smallPng);
    png_image smallDecoded{};
    smallDecoded.version = PNG_IMAGE_VERSION;
    ASSERT_NE(png_image_begin_read_from_memory(&smallDecoded, smallPng->data(), smallPng->size()),
              0);
    EXPECT_EQ(smallDecoded.width, 320u);
    EXPECT_EQ(smallDecoded.height, 200u);
    png_image_free(&smallDecoded);
}

}  // namespace
}  // namespace velmora::e2e
