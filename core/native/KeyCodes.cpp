#include "core/native/KeyCodes.h"

#include <utility>
#include <vector>

#include "core/native/Platform.h"
#include "core/text/Text.h"

namespace velmora::native {

const std::map<std::string, uint16_t>& letterDigitMap() {
    // A function-local static is initialised exactly once, even under concurrent first use.
    static const std::map<std::string, uint16_t> map = {
        {"a", 0},  {"s", 1},  {"d", 2},  {"f", 3},  {"h", 4},  {"g", 5},  {"z", 6},  {"x", 7},
        {"c", 8},  {"v", 9},  {"b", 11}, {"q", 12}, {"w", 13}, {"e", 14}, {"r", 15}, {"y", 16},
        {"t", 17}, {"1", 18}, {"2", 19}, {"3", 20}, {"4", 21}, {"6", 22}, {"5", 23}, {"9", 25},
        {"7", 26}, {"8", 28}, {"0", 29}, {"o", 31}, {"u", 32}, {"i", 34}, {"p", 35}, {"l", 37},
        {"j", 38}, {"k", 40}, {"n", 45}, {"m", 46},
    };
    return map;
}

std::optional<uint16_t> namedKeyCode(std::string_view name) {
    static constexpr std::pair<std::string_view, uint16_t> kNamed[] = {
        {"return", 36},         {"enter", 36},     {"tab", 48},     {"space", 49},
        {"delete", 51},         {"backspace", 51}, {"escape", 53},  {"esc", 53},
        {"left", 123},          {"right", 124},    {"down", 125},   {"up", 126},
        {"home", 115},          {"end", 119},      {"pageup", 116}, {"pagedown", 121},
        {"forwarddelete", 117},
    };
    for (const auto& [named, code] : kNamed) {
        if (named == name) {
            return code;
        }
    }
    return std::nullopt;
}

std::optional<uint16_t> keyCode(std::string_view name) {
    const auto& letters = letterDigitMap();
    if (auto found = letters.find(std::string(name)); found != letters.end()) {
        return found->second;
    }
    return namedKeyCode(name);
}

std::optional<uint64_t> modifierFlag(std::string_view word) {
    if (word == "cmd" || word == "command" || word == "meta") {
        return kCGEventFlagMaskCommand;
    }
    if (word == "shift") {
        return kCGEventFlagMaskShift;
    }
    if (word == "opt" || word == "option" || word == "alt") {
        return kCGEventFlagMaskAlternate;
    }
    if (word == "ctrl" || word == "control") {
        return kCGEventFlagMaskControl;
    }
    if (word == "fn") {
        return kCGEventFlagMaskSecondaryFn;
    }
    return std::nullopt;
}

std::optional<Chord> parseChord(std::string_view text) {
    const std::string lower = lowercased(text);
    std::vector<std::string> pieces;
    size_t start = 0;
    while (start <= lower.size()) {
        size_t plus = lower.find('+', start);
        if (plus == std::string::npos) {
            plus = lower.size();
        }
        if (plus > start) {
            pieces.push_back(lower.substr(start, plus - start));
        }
        start = plus + 1;
    }
    if (pieces.empty()) {
        return std::nullopt;
    }
    Chord chord;
    chord.key = pieces.back();
    pieces.pop_back();
    for (const auto& word : pieces) {
        chord.flags |= modifierFlag(word).value_or(0);
    }
    return chord;
}

}  // namespace velmora::native
