// Forced activation against a window manager that prevents focus stealing.
//
// On an X server of the test's own runs xfwm4 with its focus-stealing
// prevention switched on (prevent_focus_stealing=true). It refuses an
// application's request to activate a window when the request's time is older
// than the user's last interaction. The test shows that the provider's plain activation - the
// request the application itself would make, with its window's user time - is refused there after
// the user has worked in another window, and that the driver's focus still brings the application
// to the front, through the platform's forced activation, within the driver's own waits.

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "core/native/AXCGDriver.h"
#include "core/native/SystemPlatform.h"
#include "tests/e2e/DesktopSupport.h"

namespace velmora::e2e {
namespace {

using native::AXCGDriver;

constexpr double kStartSeconds = 30;

// Starts a program with extra environment entries; its standard streams go to
// /dev/null. The process id, or -1.
pid_t spawn(const std::vector<std::string>& argv, const std::map<std::string, std::string>& env,
            int keepFd = -1) {
    pid_t child = fork();
    if (child != 0) {
        return child;
    }
    for (const auto& [name, value] : env) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    int null = open("/dev/null", O_RDWR);
    dup2(null, 0);
    if (keepFd != 1) {
        dup2(null, 1);
    }
    dup2(null, 2);
    std::vector<char*> args;
    for (const auto& arg : argv) {
        args.push_back(const_cast<char*>(arg.c_str()));
    }
    args.push_back(nullptr);
    execvp(args[0], args.data());
    _exit(127);
}

// Reads one line a child writes to the pipe it was given.
std::string readLine(int fd) {
    std::string line;
    char c = 0;
    while (read(fd, &c, 1) == 1 && c != '\n') {
        line += c;
    }
    return line;
}

void stop(pid_t& process) {
    if (process > 0) {
        kill(process, SIGTERM);
        waitpid(process, nullptr, 0);
        process = -1;
    }
}

// Xvfb, a session bus (for xfwm4's settings service) and xfwm4 refusing focus
// stealing, all ended by process id when the test ends.
class RefusingDesktop : public ::testing::Test {
  protected:
    void SetUp() override {
        // The X server; it names its display on the pipe.
        int ready[2];
        ASSERT_EQ(pipe(ready), 0);
        server_ = spawn({"Xvfb", "-displayfd", std::to_string(ready[1]), "-screen", "0",
                         "1024x768x24", "-nolisten", "tcp"},
                        {}, ready[1]);
        close(ready[1]);
        std::string number = readLine(ready[0]);
        close(ready[0]);
        ASSERT_FALSE(number.empty()) << "Xvfb did not start";
        display_ = ":" + number;

        // A bus of the test's own, so that nothing reaches the desktop's.
        int address[2];
        ASSERT_EQ(pipe(address), 0);
        bus_ = spawn({"dbus-daemon", "--session", "--nofork",
                      "--print-address=" + std::to_string(address[1])},
                     {}, address[1]);
        close(address[1]);
        busAddress_ = readLine(address[0]);
        close(address[0]);
        ASSERT_FALSE(busAddress_.empty()) << "dbus-daemon did not start";

        config_ =
            std::filesystem::temp_directory_path() / ("velmora-xfwm4-" + std::to_string(getpid()));
        std::filesystem::create_directories(config_ / "xfce4/xfwm4");
        std::ofstream(config_ / "xfce4/xfwm4/xfwm4rc") << "prevent_focus_stealing=true\n";
        windowManager_ = spawn({"xfwm4", "--compositor=off"}, environment());

        savedDisplay_ = std::getenv("DISPLAY");
        setenv("DISPLAY", display_.c_str(), 1);
        ASSERT_TRUE(waitUntil([&] { return managed(); }, kStartSeconds))
            << "xfwm4 did not start on " << display_;
        platform_ = native::makeSystemPlatform();
    }

