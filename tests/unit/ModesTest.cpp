#include "agent/Modes.h"

#include <gtest/gtest.h>

#include "core/model/Protocol.h"

#include <cstdio>

namespace velmora {
namespace {

std::string modeOf(std::initializer_list<const char*> arguments) {
    std::vector<const char*> argv{"velmora-agent"};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    return modeFromArguments(static_cast<int>(argv.size()), argv.data());
}

TEST(ModesTest, NoArgumentIsRun) {
    EXPECT_EQ(modeOf({}), "run");
}

TEST(ModesTest, EveryDoubleHyphenIsRemovedAnywhere) {
    EXPECT_EQ(modeOf({"--run"}), "run");
    EXPECT_EQ(modeOf({"run"}), "run");
    EXPECT_EQ(modeOf({"r--un"}), "run");
    EXPECT_EQ(modeOf({"--self--check"}), "selfcheck");
    EXPECT_EQ(modeOf({"--version--"}), "version");
    EXPECT_EQ(modeOf({"--"}), "");
    EXPECT_EQ(modeOf({"---"}), "-");
    EXPECT_EQ(modeOf({"----"}), "");
}

TEST(ModesTest, OnlyTheFirstArgumentCounts) {
    EXPECT_EQ(modeOf({"version", "register"}), "version");
    EXPECT_EQ(modeOf({"Version"}), "Version");
}

TEST(ModesTest, HealthFollowsAccessibilityAlone) {
    EXPECT_EQ(makeSelfCheck(true, false), (SelfCheck{kDriverBrokerProtocol, true, false, true}));
    EXPECT_EQ(makeSelfCheck(false, true), (SelfCheck{kDriverBrokerProtocol, false, true, false}));
    EXPECT_EQ(makeSelfCheck(true, true).healthy, true);
    EXPECT_EQ(makeSelfCheck(false, false).healthy, false);
}

TEST(ModesTest, ReadAllReadsToTheEnd) {
    std::string big(300000, 'x');
    big += "end";
    std::FILE* stream = fmemopen(big.data(), big.size(), "r");
    EXPECT_EQ(readAll(stream), big);
    std::fclose(stream);
}

}  // namespace
}  // namespace velmora
