// The user's keyboard mapping is given back on every way out of the agent.
//
// Typing characters that the layout lacks borrows spare keycodes. These tests
// run the agent on mousepad with a long text of such characters and end it in
// each way it can end: normally, with a failed action (exit status 2), by
// SIGINT, SIGTERM and SIGHUP in the middle of typing - after which the mapping
// must be what it was - and by SIGKILL, after which the mapping stays changed
// until the next agent opens the display and repairs it.

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/keysym.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/e2e/AgentRequests.h"
#include "tests/e2e/DesktopSupport.h"
#include "tests/e2e/DisplayApplications.h"

namespace velmora::e2e {
namespace {

const std::string kEditor = "org.xfce.mousepad";

// Greek letters: none of them is on the virtual desktop's keyboard layout, so
// every one is typed through a borrowed keycode. Long enough to take seconds.
std::string lackingText(int times = 40) {
    std::string text;
    for (int i = 0; i < times; ++i) {
        text += "αβγδεζηθικλμνξπρστφχψω";
    }
    return text;
}

// The test's own view of the X server: the whole keyboard mapping and the
// record of borrowed keycodes on the root window.
class Keyboard {
  public:
    Keyboard() : display_(XOpenDisplay(nullptr)) {}
    ~Keyboard() {
        if (display_ != nullptr) {
            XCloseDisplay(display_);
        }
    }
    bool open() const { return display_ != nullptr; }

    std::vector<KeySym> mapping() {
        int min = 0;
        int max = 0;
        int per = 0;
        XDisplayKeycodes(display_, &min, &max);
        KeySym* syms =
            XGetKeyboardMapping(display_, static_cast<KeyCode>(min), max - min + 1, &per);
        std::vector<KeySym> all(syms, syms + (max - min + 1) * per);
        XFree(syms);
        all.push_back(static_cast<KeySym>(per));
        return all;
    }

    bool journalPresent() {
        Atom type = None;
        int format = 0;
        unsigned long count = 0;
        unsigned long remaining = 0;
        unsigned char* data = nullptr;
        Atom journal = XInternAtom(display_, "_VELMORA_BORROWED_KEYCODES", False);
        XGetWindowProperty(display_, DefaultRootWindow(display_), journal, 0, 1024, False,
                           AnyPropertyType, &type, &format, &count, &remaining, &data);
        if (data != nullptr) {
            XFree(data);
        }
        return type != None;
    }

    // Writes a record as an agent with this process id would, for keycode
    // `keycode` that held `original`, and binds the keycode to `bound`.
    void borrowAs(pid_t owner, KeyCode keycode, KeySym original, KeySym bound) {
        int per = 0;
        KeySym* syms = XGetKeyboardMapping(display_, keycode, 1, &per);
        std::vector<long> record = {owner, keycode, per};
        for (int level = 0; level < per; ++level) {
            record.push_back(static_cast<long>(level == 0 ? original : syms[level]));
        }
        XFree(syms);
        XChangeProperty(display_, DefaultRootWindow(display_),
                        XInternAtom(display_, "_VELMORA_BORROWED_KEYCODES", False), XA_CARDINAL, 32,
                        PropModeAppend, reinterpret_cast<const unsigned char*>(record.data()),
                        static_cast<int>(record.size()));
        KeySym one[1] = {bound};
        XChangeKeyboardMapping(display_, keycode, 1, one, 1);
        XSync(display_, False);
    }
    void clearJournal() {
        XDeleteProperty(display_, DefaultRootWindow(display_),
                        XInternAtom(display_, "_VELMORA_BORROWED_KEYCODES", False));
        XSync(display_, False);
    }
    // One keycode's keysyms at every level.
    std::vector<KeySym> row(KeyCode keycode) {
        int per = 0;
        KeySym* syms = XGetKeyboardMapping(display_, keycode, 1, &per);
        std::vector<KeySym> levels(syms, syms + per);
        XFree(syms);
        return levels;
    }
    // The highest keycode without any keysym, as the agent would borrow it.
    KeyCode spareKeycode() {
        int min = 0;
        int max = 0;
        XDisplayKeycodes(display_, &min, &max);
        for (int code = max; code > min; --code) {
            int per = 0;
            KeySym* syms = XGetKeyboardMapping(display_, static_cast<KeyCode>(code), 1, &per);
            bool empty = true;
            for (int level = 0; level < per; ++level) {
                empty = empty && syms[level] == NoSymbol;
            }
            XFree(syms);
            if (empty) {
                return static_cast<KeyCode>(code);
            }
        }
        return 0;
    }

