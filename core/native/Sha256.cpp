#include "core/native/Sha256.h"

#include <array>
#include <cstdio>

#ifdef __APPLE__
#include <CommonCrypto/CommonDigest.h>
#else
#include <openssl/crypto.h>
#include <openssl/evp.h>
#endif

namespace velmora::native {

std::string sha256Hex(const uint8_t* data, size_t size) {
    std::array<unsigned char, 32> digest{};
#ifdef __APPLE__
    CC_SHA256_CTX context;
    CC_SHA256_Init(&context);
    // CC_LONG is 32 bits: feed larger files in pieces.
    constexpr size_t kPiece = size_t{1} << 30;
    for (size_t offset = 0; offset < size; offset += kPiece) {
        size_t piece = size - offset < kPiece ? size - offset : kPiece;
        CC_SHA256_Update(&context, data + offset, static_cast<CC_LONG>(piece));
    }
    CC_SHA256_Final(digest.data(), &context);
#else
    // A digest needs nothing from the system's OpenSSL configuration, and
    // reading it would add a third of a millisecond to every request.
    OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr);
    unsigned int length = 0;
    EVP_Digest(data, size, digest.data(), &length, EVP_sha256(), nullptr);
#endif
    std::string text;
    text.reserve(64);
    for (unsigned char byte : digest) {
        std::array<char, 3> hex{};
        std::snprintf(hex.data(), hex.size(), "%02x", byte);
        text += hex.data();
    }
    return text;
}

}  // namespace velmora::native
