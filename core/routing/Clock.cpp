#include "core/routing/Clock.h"

#include <uuid/uuid.h>

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <utility>

namespace velmora {

int64_t Clock::Counter::next() {
    std::lock_guard<std::mutex> guard(lock_);
    if (value_ == std::numeric_limits<int64_t>::max()) {
        // Handing out a number twice would break the uniqueness every receipt relies on.
        std::fputs("velmora: identifier counter overflowed\n", stderr);
        std::abort();
    }
    return ++value_;
}

Clock Clock::system() {
    return Clock{
        [] { return std::chrono::system_clock::now(); },
        [] {
            uuid_t uuid;
            uuid_generate_random(uuid);
            char text[37];
            uuid_unparse_upper(uuid, text);
            return std::string(text);
        },
    };
}

Clock Clock::fixed(TimePoint date, std::string idPrefix) {
    auto counter = std::make_shared<Counter>();
    return Clock{
        [date] { return date; },
        [counter, prefix = std::move(idPrefix)] {
            return prefix + "-" + std::to_string(counter->next());
        },
    };
}

}  // namespace velmora
