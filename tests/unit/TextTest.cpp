#include "core/text/Text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/text/Utf8.h"

namespace velmora {
namespace {

// "é" written as one code point, and as "e" followed by a combining acute accent.
const std::string kPrecomposed = "\u00E9";
const std::string kDecomposed = "e\u0301";

// The whitespace set: the tab and every Unicode space separator (Zs).

TEST(TextTest, TheWhitespaceSetIsTheSpaceSeparatorsAndTheTab) {
    for (char32_t c : {U' ', U'\t', U'\u00A0', U'\u1680', U'\u2000', U'\u2002', U'\u2003',
                       U'\u2009', U'\u200A', U'\u202F', U'\u205F', U'\u3000'}) {
        EXPECT_TRUE(isWhitespace(c)) << static_cast<uint32_t>(c);
    }
    // Newlines, the line and paragraph separators, format characters and other
    // controls are not whitespace.
    for (char32_t c : {U'\n', U'\r', U'\v', U'\f', U'\u0085', U'\u2028', U'\u2029', U'\u200B',
                       U'\u200D', U'\u2060', U'\uFEFF', U'\u180E', U'\0', U'a'}) {
        EXPECT_FALSE(isWhitespace(c)) << static_cast<uint32_t>(c);
    }
}

TEST(TextTest, TrimmingRemovesEverySpaceSeparatorAtBothEnds) {
    EXPECT_EQ(trimmedOfWhitespace("\u00A0lease\u00A0"), "lease");          // no-break space
    EXPECT_EQ(trimmedOfWhitespace("\u202Flease\u202F"), "lease");          // narrow no-break
    EXPECT_EQ(trimmedOfWhitespace("\u2003lease\u2003"), "lease");          // em space
    EXPECT_EQ(trimmedOfWhitespace("\u3000lease\u3000"), "lease");          // ideographic space
    EXPECT_EQ(trimmedOfWhitespace(" \t\u00A0\u3000a b\u2003\t "), "a b");  // a mixture
    EXPECT_EQ(trimmedOfWhitespace("\u00A0\u202F\u2003\u3000"), "");
    EXPECT_EQ(trimmedOfWhitespace("a\u00A0\u3000b"), "a\u00A0\u3000b");  // inside: kept
}

TEST(TextTest, TrimmingKeepsNewlinesAndFormatCharacters) {
    EXPECT_EQ(trimmedOfWhitespace("\u200B"), "\u200B");  // zero-width space
    EXPECT_EQ(trimmedOfWhitespace(" \u200Bx\u200B "), "\u200Bx\u200B");
    EXPECT_EQ(trimmedOfWhitespace("\u0085"), "\u0085");  // next line
    EXPECT_EQ(trimmedOfWhitespace("\n"), "\n");          // line feed
    EXPECT_EQ(trimmedOfWhitespace(" \nx\r\n "), "\nx\r\n");
    EXPECT_EQ(trimmedOfWhitespace("\u2028x\u2029"), "\u2028x\u2029");
}

TEST(TextTest, TrimmingStopsAtIllFormedBytes) {
    EXPECT_EQ(trimmedOfWhitespace(" \xFF "), "\xFF");
    EXPECT_EQ(trimmedOfWhitespace("\u00A0\xC2"), "\xC2");  // a cut-off no-break space
}

// Lower-casing

TEST(TextTest, LowerCasingIsFullUnicodeLowerCasing) {
    EXPECT_EQ(lowercased("SAVE As"), "save as");
    EXPECT_EQ(lowercased("ÄÖÜ ÀÉÎ"), "äöü àéî");
    EXPECT_EQ(lowercased("ΑΒΓ"), "αβγ");
    EXPECT_EQ(lowercased("\u0130"), "i\u0307");  // İ becomes two code points
    EXPECT_EQ(lowercased("E\u0301"), "e\u0301");
    EXPECT_EQ(lowercased("bad\xFF"), "bad\xFF");  // ill-formed: kept as it is
}

// Canonical equivalence

TEST(TextTest, CanonicallyEquivalentTextsAreTheSameText) {
    EXPECT_TRUE(sameText(kPrecomposed, kDecomposed));
    EXPECT_TRUE(sameText(kDecomposed, kPrecomposed));
    EXPECT_TRUE(sameText("Caf" + kPrecomposed, "Caf" + kDecomposed));
    // Å as the letter, as the Angstrom sign and decomposed.
    EXPECT_TRUE(sameText("\u00C5", "\u212B"));
    EXPECT_TRUE(sameText("\u00C5", "A\u030A"));
    // Marks of different classes in either order.
    EXPECT_TRUE(sameText("a\u0323\u0301", "a\u0301\u0323"));
    // The Kelvin sign is the letter K.
    EXPECT_TRUE(sameText("\u212A", "K"));
    EXPECT_TRUE(sameText("plain", "plain"));
    EXPECT_TRUE(sameText("", ""));
}

TEST(TextTest, DifferentTextsStayDifferent) {
    EXPECT_FALSE(sameText(kPrecomposed, "e"));
    EXPECT_FALSE(sameText(kDecomposed, "e"));
    EXPECT_FALSE(sameText("OK", "ok"));  // no case folding
    EXPECT_FALSE(sameText("a\u0301\u0301", "a\u0301"));
    EXPECT_FALSE(sameText("ﬁ", "fi"));  // compatibility, not canonical, equivalence
    EXPECT_FALSE(sameText("x", ""));
    EXPECT_FALSE(sameText("\xFF", "\xFE"));
}

TEST(TextTest, TheSubstringSearchMatchesCanonicallyEquivalentForms) {
    EXPECT_FALSE(containsText("Caf" + kPrecomposed + " au lait", "caf" + kDecomposed));
    EXPECT_TRUE(containsText("Caf" + kPrecomposed + " au lait", "Caf" + kDecomposed));
    EXPECT_TRUE(containsText("Caf" + kDecomposed + " au lait", "Caf" + kPrecomposed));
    EXPECT_TRUE(containsText("Caf" + kDecomposed, kPrecomposed));
    EXPECT_TRUE(containsText("Caf" + kPrecomposed, kDecomposed));
    EXPECT_TRUE(containsText("\u212B ngstr\u00F6m", "A\u030A"));
}

TEST(TextTest, AMatchNeverEndsInsideACharacter) {
    // "e" is not found in "é", whichever way either is written.
    EXPECT_FALSE(containsText(kPrecomposed, "e"));
    EXPECT_FALSE(containsText(kDecomposed, "e"));
    EXPECT_FALSE(containsText("Caf" + kDecomposed, "Cafe"));
    EXPECT_TRUE(containsText("Caf" + kDecomposed + "e", "e"));
    // A match may end before a character that merely follows.
    EXPECT_TRUE(containsText("Cafe\u0301s", "Caf"));
    // ASCII is searched as it always was, a carriage return before a line feed
    // included.
    EXPECT_TRUE(containsText("a\r\nb", "a\r"));
    EXPECT_TRUE(containsText("Save As", "Save"));
    EXPECT_FALSE(containsText("Save As", "save"));
}

TEST(TextTest, AnEmptyNeedleIsNeverFound) {
    EXPECT_FALSE(containsText("anything", ""));
    EXPECT_FALSE(containsText("", ""));
    EXPECT_FALSE(containsFolded(kDecomposed, ""));
}

TEST(TextTest, FoldedSearchLowerCasesBothSidesThenMatchesCanonically) {
    EXPECT_TRUE(containsFolded("CAF\u00C9", "caf" + kDecomposed));  // É precomposed
    EXPECT_TRUE(containsFolded("CAFE\u0301", "caf\u00E9"));         // É decomposed
    EXPECT_TRUE(containsFolded("Save As", "save"));
    EXPECT_FALSE(containsFolded("CAF\u00C9", "cafe"));
}

// Characters

TEST(TextTest, UserCharactersKeepMarksWithTheirBase) {
    EXPECT_EQ(userCharacters("e\u0301x"), (std::vector<std::u16string>{u"e\u0301", u"x"}));
    EXPECT_EQ(userCharacters("\U0001F600!"), (std::vector<std::u16string>{u"\U0001F600", u"!"}));
    EXPECT_EQ(userCharacters(""), std::vector<std::u16string>{});
    EXPECT_EQ(userCharacters("a\xFF"), (std::vector<std::u16string>{u"a", u"\uFFFD"}));
}

// UTF-8 by hand

TEST(TextTest, IllFormedUtf8IsReadByMaximalSubparts) {
    EXPECT_EQ(wellFormedUtf8("a\xE2\x28"
                             "b"),
              "a\uFFFD(b");
    EXPECT_EQ(wellFormedUtf8("\xC0\x80"), "\uFFFD\uFFFD");                      // overlong
    EXPECT_EQ(wellFormedUtf8("\xED\xA0\x80"), "\uFFFD\uFFFD\uFFFD");            // a surrogate
    EXPECT_EQ(wellFormedUtf8("\xF0\x9F\x98"), "\uFFFD");                        // cut off
    EXPECT_EQ(wellFormedUtf8("\xF4\x90\x80\x80"), "\uFFFD\uFFFD\uFFFD\uFFFD");  // > U+10FFFF
    EXPECT_EQ(wellFormedUtf8("ok \U0001F600"), "ok \U0001F600");
    EXPECT_TRUE(isWellFormedUtf8("\u00E9\U0001F600"));
    EXPECT_FALSE(isWellFormedUtf8("\xE9"));
}

}  // namespace
}  // namespace velmora
