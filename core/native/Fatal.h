#pragma once

#include <cstdint>

namespace velmora::native {

// Stops the process after a one-line message on standard error. For states the
// driver treats as programming errors rather than reportable failures.
[[noreturn]] void fatalError(const char* message);

// The value as a signed 32-bit integer; a value outside that range is fatal.
int32_t checkedInt32(int64_t value, const char* what);

}  // namespace velmora::native