    void TearDown() override {
        platform_.reset();
        for (pid_t& application : applications_) {
            stop(application);
        }
        stop(windowManager_);
        stop(bus_);
        stop(server_);
        if (savedDisplay_) {
            setenv("DISPLAY", savedDisplay_->c_str(), 1);
        }
        std::error_code ignored;
        std::filesystem::remove_all(config_, ignored);
    }

    std::map<std::string, std::string> environment() const {
        return {{"DISPLAY", display_},
                {"DBUS_SESSION_BUS_ADDRESS", busAddress_},
                {"XDG_CONFIG_HOME", config_.string()},
                {"NO_AT_BRIDGE", "1"}};
    }

    // Whether the window manager has taken the display over.
    bool managed() {
        ::Display* display = XOpenDisplay(display_.c_str());
        if (display == nullptr) {
            return false;
        }
        Atom check = XInternAtom(display, "_NET_SUPPORTING_WM_CHECK", False);
        Atom type = None;
        int format = 0;
        unsigned long count = 0;
        unsigned long remaining = 0;
        unsigned char* data = nullptr;
        bool found =
            XGetWindowProperty(display, DefaultRootWindow(display), check, 0, 1, False, XA_WINDOW,
                               &type, &format, &count, &remaining, &data) == Success &&
            count == 1;
        if (data != nullptr) {
            XFree(data);
        }
        XCloseDisplay(display);
        return found;
    }

    // Clicks the middle of the process's window, as the user would: the window
    // manager gives it the focus, and the click becomes its user time.
    bool clickWindowOf(pid_t process) {
        ::Display* display = XOpenDisplay(display_.c_str());
        if (display == nullptr) {
            return false;
        }
        bool clicked = false;
        Atom clients = XInternAtom(display, "_NET_CLIENT_LIST", False);
        Atom pidAtom = XInternAtom(display, "_NET_WM_PID", False);
        Atom type = None;
        int format = 0;
        unsigned long count = 0;
        unsigned long remaining = 0;
        unsigned char* data = nullptr;
        if (XGetWindowProperty(display, DefaultRootWindow(display), clients, 0, 1024, False,
                               XA_WINDOW, &type, &format, &count, &remaining, &data) == Success &&
            data != nullptr) {
            auto* windows = reinterpret_cast<unsigned long*>(data);
            for (unsigned long i = 0; i < count && !clicked; ++i) {
                unsigned char* pid = nullptr;
                unsigned long pidCount = 0;
                if (XGetWindowProperty(display, windows[i], pidAtom, 0, 1, False, XA_CARDINAL,
                                       &type, &format, &pidCount, &remaining, &pid) == Success &&
                    pid != nullptr && pidCount == 1 &&
                    static_cast<pid_t>(*reinterpret_cast<unsigned long*>(pid)) == process) {
                    XWindowAttributes attributes{};
                    XGetWindowAttributes(display, windows[i], &attributes);
                    int x = 0;
                    int y = 0;
                    Window child = 0;
                    XTranslateCoordinates(display, windows[i], DefaultRootWindow(display),
                                          attributes.width / 2, attributes.height / 2, &x, &y,
                                          &child);
                    XTestFakeMotionEvent(display, DefaultScreen(display), x, y, CurrentTime);
                    XTestFakeButtonEvent(display, 1, True, CurrentTime);
                    XTestFakeButtonEvent(display, 1, False, CurrentTime);
                    XSync(display, False);
                    clicked = true;
                }
                if (pid != nullptr) {
                    XFree(pid);
                }
            }
        }
        if (data != nullptr) {
            XFree(data);
        }
        XCloseDisplay(display);
        return clicked;
    }

