#include "core/native/linux/x11/X11Input.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <mutex>
#include <set>

#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include "core/native/linux/x11/KeyTranslation.h"

namespace velmora::native::freedesktop {

namespace {

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

// The inputs alive in this process, for the exit handler. Never destroyed, so
// that they outlive every static object's destruction.
std::mutex& liveInputsMutex() {
    static auto* mutex = new std::mutex;
    return *mutex;
}
std::set<X11Input*>& liveInputs() {
    static auto* inputs = new std::set<X11Input*>;
    return *inputs;
}

}  // namespace

X11Input::X11Input(X11Connection& x11) : x11_(x11) {
    static std::once_flag once;
    std::call_once(once, [] { std::atexit(&X11Input::restoreAtExit); });
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

void X11Input::restoreAtExit() {
    std::lock_guard lock(liveInputsMutex());
    for (X11Input* input : liveInputs()) {
        input->restoreSpareKeycodes();
    }
}

void X11Input::restoreSpareKeycodes() {
    auto lock = x11_.lock();
    if (!boundSpares_.empty()) {
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
    return display != nullptr &&
           XTestQueryExtension(display, &eventBase, &errorBase, &major, &minor) != False;
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

void X11Input::post(const SyntheticEvent& event) {
    auto lock = x11_.lock();
    ::Display* display = x11_.display();
    if (display == nullptr) {
        return;
    }
    switch (event.kind) {
        case SyntheticEvent::Kind::mouse:
            postMouse(display, event);
            break;
        case SyntheticEvent::Kind::keyboard:
            postKeyboard(display, event);
            break;
        case SyntheticEvent::Kind::scroll:
            postScroll(display, event);
            break;
    }
    XSync(display, False);
}

void X11Input::postMouse(::Display* display, const SyntheticEvent& event) {
    // CGEventType values: left down/up 1/2, right down/up 3/4, moved 5, left and
    // right dragged 6/7, other button down/up/dragged 25/26/27.
    XTestFakeMotionEvent(display, DefaultScreen(display), pixel(event.point.x),
                         pixel(event.point.y), CurrentTime);
    switch (event.mouseType) {
        case 1:
        case 2:
            XTestFakeButtonEvent(display, xButtonOf(0), event.mouseType == 1, CurrentTime);
            break;
        case 3:
        case 4:
            XTestFakeButtonEvent(display, xButtonOf(1), event.mouseType == 3, CurrentTime);
            break;
        case 25:
        case 26:
            XTestFakeButtonEvent(display, xButtonOf(event.mouseButton), event.mouseType == 25,
                                 CurrentTime);
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
            XTestFakeKeyEvent(display, stroke->code, event.keyDown, CurrentTime);
        }
    }
    if (!event.keyDown) {
        pressModifiers(display, event.flags, false);
    }
}

void X11Input::postScroll(::Display* display, const SyntheticEvent& event) {
    auto click = [&](unsigned int button, int32_t clicks) {
        for (int32_t i = 0; i < clicks; ++i) {
            XTestFakeButtonEvent(display, button, True, CurrentTime);
            XTestFakeButtonEvent(display, button, False, CurrentTime);
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
        XTestFakeKeyEvent(display, shift, True, CurrentTime);
    }
    XTestFakeKeyEvent(display, stroke->code, True, CurrentTime);
    XTestFakeKeyEvent(display, stroke->code, False, CurrentTime);
    if (shift != 0) {
        XTestFakeKeyEvent(display, shift, False, CurrentTime);
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
            XTestFakeKeyEvent(display, code, press, CurrentTime);
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
    KeyCode code = spareKeycodes_[nextSpare_ % spareKeycodes_.size()];
    ++nextSpare_;
    KeySym both[2] = {keysym, keysym};
    XChangeKeyboardMapping(display, code, 2, both, 1);
    XSync(display, False);
    boundSpares_[code] = keysym;
    return code;
}

void X11Input::restoreSpareKeycodes(::Display* display) {
    for (const auto& [code, keysym] : boundSpares_) {
        KeySym none = NoSymbol;
        XChangeKeyboardMapping(display, code, 1, &none, 1);
    }
    boundSpares_.clear();
    XSync(display, False);
}

}  // namespace velmora::native::freedesktop
