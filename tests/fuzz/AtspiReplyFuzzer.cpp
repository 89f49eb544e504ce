// libFuzzer target: the bytes an application on the accessibility bus could
// send the agent, through the D-Bus message reader, the reply parser and the
// record answers above them (AtspiReplyChecks.h).

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "tests/fuzz/AtspiReplyChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    velmora::fuzz::checkAtspiReplies(std::string_view(reinterpret_cast<const char*>(data), size));
    return 0;
}
