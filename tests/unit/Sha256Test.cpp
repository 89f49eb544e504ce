#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/native/Sha256.h"

namespace velmora::native {
namespace {

std::string digestOf(const std::string& text) {
    return sha256Hex(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

// The test vectors of FIPS 180-2: one block, two blocks, and a million bytes.
TEST(Sha256Test, MatchesTheStandardsVectors) {
    EXPECT_EQ(digestOf(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(digestOf("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(digestOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(digestOf(std::string(1000000, 'a')),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

// Hashing twice in one process gives the same digest: the library's one-time
// set-up does not change what later calls compute.
TEST(Sha256Test, RepeatedDigestsAgree) {
    std::vector<uint8_t> bytes(70000);
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<uint8_t>(i * 31 + 7);
    }
    const std::string first = sha256Hex(bytes.data(), bytes.size());
    EXPECT_EQ(first.size(), 64u);
    EXPECT_EQ(sha256Hex(bytes.data(), bytes.size()), first);
    EXPECT_NE(sha256Hex(bytes.data(), bytes.size() - 1), first);
}

}  // namespace
}  // namespace velmora::native
