#include "core/native/linux/x11/X11Input.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <mutex>
#include <set>
#include <thread>

#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include "core/native/linux/SharedLibrary.h"
#include "core/native/linux/x11/KeyTranslation.h"
#include "core/native/linux/x11/KeymapJournal.h"

namespace velmora::native::freedesktop {

namespace {

struct Libxtst {
    decltype(&::XTestQueryExtension) XTestQueryExtension = nullptr;
    decltype(&::XTestFakeMotionEvent) XTestFakeMotionEvent = nullptr;
    decltype(&::XTestFakeButtonEvent) XTestFakeButtonEvent = nullptr;
    decltype(&::XTestFakeKeyEvent) XTestFakeKeyEvent = nullptr;
};

// Only input needs XTest's client library; none when it cannot be loaded.
const Libxtst* libxtst() {
    static SharedLibrary library("libXtst.so.6");
    static Libxtst table;
    static const bool found = VELMORA_LIBRARY_FUNCTION(library, table, XTestQueryExtension) &&
                              VELMORA_LIBRARY_FUNCTION(library, table, XTestFakeMotionEvent) &&
                              VELMORA_LIBRARY_FUNCTION(library, table, XTestFakeButtonEvent) &&
                              VELMORA_LIBRARY_FUNCTION(library, table, XTestFakeKeyEvent);
    return found ? &table : nullptr;
}

// Where input is posted, `post()` has found the library.
const Libxtst& xtest() {
    return *libxtst();
}

// How many spare keycodes carry characters that the layout lacks. Rotating
// through several gives an application time to read a binding before it changes.
constexpr size_t kSpareKeycodes = 10;

// The server's core keyboard mapping, read afresh for each lookup so that a
// layout change is seen at once.
class KeyboardMapping {
  public:
    explicit KeyboardMapping(::Display* display) {
        XDisplayKeycodes(display, &min_, &max_);
        syms_ = XGetKeyboardMapping(display, static_cast<KeyCode>(min_), max_ - min_ + 1, &per_);
    }
    ~KeyboardMapping() {
        if (syms_ != nullptr) {
            XFree(syms_);
        }
    }
    KeyboardMapping(const KeyboardMapping&) = delete;
    KeyboardMapping& operator=(const KeyboardMapping&) = delete;

    int min() const { return min_; }
    int max() const { return syms_ != nullptr ? max_ : min_ - 1; }
    KeySym at(int keycode, int level) const {
        if (syms_ == nullptr || level >= per_) {
            return NoSymbol;
        }
        return syms_[(keycode - min_) * per_ + level];
    }

  private:
    int min_ = 0;
    int max_ = 0;
    int per_ = 0;
    KeySym* syms_ = nullptr;
};

int pixel(double coordinate) {
    return static_cast<int>(std::lround(coordinate));
}

}  // namespace

namespace {

// The inputs alive in this process, for the exit and signal handling. Never
// destroyed, so that they outlive every static object's destruction.
std::mutex& liveInputsMutex() {
    static auto* mutex = new std::mutex;
    return *mutex;
}
std::set<X11Input*>& liveInputs() {
    static auto* inputs = new std::set<X11Input*>;
    return *inputs;
}

// Set once a signal's restore has run: no keycode is borrowed after it.
std::atomic<bool> ending{false};

// The signals that end the agent and can be caught.
constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP};

// The write end of the pipe from the signal handler to the restoring thread.
int signalPipe = -1;

// Xlib is not async-signal-safe: a handler that called it could interrupt the
// main thread in the middle of an Xlib call on the same connection, with the
// request half written and Xlib's own state and locks held, and corrupt the
// stream or deadlock. Nor could it take the connection's mutex, which the
// interrupted thread may hold. So the handler only writes the signal's number to
// a pipe (write is async-signal-safe), and a thread of our own does the restore
// with Xlib outside any handler, taking the connection's mutex as every other
// use does - the interrupted thread carries on after the handler returns and
// lets it go at the end of its current call.
void onEndingSignal(int signal) {
    const int savedErrno = errno;
    const auto byte = static_cast<unsigned char>(signal);
    ssize_t written = write(signalPipe, &byte, 1);
    (void)written;  // a full pipe already holds a signal to act on
    errno = savedErrno;
}

}  // namespace

