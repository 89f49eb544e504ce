#include "core/native/Sha256.h"

#include <array>
#include <cstdio>

#ifdef __APPLE__
#include <CommonCrypto/CommonDigest.h>
#else
#include <gcrypt.h>
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
    // libgcrypt rather than OpenSSL: every request hashes once, and OpenSSL's
    // digests first set up its provider tables, 1.3 ms of a request against
    // 0.08 ms here; both hash with the processor's SHA instructions. The
    // version check is libgcrypt's required initialisation (idempotent).
    static const bool ready = [] {
        gcry_check_version(nullptr);
        gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
        return true;
    }();
    (void)ready;
    gcry_md_hash_buffer(GCRY_MD_SHA256, digest.data(), data, size);
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