    // What the window manager shows: the active window and every client with its
    // process, for the failure messages of the waits below.
    std::string desktopState() {
        ::Display* display = XOpenDisplay(display_.c_str());
        if (display == nullptr) {
            return "no display";
        }
        auto property = [&](Window window, const char* name, Atom type) {
            std::vector<unsigned long> values;
            Atom actualType = None;
            int format = 0;
            unsigned long count = 0;
            unsigned long remaining = 0;
            unsigned char* data = nullptr;
            if (XGetWindowProperty(display, window, XInternAtom(display, name, False), 0, 1024,
                                   False, type, &actualType, &format, &count, &remaining,
                                   &data) == Success &&
                data != nullptr && format == 32) {
                auto* items = reinterpret_cast<unsigned long*>(data);
                values.assign(items, items + count);
            }
            if (data != nullptr) {
                XFree(data);
            }
            return values;
        };
        std::string state = "active window:";
        for (unsigned long window :
             property(DefaultRootWindow(display), "_NET_ACTIVE_WINDOW", XA_WINDOW)) {
            state += " " + std::to_string(window);
        }
        state += "; clients:";
        for (unsigned long window :
             property(DefaultRootWindow(display), "_NET_CLIENT_LIST", XA_WINDOW)) {
            state += " " + std::to_string(window) + " (process";
            for (unsigned long process : property(window, "_NET_WM_PID", XA_CARDINAL)) {
                state += " " + std::to_string(process);
            }
            state += ")";
        }
        XCloseDisplay(display);
        return state;
    }

    pid_t start(const std::string& program) {
        pid_t process = spawn({program}, environment());
        applications_.push_back(process);
        return process;
    }

    std::string frontmost() { return platform_->frontmostApplicationBundleId().value_or("(none)"); }

    std::string display_;
    std::string busAddress_;
    std::filesystem::path config_;
    std::optional<std::string> savedDisplay_;
    pid_t server_ = -1;
    pid_t bus_ = -1;
    pid_t windowManager_ = -1;
    std::vector<pid_t> applications_;
    std::unique_ptr<native::Platform> platform_;
};

TEST_F(RefusingDesktop, PlainActivationIsRefusedAndFocusForcesItThrough) {
    // Two applications. The user works in the calculator, then in the editor:
    // the calculator is the target, the editor holds the focus.
    // Whether a newly mapped window takes the focus is the window manager's
    // choice, so the test waits for the windows and then clicks, as the user would.
    auto runs = [&](const std::string& id, pid_t process) {
        auto running = platform_->runningApplications(id);
        return !running.empty() && running.front().processId == process;
    };
    pid_t calculator = start("galculator");
    ASSERT_TRUE(waitUntil([&] { return runs("galculator", calculator); }, kStartSeconds))
        << desktopState();
    pid_t editor = start("mousepad");
    ASSERT_TRUE(waitUntil([&] { return runs("org.xfce.mousepad", editor); }, kStartSeconds))
        << desktopState();
    ASSERT_TRUE(waitUntil([&] { return clickWindowOf(calculator) && frontmost() == "galculator"; },
                          kStartSeconds))
        << frontmost() << "; " << desktopState();
    ASSERT_TRUE(waitUntil(
        [&] { return clickWindowOf(editor) && frontmost() == "org.xfce.mousepad"; }, kStartSeconds))
        << frontmost() << "; " << desktopState();
    const std::string target = "galculator";
    const pid_t targetProcess = calculator;
    const std::string holder = "org.xfce.mousepad";

    // The plain activation: the manager refuses it.
    platform_->activateApplication(targetProcess, 0);
    EXPECT_FALSE(waitUntil([&] { return frontmost() == target; }, 2))
        << "a plain activation was obeyed: this window manager does not prevent focus stealing";
    EXPECT_EQ(frontmost(), holder);

    // The driver's focus: plain activation, its wait, then the forced activation.
    AXCGDriver driver(*platform_, 3000, 1.5);
    const double started = platform_->monotonicSeconds();
    EXPECT_TRUE(driver.focus(target)) << frontmost();
    const double took = platform_->monotonicSeconds() - started;
    EXPECT_EQ(frontmost(), target);
    // It took the plain activation's whole wait, so it was the forced one that worked.
    EXPECT_GE(took, AXCGDriver::kActivationWait);
}

}  // namespace
}  // namespace velmora::e2e
