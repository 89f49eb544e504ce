#include "core/native/Fatal.h"

#include <cstdio>
#include <cstdlib>
#include <limits>

namespace velmora::native {

void fatalError(const char* message) {
    std::fprintf(stderr, "fatal error: %s\n", message);
    std::fflush(stderr);
    std::abort();
}

int32_t checkedInt32(int64_t value, const char* what) {
    if (value < std::numeric_limits<int32_t>::min() ||
        value > std::numeric_limits<int32_t>::max()) {
        std::fprintf(stderr, "fatal error: %s %lld does not fit in 32 bits\n", what,
                     static_cast<long long>(value));
        std::fflush(stderr);
        std::abort();
    }
    return static_cast<int32_t>(value);
}

}  // namespace velmora::native
