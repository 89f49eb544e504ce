#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace velmora {

// Where receipts get their timestamps and identifiers. The agent uses wall time
// and random identifiers; a replay pins time and counts, so that its receipts
// can be compared byte for byte.
struct Clock {
    using TimePoint = std::chrono::system_clock::time_point;

    std::function<TimePoint()> now;
    std::function<std::string()> newId;

    // Wall time, and a fresh random UUID in upper-case text (36 characters) per id.
    static Clock system();

    // `now` is always `date`; ids are idPrefix-1, idPrefix-2, ... Each call makes
    // its own counter; copies of the returned clock share it.
    static Clock fixed(TimePoint date, std::string idPrefix);

    // The number behind a fixed clock's ids, safe to share between threads.
    class Counter {
      public:
        // `last` is the number taken to be handed out already; a fresh counter starts at 0.
        explicit Counter(int64_t last = 0) : value_(last) {}

        // The next number: one more than the last one handed out, starting at 1.
        // Counting past the largest 64-bit value ends the process.
        int64_t next();

      private:
        int64_t value_ = 0;
        std::mutex lock_;
    };
};

}  // namespace velmora
