#include "core/native/KeyCodes.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

namespace velmora::native {
namespace {

TEST(KeyCodesTest, LetterDigitMapHoldsTheAnsiPositions) {
    const std::map<std::string, uint16_t> expected = {
        {"a", 0},  {"s", 1},  {"d", 2},  {"f", 3},  {"h", 4},  {"g", 5},  {"z", 6},  {"x", 7},
        {"c", 8},  {"v", 9},  {"b", 11}, {"q", 12}, {"w", 13}, {"e", 14}, {"r", 15}, {"y", 16},
        {"t", 17}, {"1", 18}, {"2", 19}, {"3", 20}, {"4", 21}, {"6", 22}, {"5", 23}, {"9", 25},
        {"7", 26}, {"8", 28}, {"0", 29}, {"o", 31}, {"u", 32}, {"i", 34}, {"p", 35}, {"l", 37},
        {"j", 38}, {"k", 40}, {"n", 45}, {"m", 46},
    };
    EXPECT_EQ(letterDigitMap().size(), 36u);
    EXPECT_EQ(letterDigitMap(), expected);
}

TEST(KeyCodesTest, LetterDigitMapIsBuiltOnceEvenUnderConcurrentFirstUse) {
    std::vector<const void*> seen(8, nullptr);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < seen.size(); ++i) {
        threads.emplace_back([&seen, i] { seen[i] = &letterDigitMap(); });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(std::set<const void*>(seen.begin(), seen.end()).size(), 1u);
    EXPECT_EQ(letterDigitMap().size(), 36u);
}

TEST(KeyCodesTest, NamedKeysAndTheirSynonyms) {
    const std::vector<std::pair<std::string, uint16_t>> named = {
        {"return", 36},         {"enter", 36},     {"tab", 48},     {"space", 49},
        {"delete", 51},         {"backspace", 51}, {"escape", 53},  {"esc", 53},
        {"left", 123},          {"right", 124},    {"down", 125},   {"up", 126},
        {"home", 115},          {"end", 119},      {"pageup", 116}, {"pagedown", 121},
        {"forwarddelete", 117},
    };
    for (const auto& [name, code] : named) {
        EXPECT_EQ(namedKeyCode(name), code) << name;
        EXPECT_EQ(keyCode(name), code) << name;
    }
}

TEST(KeyCodesTest, LettersAndDigitsComeFromTheMap) {
    EXPECT_EQ(keyCode("a"), 0);
    EXPECT_EQ(keyCode("c"), 8);
    EXPECT_EQ(keyCode("0"), 29);
    EXPECT_EQ(keyCode("m"), 46);
    EXPECT_EQ(namedKeyCode("a"), std::nullopt);
}

TEST(KeyCodesTest, NoFunctionPunctuationKeypadOrUpperCaseNames) {
    for (const char* name :
         {"f5", "f1", "+", "-", ",", "kp1", "", "A", "Return", "cmd", "shift", "pgup", "del"}) {
        EXPECT_EQ(keyCode(name), std::nullopt) << name;
    }
}

TEST(KeyCodesTest, ModifierWordsAndTheirFlags) {
    EXPECT_EQ(modifierFlag("cmd"), 0x100000u);
    EXPECT_EQ(modifierFlag("command"), 0x100000u);
    EXPECT_EQ(modifierFlag("meta"), 0x100000u);
    EXPECT_EQ(modifierFlag("shift"), 0x20000u);
    EXPECT_EQ(modifierFlag("opt"), 0x80000u);
    EXPECT_EQ(modifierFlag("option"), 0x80000u);
    EXPECT_EQ(modifierFlag("alt"), 0x80000u);
    EXPECT_EQ(modifierFlag("ctrl"), 0x40000u);
    EXPECT_EQ(modifierFlag("control"), 0x40000u);
    EXPECT_EQ(modifierFlag("fn"), 0x800000u);
    EXPECT_EQ(modifierFlag("hyper"), std::nullopt);
    EXPECT_EQ(modifierFlag("super"), std::nullopt);
    EXPECT_EQ(modifierFlag("Cmd"), std::nullopt);
}

TEST(KeyCodesTest, ChordIsLowerCasedWithModifiersCombined) {
    EXPECT_EQ(parseChord("CMD+Shift+A"), (Chord{"a", 0x120000}));
    EXPECT_EQ(parseChord("ctrl+opt+cmd+fn+shift+left"), (Chord{"left", 0x9E0000}));
    EXPECT_EQ(parseChord("cmd+command+a"), (Chord{"a", 0x100000}));
}

TEST(KeyCodesTest, UnknownModifierWordsAreIgnored) {
    EXPECT_EQ(parseChord("ctrl+hyper+c"), (Chord{"c", 0x40000}));
    EXPECT_EQ(parseChord("hyper+c"), (Chord{"c", 0}));
}

TEST(KeyCodesTest, EmptyPiecesAreDropped) {
    EXPECT_EQ(parseChord("cmd++a"), (Chord{"a", 0x100000}));
    EXPECT_EQ(parseChord("+a"), (Chord{"a", 0}));
    EXPECT_EQ(parseChord("a+"), (Chord{"a", 0}));
    // A trailing separator leaves the modifier word as the key.
    EXPECT_EQ(parseChord("cmd+"), (Chord{"cmd", 0}));
}

TEST(KeyCodesTest, AChordOfOnlySeparatorsHasNoKey) {
    EXPECT_EQ(parseChord("+"), std::nullopt);
    EXPECT_EQ(parseChord("+++"), std::nullopt);
    EXPECT_EQ(parseChord(""), std::nullopt);
}

TEST(KeyCodesTest, ASingleKeyHasNoFlags) {
    EXPECT_EQ(parseChord("Return"), (Chord{"return", 0}));
    EXPECT_EQ(parseChord("F5"), (Chord{"f5", 0}));
}

TEST(KeyCodesTest, LowerCasingIsFullUnicode) {
    EXPECT_EQ(parseChord("CMD+\xC3\x84"), (Chord{"\xC3\xA4", 0x100000}));  // Ä -> ä
}

}  // namespace
}  // namespace velmora::native