// The restoring thread: waits for a signal, gives every live input's keycodes
// back, then ends the process by that signal, as it would have ended without
// a handler (its status tells the parent which signal it was).
void restoreThenEnd(int pipe) {
    unsigned char byte = 0;
    while (read(pipe, &byte, 1) != 1) {
        if (errno != EINTR) {
            return;
        }
    }
    {
        std::lock_guard lock(liveInputsMutex());
        for (X11Input* input : liveInputs()) {
            auto connectionLock = input->x11_.lock();
            // Under the connection's lock: once given back, nothing borrows again.
            ending = true;
            if (!input->originals_.empty()) {
                if (::Display* display = input->x11_.display()) {
                    input->restoreSpareKeycodes(display);
                }
            }
        }
        ending = true;
    }
    struct sigaction defaultAction {};
    defaultAction.sa_handler = SIG_DFL;
    sigemptyset(&defaultAction.sa_mask);
    sigaction(byte, &defaultAction, nullptr);
    kill(getpid(), byte);
    // The signal is blocked on this thread; the main thread takes it and ends
    // the process. Stay out of the way until it does.
    pause();
}

namespace {

// Installs the handlers and starts the restoring thread, once per process, when
// the first keycode is about to be borrowed: before that there is nothing to
// give back and the default dispositions stay. A signal the process ignores
// (nohup) stays ignored.
void armSignalRestore() {
    static std::once_flag once;
    std::call_once(once, [] {
        int ends[2] = {-1, -1};
        if (pipe2(ends, O_CLOEXEC) != 0) {
            return;
        }
        signalPipe = ends[1];
        // The thread takes none of these signals itself, so that a signal always
        // interrupts a thread that may hold the connection's mutex, never the one
        // waiting for it.
        sigset_t blocked;
        sigset_t previous;
        sigemptyset(&blocked);
        for (int signal : kEndingSignals) {
            sigaddset(&blocked, signal);
        }
        pthread_sigmask(SIG_BLOCK, &blocked, &previous);
        std::thread(restoreThenEnd, ends[0]).detach();
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
        for (int signal : kEndingSignals) {
            struct sigaction current {};
            sigaction(signal, nullptr, &current);
            if (current.sa_handler == SIG_IGN) {
                continue;
            }
            struct sigaction action {};
            action.sa_handler = onEndingSignal;
            sigemptyset(&action.sa_mask);
            action.sa_flags = SA_RESTART;
            sigaction(signal, &action, nullptr);
        }
    });
}

}  // namespace

X11Input::X11Input(X11Connection& x11) : x11_(x11) {
    static std::once_flag once;
    std::call_once(once, [] { std::atexit(&X11Input::restoreAll); });
    // What an agent killed outright left borrowed is given back by the next one,
    // as soon as it opens the display.
    x11_.onOpen([](::Display* display) { repairAbandonedKeycodes(display); });
    std::lock_guard lock(liveInputsMutex());
    liveInputs().insert(this);
}

X11Input::~X11Input() {
    {
        std::lock_guard lock(liveInputsMutex());
        liveInputs().erase(this);
    }
    restoreSpareKeycodes();
}

void X11Input::restoreAll() {
    std::lock_guard lock(liveInputsMutex());
    for (X11Input* input : liveInputs()) {
        input->restoreSpareKeycodes();
    }
}

void X11Input::restoreSpareKeycodes() {
    auto lock = x11_.lock();
    if (!originals_.empty()) {
        if (::Display* display = x11_.display()) {
            restoreSpareKeycodes(display);
        }
    }
}

bool X11Input::available() {
    auto lock = x11_.lock();
    ::Display* display = x11_.display();
    int eventBase = 0;
    int errorBase = 0;
    int major = 0;
    int minor = 0;
    return display != nullptr && libxtst() != nullptr &&
           xtest().XTestQueryExtension(display, &eventBase, &errorBase, &major, &minor) != False;
}