  private:
    ::Display* display_;
};

// Whether a window of the editor is on screen, which the window manager makes so.
bool editorShown() {
    for (pid_t owner : shownWindowOwnerProcessIds()) {
        char path[64];
        std::snprintf(path, sizeof path, "/proc/%d/exe", owner);
        char target[4096];
        const ssize_t length = readlink(path, target, sizeof target - 1);
        if (length > 0 && std::string(target, static_cast<size_t>(length)).ends_with("/mousepad")) {
            return true;
        }
    }
    return false;
}

// The agent running a request, its standard output and error going to `output`.
pid_t startAgent(const std::string& request, int output) {
    int input[2];
    if (pipe(input) != 0) {
        return -1;
    }
    pid_t agent = fork();
    if (agent == 0) {
        // A broker's agent takes these signals; a test run in the background of a
        // shell inherits SIGINT ignored, which the agent would keep ignoring.
        for (int signal : {SIGINT, SIGTERM, SIGHUP}) {
            ::signal(signal, SIG_DFL);
        }
        dup2(input[0], 0);
        close(input[0]);
        close(input[1]);
        dup2(output, 1);
        dup2(output, 2);
        execl(VELMORA_AGENT_PATH, VELMORA_AGENT_PATH, "run", static_cast<char*>(nullptr));
        _exit(127);
    }
    close(input[0]);
    (void)!write(input[1], request.data(), request.size());
    close(input[1]);
    return agent;
}

class SessionRestore : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!onDesktop()) {
            GTEST_FAIL() << kNeedsDesktop;
        }
        ASSERT_TRUE(keyboard_.open());
        started_ = std::make_unique<StartedApplications>();
        AgentRun run = runRequest(kEditor, Json::array({{{"kind", "launch"}}}));
        ASSERT_EQ(run.exitStatus, 0) << summary(run);
        ASSERT_TRUE(settledFrame(kEditor, {{"role", "AXTextArea"}}, 30));
        // The accessibility tree reports the new window before the window manager
        // has shown it, and after a test that typed a long text through borrowed
        // keycodes the manager can be seconds behind: each borrowing tells it (and
        // every client) to read the keymap again, and it handles the editor's map
        // request only after all of those. The agent started below gives the
        // focus a second or two, so the editor must be on screen first.
        ASSERT_TRUE(waitUntil([] { return editorShown(); }, 30))
            << "the window manager never showed the editor";
        before_ = keyboard_.mapping();
        ASSERT_FALSE(keyboard_.journalPresent());
    }

    void TearDown() override {
        if (started_) {
            for (pid_t id : started_->endAll()) {
                EXPECT_TRUE(processEnded(id)) << "application " << id << " is still running";
            }
        }
    }

    // Starts the agent with these actions and waits until it has borrowed a keycode.
    pid_t startTyping(Json actions = Json::array({{{"kind", "typeText"},
                                                   {"text", lackingText()}}})) {
        char path[] = "/tmp/velmora-session-restore-XXXXXX";
        const int output = mkstemp(path);
        unlink(path);
        pid_t agent = startAgent(makeRequest(kEditor, actions).dump(), output);
        EXPECT_GT(agent, 0);
        if (!waitUntil([&] { return keyboard_.mapping() != before_; }, 30)) {
            kill(agent, SIGKILL);
            waitpid(agent, nullptr, 0);
            std::string text;
            char buffer[4096];
            ssize_t got = 0;
            while ((got = pread(output, buffer, sizeof buffer, static_cast<off_t>(text.size()))) >
                   0) {
                text.append(buffer, static_cast<size_t>(got));
            }
            ADD_FAILURE() << "the agent never borrowed a keycode; it wrote:\n" << text;
            agent = -1;
        }
        close(output);
        return agent;
    }

    int waitFor(pid_t agent) {
        int status = 0;
        waitpid(agent, &status, 0);
        return status;
    }

    Keyboard keyboard_;
    std::vector<KeySym> before_;
    std::unique_ptr<StartedApplications> started_;
};

