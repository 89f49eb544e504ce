// The fuzzer's seeds, replayed through the same checks in every build: each seed
// is a valid request, so each must decode and run, not be skipped.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "core/model/Json.h"
#include "tests/fuzz/RequestRoundTrip.h"

namespace velmora {
namespace {

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

TEST(FuzzCorpusTest, EverySeedIsAValidRequestThatRoundTrips) {
    size_t seeds = 0;
    for (const auto& entry : std::filesystem::directory_iterator(VELMORA_FUZZ_CORPUS)) {
        std::string text = readFile(entry.path());
        SCOPED_TRACE(entry.path().filename().string());
        EXPECT_NO_THROW(decodeRequestText(text));
        EXPECT_EQ(fuzz::checkRequestRoundTrip(text), fuzz::RoundTrip::checked);
        ++seeds;
    }
    EXPECT_GE(seeds, 10u);
}

TEST(FuzzCorpusTest, UndecodableInputIsCheckedToo) {
    for (std::string text : {"", " \n", "[]", "{", "\xef\xbb\xbf", "{\"sessionId\":1e400}",
                             "{\"sessionId\":\"\xff\"}"}) {
        EXPECT_EQ(fuzz::checkRequestRoundTrip(text), fuzz::RoundTrip::checked) << text;
    }
}

TEST(FuzzCorpusTest, NegativeSelectorIndexesAreSkippedBeforeTheMockSeesThem) {
    std::string request =
        R"({"sessionId":"s","seatLease":"L","targetBundleId":"org.example.editor",)"
        R"("actions":[{"kind":"query","selector":{"index":-1}}]})";
    EXPECT_EQ(fuzz::checkRequestRoundTrip(request), fuzz::RoundTrip::skipped);
}

}  // namespace
}  // namespace velmora