void X11Input::warpPointer(Point point) {
    auto lock = x11_.lock();
    ::Display* display = x11_.display();
    if (display == nullptr) {
        return;
    }
    XWarpPointer(display, None, DefaultRootWindow(display), 0, 0, 0, 0, pixel(point.x),
                 pixel(point.y));
    XSync(display, False);
}

void X11Input::post(const std::vector<const SyntheticEvent*>& events) {
    auto lock = x11_.lock();
    ::Display* display = x11_.display();
    if (display == nullptr || libxtst() == nullptr) {
        return;
    }
    for (const SyntheticEvent* event : events) {
        switch (event->kind) {
            case SyntheticEvent::Kind::mouse:
                postMouse(display, *event);
                break;
            case SyntheticEvent::Kind::keyboard:
                postKeyboard(display, *event);
                break;
            case SyntheticEvent::Kind::scroll:
                postScroll(display, *event);
                break;
        }
    }
    // Xlib has kept the requests in its buffer (unless a borrowed keycode needed
    // a round trip): they leave here together.
    XSync(display, False);
}

void X11Input::postMouse(::Display* display, const SyntheticEvent& event) {
    // CGEventType values: left down/up 1/2, right down/up 3/4, moved 5, left and
    // right dragged 6/7, other button down/up/dragged 25/26/27.
    xtest().XTestFakeMotionEvent(display, DefaultScreen(display), pixel(event.point.x),
                                 pixel(event.point.y), CurrentTime);
    switch (event.mouseType) {
        case 1:
        case 2:
            xtest().XTestFakeButtonEvent(display, xButtonOf(0), event.mouseType == 1, CurrentTime);
            break;
        case 3:
        case 4:
            xtest().XTestFakeButtonEvent(display, xButtonOf(1), event.mouseType == 3, CurrentTime);
            break;
        case 25:
        case 26:
            xtest().XTestFakeButtonEvent(display, xButtonOf(event.mouseButton),
                                         event.mouseType == 25, CurrentTime);
            break;
        default:
            break;  // a move or drag: the motion is all
    }
}

void X11Input::postKeyboard(::Display* display, const SyntheticEvent& event) {
    if (event.keyDown) {
        pressModifiers(display, event.flags, true);
    }
    if (!event.unicodeText.empty()) {
        if (event.keyDown) {
            for (char32_t codePoint : codePointsOfUtf16(event.unicodeText)) {
                typeCodePoint(display, codePoint);
            }
        }
    } else if (auto keysym = keysymForVirtualKey(event.virtualKey)) {
        if (auto stroke = strokeFor(display, *keysym)) {
            xtest().XTestFakeKeyEvent(display, stroke->code, event.keyDown, CurrentTime);
        }
    }
    if (!event.keyDown) {
        pressModifiers(display, event.flags, false);
    }
}

void X11Input::postScroll(::Display* display, const SyntheticEvent& event) {
    auto click = [&](unsigned int button, int32_t clicks) {
        for (int32_t i = 0; i < clicks; ++i) {
            xtest().XTestFakeButtonEvent(display, button, True, CurrentTime);
            xtest().XTestFakeButtonEvent(display, button, False, CurrentTime);
        }
    };
    if (event.wheelVertical != 0) {
        click(verticalWheelButton(event.wheelVertical),
              wheelClicks(event.scrollUnits, event.wheelVertical));
    }
    if (event.wheelHorizontal != 0) {
        click(horizontalWheelButton(event.wheelHorizontal),
              wheelClicks(event.scrollUnits, event.wheelHorizontal));
    }
}

void X11Input::typeCodePoint(::Display* display, char32_t codePoint) {
    KeySym keysym = keysymForCodePoint(codePoint);
    auto stroke = strokeFor(display, keysym);
    if (!stroke) {
        auto spare = spareKeycodeFor(display, keysym);
        if (!spare) {
            return;  // no key left to carry it
        }
        stroke = KeyStroke{.code = *spare, .shifted = false};
    }
    KeyCode shift = stroke->shifted ? XKeysymToKeycode(display, XK_Shift_L) : 0;
    if (shift != 0) {
        xtest().XTestFakeKeyEvent(display, shift, True, CurrentTime);
    }
    xtest().XTestFakeKeyEvent(display, stroke->code, True, CurrentTime);
    xtest().XTestFakeKeyEvent(display, stroke->code, False, CurrentTime);
    if (shift != 0) {
        xtest().XTestFakeKeyEvent(display, shift, False, CurrentTime);
    }
}

