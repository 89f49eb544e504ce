// The AT-SPI reply fuzzer's seeds, replayed through its checks in every Linux
// build. The seeds are answers recorded from real applications, so each must be
// one whole message that reads as an answer (or is an error reply).

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "core/native/linux/atspi/DBusMessageReader.h"
#include "tests/fuzz/AtspiReplyChecks.h"

namespace velmora {
namespace {

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

TEST(AtspiCorpusTest, EverySeedIsOneRealAnswer) {
    size_t seeds = 0;
    size_t errors = 0;
    for (const auto& entry : std::filesystem::directory_iterator(VELMORA_ATSPI_CORPUS)) {
        const std::string bytes = readFile(entry.path());
        SCOPED_TRACE(entry.path().filename().string());
        EXPECT_EQ(native::freedesktop::dbusMessageLength(bytes),
                  static_cast<int64_t>(bytes.size()));
        const auto statistics = fuzz::checkAtspiReplies(bytes);
        EXPECT_EQ(statistics.messages, 1u);
        EXPECT_GE(statistics.answers + statistics.errors, 1u);
        errors += statistics.errors;
        ++seeds;
    }
    EXPECT_GE(seeds, 50u);
    EXPECT_GE(errors, 1u);  // an application's refusals are answers too
}

TEST(AtspiCorpusTest, SeedsTogetherAreOneStream) {
    std::string stream;
    size_t seeds = 0;
    for (const auto& entry : std::filesystem::directory_iterator(VELMORA_ATSPI_CORPUS)) {
        stream += readFile(entry.path());
        ++seeds;
    }
    EXPECT_EQ(fuzz::checkAtspiReplies(stream).messages, seeds);
}

}  // namespace
}  // namespace velmora
