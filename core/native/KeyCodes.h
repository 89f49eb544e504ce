#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

// Key names, virtual key codes and modifier words for synthesised key chords.
// Codes are the macOS virtual key codes of the standard ANSI key positions.

namespace velmora::native {

// One-character lower-case letters and digits to their key codes (36 entries).
// Built once on first use; safe when several threads reach it together.
const std::map<std::string, uint16_t>& letterDigitMap();

// The named keys (return, tab, arrows, ...); none for any other name.
std::optional<uint16_t> namedKeyCode(std::string_view name);

// A lower-case key name to its code: letterDigitMap first, then the named keys.
// There are no function, punctuation or keypad keys.
std::optional<uint16_t> keyCode(std::string_view name);

// The event flag of a modifier word (cmd, shift, opt, ctrl, fn and their
// synonyms); none for a word that is no modifier.
std::optional<uint64_t> modifierFlag(std::string_view word);

// A chord such as "cmd+shift+a", taken apart: the last piece is the key, the
// pieces before it are modifier words whose flags are combined. Unknown modifier
// words add nothing.
struct Chord {
    std::string key;     // lower-cased
    uint64_t flags = 0;  // combined CGEventFlags of the modifier words

    friend bool operator==(const Chord&, const Chord&) = default;
};

// Lower-cases the text and splits it at every "+", dropping empty pieces, so a
// doubled or trailing "+" is ignored and "+" itself cannot be a key. None when no
// piece remains.
std::optional<Chord> parseChord(std::string_view text);

}  // namespace velmora::native