void X11Input::pressModifiers(::Display* display, uint64_t flags, bool press) {
    auto keys = modifierKeysyms(flags);
    if (!press) {
        std::reverse(keys.begin(), keys.end());
    }
    for (KeySym keysym : keys) {
        KeyCode code = XKeysymToKeycode(display, keysym);
        if (code != 0) {
            xtest().XTestFakeKeyEvent(display, code, press, CurrentTime);
        }
    }
}

std::optional<X11Input::KeyStroke> X11Input::strokeFor(::Display* display, KeySym keysym) {
    for (const auto& [code, bound] : boundSpares_) {
        if (bound == keysym) {
            return KeyStroke{.code = code, .shifted = false};
        }
    }
    KeyboardMapping mapping(display);
    std::optional<KeyStroke> shifted;
    for (int code = mapping.min(); code <= mapping.max(); ++code) {
        if (boundSpares_.contains(static_cast<KeyCode>(code))) {
            continue;
        }
        KeySym plain = mapping.at(code, 0);
        if (plain == keysym) {
            return KeyStroke{.code = static_cast<KeyCode>(code), .shifted = false};
        }
        KeySym upper = mapping.at(code, 1);
        if (upper == NoSymbol && plain != NoSymbol) {
            // A letter key listing only its lower case has its upper case shifted.
            KeySym lower = NoSymbol;
            XConvertCase(plain, &lower, &upper);
        }
        if (upper == keysym && !shifted) {
            shifted = KeyStroke{.code = static_cast<KeyCode>(code), .shifted = true};
        }
    }
    return shifted;
}

std::optional<KeyCode> X11Input::spareKeycodeFor(::Display* display, KeySym keysym) {
    if (!spareKeycodesSearched_) {
        spareKeycodesSearched_ = true;
        KeyboardMapping mapping(display);
        // From the top: the highest keycodes are the least likely to be wanted.
        for (int code = mapping.max(); code >= mapping.min() && code > 8; --code) {
            bool empty = true;
            for (int level = 0; level < 4 && empty; ++level) {
                empty = mapping.at(code, level) == NoSymbol;
            }
            if (empty) {
                spareKeycodes_.push_back(static_cast<KeyCode>(code));
                if (spareKeycodes_.size() == kSpareKeycodes) {
                    break;
                }
            }
        }
    }
    if (spareKeycodes_.empty()) {
        return std::nullopt;
    }
    if (ending) {
        return std::nullopt;  // the session has been given back: the process is ending
    }
    KeyCode code = spareKeycodes_[nextSpare_ % spareKeycodes_.size()];
    ++nextSpare_;
    if (!originals_.contains(code)) {
        // Recorded on the server before it changes, so that whatever happens to
        // this process from here on, the next agent can give it back.
        armSignalRestore();
        BorrowedKeycode entry{
            .owner = getpid(), .keycode = code, .original = keycodeMapping(display, code)};
        if (entry.original.empty()) {
            return std::nullopt;
        }
        addToKeymapJournal(display, entry);
        originals_[code] = std::move(entry.original);
    }
    KeySym both[2] = {keysym, keysym};
    XChangeKeyboardMapping(display, code, 2, both, 1);
    XSync(display, False);
    boundSpares_[code] = keysym;
    return code;
}

void X11Input::restoreSpareKeycodes(::Display* display) {
    std::vector<KeyCode> keycodes;
    for (auto& [code, original] : originals_) {
        XChangeKeyboardMapping(display, code, static_cast<int>(original.size()), original.data(),
                               1);
        keycodes.push_back(code);
    }
    // Given back: the record on the server goes too.
    removeFromKeymapJournal(display, getpid(), keycodes);
    originals_.clear();
    boundSpares_.clear();
    XSync(display, False);
}

}  // namespace velmora::native::freedesktop