TEST_F(SessionRestore, NormalExitGivesTheKeycodesBack) {
    pid_t agent = startTyping(Json::array({{{"kind", "typeText"}, {"text", lackingText(2)}}}));
    ASSERT_GT(agent, 0);
    const int status = waitFor(agent);
    ASSERT_TRUE(WIFEXITED(status)) << "status " << status;
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(keyboard_.mapping(), before_);
    EXPECT_FALSE(keyboard_.journalPresent());
}

TEST_F(SessionRestore, ErrorExitGivesTheKeycodesBack) {
    pid_t agent = startTyping(Json::array({{{"kind", "typeText"}, {"text", lackingText(2)}},
                                           {{"kind", "keyPress"}, {"keys", {"f5"}}}}));
    ASSERT_GT(agent, 0);
    const int status = waitFor(agent);
    ASSERT_TRUE(WIFEXITED(status)) << "status " << status;
    EXPECT_EQ(WEXITSTATUS(status), 2);  // the unknown key fails the run
    EXPECT_EQ(keyboard_.mapping(), before_);
    EXPECT_FALSE(keyboard_.journalPresent());
}

class SessionRestoreOnSignal : public SessionRestore, public ::testing::WithParamInterface<int> {};

TEST_P(SessionRestoreOnSignal, TheKeycodesComeBackAndTheAgentEndsByTheSignal) {
    const int signal = GetParam();
    pid_t agent = startTyping();
    ASSERT_GT(agent, 0);
    ASSERT_TRUE(keyboard_.journalPresent());
    kill(agent, signal);
    const int status = waitFor(agent);
    ASSERT_TRUE(WIFSIGNALED(status)) << "status " << status;
    EXPECT_EQ(WTERMSIG(status), signal);
    EXPECT_EQ(keyboard_.mapping(), before_);
    EXPECT_FALSE(keyboard_.journalPresent());
}

INSTANTIATE_TEST_SUITE_P(EndingSignals, SessionRestoreOnSignal,
                         ::testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto& info) { return std::string(sigabbrev_np(info.param)); });

TEST_F(SessionRestore, AKilledAgentsKeycodesAreRepairedByTheNextRun) {
    pid_t agent = startTyping();
    ASSERT_GT(agent, 0);
    kill(agent, SIGKILL);
    const int status = waitFor(agent);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    // Nothing could give them back: the mapping is still changed, and recorded.
    ASSERT_NE(keyboard_.mapping(), before_);
    ASSERT_TRUE(keyboard_.journalPresent());

    // The next agent, whatever it is asked, repairs it when it opens the display.
    AgentRun next = runRequest(kEditor, Json::array({{{"kind", "frontmost"}}}));
    EXPECT_EQ(next.exitStatus, 0) << summary(next);
    EXPECT_EQ(keyboard_.mapping(), before_);
    EXPECT_FALSE(keyboard_.journalPresent());
}

TEST_F(SessionRestore, AKeycodeThatALiveAgentBorrowedIsLeftAlone) {
    // This test's own process stands for another agent, still at work.
    const KeyCode keycode = keyboard_.spareKeycode();
    ASSERT_NE(keycode, 0);
    const KeySym original = keyboard_.row(keycode).front();
    keyboard_.borrowAs(getpid(), keycode, NoSymbol, XK_Greek_lambda);
    ASSERT_EQ(keyboard_.row(keycode).front(), XK_Greek_lambda);

    AgentRun next = runRequest(kEditor, Json::array({{{"kind", "frontmost"}}}));
    EXPECT_EQ(next.exitStatus, 0) << summary(next);
    EXPECT_EQ(keyboard_.row(keycode).front(), XK_Greek_lambda);
    EXPECT_TRUE(keyboard_.journalPresent());

    // Had its owner been gone, the same record would have been repaired.
    keyboard_.clearJournal();
    pid_t gone = fork();
    if (gone == 0) {
        _exit(0);
    }
    waitpid(gone, nullptr, 0);
    keyboard_.borrowAs(gone, keycode, NoSymbol, XK_Greek_lambda);
    next = runRequest(kEditor, Json::array({{{"kind", "frontmost"}}}));
    EXPECT_EQ(keyboard_.row(keycode).front(), original);
    EXPECT_EQ(keyboard_.row(keycode).front(), NoSymbol);
    EXPECT_FALSE(keyboard_.journalPresent());
}

}  // namespace
}  // namespace velmora::e2e
