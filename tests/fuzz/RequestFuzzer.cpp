// libFuzzer entry: every input is one request on the agent's standard input.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "tests/fuzz/RequestRoundTrip.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto outcome = velmora::fuzz::checkRequestRoundTrip(
        std::string_view(reinterpret_cast<const char*>(data), size));
    // Inputs the mock cannot run teach the fuzzer nothing worth keeping.
    return outcome == velmora::fuzz::RoundTrip::skipped ? -1 : 0;
}
