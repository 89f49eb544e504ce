#include "core/routing/ApprovedAppPolicy.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace velmora {
namespace {

using Strings = std::vector<std::string>;

TEST(ApprovedAppPolicyTest, NothingApprovedRefusesEverything) {
    ApprovedAppPolicy policy({}, {});
    EXPECT_FALSE(policy.isAllowed("com.example.editor"));
    EXPECT_FALSE(policy.isAllowed("com.example.editor", "Editor"));
    EXPECT_FALSE(policy.isAllowed(""));
}

TEST(ApprovedAppPolicyTest, ApprovedSubstringInAnotherCaseAllows) {
    ApprovedAppPolicy policy({"EXAMPLE.Editor"}, {});
    EXPECT_TRUE(policy.isAllowed("com.example.editor"));
}

TEST(ApprovedAppPolicyTest, WholeIdentifierAndFragmentsMatch) {
    EXPECT_TRUE(ApprovedAppPolicy({"com.example.editor"}, {}).isAllowed("com.example.editor"));
    EXPECT_TRUE(ApprovedAppPolicy({"editor"}, {}).isAllowed("com.example.editor"));
    EXPECT_TRUE(ApprovedAppPolicy({"editor"}, {}).isAllowed("org.other.editorpro"));
    EXPECT_FALSE(ApprovedAppPolicy({"com.example.editor.pro"}, {}).isAllowed("com.example.editor"));
}

TEST(ApprovedAppPolicyTest, NoWildcards) {
    EXPECT_FALSE(ApprovedAppPolicy({"com.*"}, {}).isAllowed("com.example.editor"));
    EXPECT_TRUE(ApprovedAppPolicy({"com.*"}, {}).isAllowed("com.*weird"));
    // A dot is an ordinary character, not "any character".
    EXPECT_FALSE(ApprovedAppPolicy({"comxexample"}, {}).isAllowed("com.example"));
    EXPECT_FALSE(ApprovedAppPolicy({"com.example"}, {}).isAllowed("comxexample"));
}

TEST(ApprovedAppPolicyTest, DenialWins) {
    ApprovedAppPolicy policy({"com.example.editor"}, {"com.example.editor"});
    EXPECT_FALSE(policy.isAllowed("com.example.editor"));
}

TEST(ApprovedAppPolicyTest, DenialByAppNameWinsOverApprovalByIdentifier) {
    ApprovedAppPolicy policy({"com.example.editor"}, {"secret"});
    EXPECT_FALSE(policy.isAllowed("com.example.editor", "Top Secret Editor"));
    EXPECT_TRUE(policy.isAllowed("com.example.editor", "Editor"));
    EXPECT_TRUE(policy.isAllowed("com.example.editor"));
}

TEST(ApprovedAppPolicyTest, ApprovalByAppNameAllows) {
    ApprovedAppPolicy policy({"Calculator"}, {});
    EXPECT_TRUE(policy.isAllowed("org.gnome.calc", "calculator"));
    EXPECT_FALSE(policy.isAllowed("org.gnome.calc"));
}

TEST(ApprovedAppPolicyTest, EmptyAppNameNeverMatches) {
    // A denied pattern that only an empty name could contain must not refuse.
    ApprovedAppPolicy policy({"editor"}, {"zzz"});
    EXPECT_TRUE(policy.isAllowed("com.example.editor", ""));
    EXPECT_TRUE(policy.isAllowed("com.example.editor", std::nullopt));
}

TEST(ApprovedAppPolicyTest, NonAsciiPatternsFoldCase) {
    ApprovedAppPolicy policy({"ÉDITEUR"}, {});
    EXPECT_TRUE(policy.isAllowed("com.example.éditeur"));
}

TEST(ApprovedAppPolicyTest, BlankApprovedEntriesAreDroppedAndRefuseEverything) {
    ApprovedAppPolicy policy({" ", "\t", "  \t "}, {});
    EXPECT_TRUE(policy.approved().empty());
    EXPECT_FALSE(policy.isAllowed("com.example.editor"));
    EXPECT_FALSE(policy.isAllowed(" "));
}

TEST(ApprovedAppPolicyTest, EntriesAreTrimmedOfSpacesAndTabsOnlyAndKeepCase) {
    ApprovedAppPolicy policy({"  Com.Example \t", "", "x"}, {"\tBad ", " "});
    EXPECT_EQ(policy.approved(), (Strings{"Com.Example", "x"}));
    EXPECT_EQ(policy.denied(), (Strings{"Bad"}));
    ApprovedAppPolicy withNewline({"\nEditor\n"}, {});
    EXPECT_EQ(withNewline.approved(), (Strings{"\nEditor\n"}));
    // The newline stays part of the pattern, so it no longer matches the plain name.
    EXPECT_FALSE(withNewline.isAllowed("com.example.editor"));
}

TEST(ApprovedAppPolicyTest, TrimmedPatternMatches) {
    EXPECT_TRUE(ApprovedAppPolicy({"  com.example.editor  "}, {}).isAllowed("com.example.editor"));
    EXPECT_FALSE(ApprovedAppPolicy({"com.example.editor"}, {" \tcom.example "})
                     .isAllowed("com.example.editor"));
}

TEST(ApprovedAppPolicyTest, ParseListDropsEmptyPiecesAndTrims) {
    EXPECT_EQ(ApprovedAppPolicy::parseList(std::string(" com.a ,, \tcom.b\t,,  , com.c")),
              (Strings{"com.a", "com.b", "com.c"}));
    EXPECT_EQ(ApprovedAppPolicy::parseList(std::string(",,,")), Strings{});
    EXPECT_EQ(ApprovedAppPolicy::parseList(std::string("")), Strings{});
    EXPECT_EQ(ApprovedAppPolicy::parseList(std::string("solo")), (Strings{"solo"}));
    EXPECT_EQ(ApprovedAppPolicy::parseList(std::string("a,b,")), (Strings{"a", "b"}));
}

TEST(ApprovedAppPolicyTest, ParseListOfAbsentTextIsEmpty) {
    EXPECT_EQ(ApprovedAppPolicy::parseList(std::nullopt), Strings{});
}

TEST(ApprovedAppPolicyTest, ParseListKeepsNewlinesAndInnerSpaces) {
    EXPECT_EQ(ApprovedAppPolicy::parseList(std::string("My App ,\nx\n")),
              (Strings{"My App", "\nx\n"}));
}

// The whitespace set is every Unicode space separator and the tab.

TEST(ApprovedAppPolicyTest, ADeniedEntryWithATrailingEmSpaceIsStillDenied) {
    ApprovedAppPolicy policy({"com.example.editor"}, {"com.example.editor\u2003"});
    EXPECT_EQ(policy.denied(), (Strings{"com.example.editor"}));
    EXPECT_FALSE(policy.isAllowed("com.example.editor"));
}

TEST(ApprovedAppPolicyTest, EverySpaceSeparatorIsTrimmedFromEntries) {
    ApprovedAppPolicy policy({"\u00A0com.a\u00A0", "\u202Fcom.b\u3000", "\u3000\u2003com.c\t"},
                             {"\u2009secret\u205F"});
    EXPECT_EQ(policy.approved(), (Strings{"com.a", "com.b", "com.c"}));
    EXPECT_EQ(policy.denied(), (Strings{"secret"}));
    EXPECT_TRUE(policy.isAllowed("com.b"));
    EXPECT_FALSE(policy.isAllowed("com.c.secret"));
}

TEST(ApprovedAppPolicyTest, AnApprovalListOfOnlySpaceSeparatorsRefusesEverything) {
    ApprovedAppPolicy policy({"\u00A0", "\u202F\u3000", "\u2003 \t"}, {});
    EXPECT_TRUE(policy.approved().empty());
    EXPECT_FALSE(policy.isAllowed("com.example.editor", "Editor"));
}

TEST(ApprovedAppPolicyTest, ZeroWidthSpacesNewlinesAndNextLinesAreKept) {
    ApprovedAppPolicy policy({"\u200Bcom.a", "com.b\u0085", "\ncom.c"}, {"\u200B"});
    EXPECT_EQ(policy.approved(), (Strings{"\u200Bcom.a", "com.b\u0085", "\ncom.c"}));
    EXPECT_EQ(policy.denied(), (Strings{"\u200B"}));
    EXPECT_FALSE(policy.isAllowed("com.a"));
    EXPECT_FALSE(policy.isAllowed("com.b"));
    EXPECT_FALSE(policy.isAllowed("com.c"));
}

TEST(ApprovedAppPolicyTest, ParseListTrimsTheWholeWhitespaceSet) {
    EXPECT_EQ(ApprovedAppPolicy::parseList(std::string("\u3000com.a\u00A0,\u2003,\u202Fcom.b")),
              (Strings{"com.a", "com.b"}));
    EXPECT_EQ(ApprovedAppPolicy::parseList(std::string("\u200B,\u0085, \n ")),
              (Strings{"\u200B", "\u0085", "\n"}));
}

// Matching is the platform's substring search: canonically equivalent spellings match.

TEST(ApprovedAppPolicyTest, NamesMatchInEitherCanonicalForm) {
    // "Café" with "é" as one code point, and as "e" and a combining accent.
    const std::string precomposed = "Caf\u00E9";
    const std::string decomposed = "Cafe\u0301";
    EXPECT_TRUE(ApprovedAppPolicy({decomposed}, {}).isAllowed("org.example.menu", precomposed));
    EXPECT_TRUE(ApprovedAppPolicy({"CAF\u00C9"}, {}).isAllowed("org.example.menu", decomposed));
    EXPECT_FALSE(ApprovedAppPolicy({"menu"}, {precomposed})
                     .isAllowed("org.example.menu", decomposed + " Menu"));
    EXPECT_FALSE(ApprovedAppPolicy({"menu"}, {decomposed})
                     .isAllowed("org.example.menu", precomposed + " Menu"));
    // Without its accent the name is another name.
    EXPECT_FALSE(ApprovedAppPolicy({"cafe"}, {}).isAllowed("org.example.menu", precomposed));
    EXPECT_FALSE(ApprovedAppPolicy({"cafe"}, {}).isAllowed("org.example.menu", decomposed));
}

}  // namespace
}  // namespace velmora
