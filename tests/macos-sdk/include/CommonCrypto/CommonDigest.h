// CommonDigest.h, as far as the agent uses it: SHA-256.
#pragma once

#include <os/availability.h>
#include <stdint.h>

#if defined(__cplusplus)
extern "C" {
#endif

typedef uint32_t CC_LONG;

#define CC_SHA256_DIGEST_LENGTH 32
#define CC_SHA256_BLOCK_BYTES 64

typedef struct CC_SHA256state_st {
    CC_LONG count[2];
    CC_LONG hash[8];
    CC_LONG wbuf[16];
} CC_SHA256_CTX;

extern int CC_SHA256_Init(CC_SHA256_CTX* c) API_AVAILABLE(macos(10.4), ios(2.0));
extern int CC_SHA256_Update(CC_SHA256_CTX* c, const void* data, CC_LONG len)
    API_AVAILABLE(macos(10.4), ios(2.0));
extern int CC_SHA256_Final(unsigned char* md, CC_SHA256_CTX* c)
    API_AVAILABLE(macos(10.4), ios(2.0));

#if defined(__cplusplus)
}
#endif
