#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include <X11/Xlib.h>

#include "core/native/linux/x11/SyntheticEvent.h"
#include "core/native/linux/x11/X11Connection.h"

namespace velmora::native::freedesktop {

// Performs synthetic input on the X server through the XTest extension.
//
//  - Mouse events move the pointer to their point and press or release their
//    button. X counts double clicks itself from the timing of the presses.
//  - A keyboard event with a Unicode text types that text on key-down (each
//    character pressed and released, with Shift when the layout has it on the
//    shifted level); its key-up does nothing more. Characters that the keyboard
//    layout lacks are typed through a spare keycode that is bound to them for
//    the purpose. Spare keycodes stay bound until they are needed for another
//    character or the input is destroyed, which restores what they held: an
//    application reads the mapping when it handles the key, which may be after
//    the key was sent. The user's mapping is given back on every way out: when
//    the input is destroyed; at exit, for an input still alive then (the agent
//    keeps its platform to the end), whatever the exit status; on SIGINT,
//    SIGTERM and SIGHUP, after which the process ends by that signal as it
//    would have; and for a process killed outright, by the next agent to open
//    the display, from the record kept on the server (KeymapJournal.h).
//  - Other keyboard events press or release the key that the macOS virtual key
//    code names (KeyTranslation.h); a code without an X counterpart does nothing.
//  - Event flags become modifier keys pressed before the key-down and released
//    after the key-up.
//  - Scroll events click the wheel buttons at the pointer's position.
// Every post is flushed to the server before it returns; the events of one post
// go out together, in one write, so that an application that counts clicks by
// its own clock sees a double click however slowly this process runs.
class X11Input {
  public:
    explicit X11Input(X11Connection& x11);
    ~X11Input();

    X11Input(const X11Input&) = delete;
    X11Input& operator=(const X11Input&) = delete;

    // Whether input can be sent: the display is open and has XTest.
    bool available();
    void warpPointer(Point point);
    void post(const std::vector<const SyntheticEvent*>& events);

  private:
    struct KeyStroke {
        KeyCode code = 0;
        bool shifted = false;
    };

    void postMouse(::Display* display, const SyntheticEvent& event);
    void postKeyboard(::Display* display, const SyntheticEvent& event);
    void postScroll(::Display* display, const SyntheticEvent& event);
    void typeCodePoint(::Display* display, char32_t codePoint);
    void pressModifiers(::Display* display, uint64_t flags, bool press);
    std::optional<KeyStroke> strokeFor(::Display* display, KeySym keysym);
    std::optional<KeyCode> spareKeycodeFor(::Display* display, KeySym keysym);
    void restoreSpareKeycodes(::Display* display);
    void restoreSpareKeycodes();
    static void restoreAll();
    friend void restoreThenEnd(int pipe);

    X11Connection& x11_;
    std::vector<KeyCode> spareKeycodes_;  // found on first need
    bool spareKeycodesSearched_ = false;
    std::map<KeyCode, KeySym> boundSpares_;
    // Every keycode borrowed and not yet given back, with what it held before.
    std::map<KeyCode, std::vector<KeySym>> originals_;
    size_t nextSpare_ = 0;
};

}  // namespace velmora::native::freedesktop
