#include "core/native/linux/x11/KeymapJournal.h"

#include <signal.h>

#include <cerrno>

#include <X11/Xatom.h>

namespace velmora::native::freedesktop {

namespace {

constexpr const char* kJournal = "_VELMORA_BORROWED_KEYCODES";
// More keysyms per keycode than any server hands out: a malformed entry.
constexpr unsigned long kMostLevels = 64;

Atom journalAtom(::Display* display) {
    return XInternAtom(display, kJournal, False);
}

std::vector<long> encode(const std::vector<BorrowedKeycode>& entries) {
    std::vector<long> items;
    for (const auto& entry : entries) {
        items.push_back(entry.owner);
        items.push_back(entry.keycode);
        items.push_back(static_cast<long>(entry.original.size()));
        for (KeySym keysym : entry.original) {
            items.push_back(static_cast<long>(keysym));
        }
    }
    return items;
}

void writeJournal(::Display* display, const std::vector<BorrowedKeycode>& entries) {
    Window root = DefaultRootWindow(display);
    if (entries.empty()) {
        XDeleteProperty(display, root, journalAtom(display));
        return;
    }
    std::vector<long> items = encode(entries);
    XChangeProperty(display, root, journalAtom(display), XA_CARDINAL, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(items.data()),
                    static_cast<int>(items.size()));
}

bool processRuns(pid_t processId) {
    return processId > 0 && (kill(processId, 0) == 0 || errno != ESRCH);
}

}  // namespace

std::vector<KeySym> keycodeMapping(::Display* display, KeyCode keycode) {
    int perKeycode = 0;
    KeySym* syms = XGetKeyboardMapping(display, keycode, 1, &perKeycode);
    std::vector<KeySym> levels;
    if (syms != nullptr) {
        levels.assign(syms, syms + perKeycode);
        XFree(syms);
    }
    return levels;
}

std::vector<BorrowedKeycode> readKeymapJournal(::Display* display) {
    Atom actualType = None;
    int actualFormat = 0;
    unsigned long count = 0;
    unsigned long remaining = 0;
    unsigned char* data = nullptr;
    std::vector<BorrowedKeycode> entries;
    if (XGetWindowProperty(display, DefaultRootWindow(display), journalAtom(display), 0, 1L << 20,
                           False, XA_CARDINAL, &actualType, &actualFormat, &count, &remaining,
                           &data) == Success &&
        data != nullptr && actualType == XA_CARDINAL && actualFormat == 32) {
        // Xlib hands format-32 items out as longs.
        const auto* items = reinterpret_cast<const unsigned long*>(data);
        size_t at = 0;
        while (at + 3 <= count) {
            BorrowedKeycode entry;
            entry.owner = static_cast<pid_t>(items[at]);
            const unsigned long keycode = items[at + 1];
            const unsigned long levels = items[at + 2];
            if (keycode < 8 || keycode > 255 || levels == 0 || levels > kMostLevels ||
                at + 3 + levels > count) {
                entries.clear();  // not written by an agent: trust none of it
                break;
            }
            entry.keycode = static_cast<KeyCode>(keycode);
            entry.original.assign(items + at + 3, items + at + 3 + levels);
            entries.push_back(std::move(entry));
            at += 3 + levels;
        }
    }
    if (data != nullptr) {
        XFree(data);
    }
    return entries;
}

void addToKeymapJournal(::Display* display, const BorrowedKeycode& entry) {
    std::vector<long> items = encode({entry});
    XChangeProperty(display, DefaultRootWindow(display), journalAtom(display), XA_CARDINAL, 32,
                    PropModeAppend, reinterpret_cast<const unsigned char*>(items.data()),
                    static_cast<int>(items.size()));
}

void removeFromKeymapJournal(::Display* display, pid_t owner,
                             const std::vector<KeyCode>& keycodes) {
    XGrabServer(display);
    std::vector<BorrowedKeycode> kept;
    for (auto& entry : readKeymapJournal(display)) {
        bool ours = entry.owner == owner;
        if (ours && !keycodes.empty()) {
            ours = false;
            for (KeyCode keycode : keycodes) {
                ours = ours || keycode == entry.keycode;
            }
        }
        if (!ours) {
            kept.push_back(std::move(entry));
        }
    }
    writeJournal(display, kept);
    XUngrabServer(display);
    XSync(display, False);
}

int repairAbandonedKeycodes(::Display* display) {
    XGrabServer(display);
    int repaired = 0;
    std::vector<BorrowedKeycode> kept;
    const auto entries = readKeymapJournal(display);
    for (const auto& entry : entries) {
        if (processRuns(entry.owner)) {
            kept.push_back(entry);
            continue;
        }
        if (keycodeMapping(display, entry.keycode) != entry.original) {
            std::vector<KeySym> levels = entry.original;
            XChangeKeyboardMapping(display, entry.keycode, static_cast<int>(levels.size()),
                                   levels.data(), 1);
            ++repaired;
        }
    }
    if (kept.size() != entries.size()) {
        writeJournal(display, kept);
    }
    XUngrabServer(display);
    XSync(display, False);
    return repaired;
}

}  // namespace velmora::native::freedesktop
