#pragma once

// The session's accessibility switch: the IsEnabled property of org.a11y.Status,
// which the accessibility bus launcher (org.a11y.Bus on the session bus) keeps
// and assistive technologies set when they start. Of the toolkits on an X11
// desktop, Gecko (Firefox, Thunderbird) and Chromium expose their trees only
// while it is true; Gecko also follows a change while it runs. GTK 3 and 4,
// LibreOffice's GTK 3 plugin and Qt 5 (which finds the accessibility bus on the
// X root window) expose theirs either way.
//
// ScreenReaderEnabled, the launcher's other switch, is left alone: none of them
// needs it on X11, and applications change their behaviour for screen readers.
// The agent never sets IsEnabled back to false.

namespace velmora::native::freedesktop {

// What the switch was when asked.
enum class AccessibilitySwitch {
    alreadyOn,    // IsEnabled was true already
    switchedOn,   // it was false and is now true
    unreachable,  // no session bus, no launcher, or it refused: nothing changed
};

// Sets IsEnabled to true unless it is, on the session bus the environment
// names. Blocks for at most a few seconds when the launcher does not answer.
AccessibilitySwitch switchAccessibilityOn();

}  // namespace velmora::native::freedesktop
