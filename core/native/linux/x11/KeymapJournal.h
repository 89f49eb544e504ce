#pragma once

#include <sys/types.h>

#include <cstdint>
#include <vector>

#include <X11/Xlib.h>

// A record, kept on the X server itself, of the keycodes an agent has borrowed
// and what they held before, so that what a killed agent (SIGKILL, a crash, a
// power-cut of its own) left changed in the user's keyboard mapping is given
// back by the next agent on the display.
//
// The record is the root window's _VELMORA_BORROWED_KEYCODES property (format
// 32): for each borrowed keycode, the borrower's process id, the keycode, the
// number n of keysyms per keycode and the n keysyms it held before. An agent
// adds an entry before it changes a keycode and takes its entries out once it
// has put the keycodes back. Another agent that finds entries whose process no
// longer runs puts those keycodes back (where they still differ from what they
// held) and takes the entries out. Entries of a live process are left alone: it
// is another agent, still at work.

namespace velmora::native::freedesktop {

struct BorrowedKeycode {
    pid_t owner = 0;
    KeyCode keycode = 0;
    std::vector<KeySym> original;  // every level, as XGetKeyboardMapping gave it
};

// The entries, in order; empty when there are none or the property is malformed.
std::vector<BorrowedKeycode> readKeymapJournal(::Display* display);

// Adds one entry (one request, so that entries of agents writing at once never mix).
void addToKeymapJournal(::Display* display, const BorrowedKeycode& entry);

// Takes out this process's entries for these keycodes (all of them when empty).
void removeFromKeymapJournal(::Display* display, pid_t owner, const std::vector<KeyCode>& keycodes);

// Puts back the keycodes that agents no longer running left borrowed and takes
// their entries out; the number of keycodes put back. The server is grabbed
// meanwhile, so that two agents starting at once do not both repair.
int repairAbandonedKeycodes(::Display* display);

// A keycode's keysyms at every level, as the server has them now.
std::vector<KeySym> keycodeMapping(::Display* display, KeyCode keycode);

}  // namespace velmora::native::freedesktop
