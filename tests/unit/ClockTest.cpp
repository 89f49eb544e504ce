#include "core/routing/Clock.h"

#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <cstdint>
#include <limits>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "core/routing/Iso8601.h"

namespace velmora {
namespace {

using namespace std::chrono;
using namespace std::chrono_literals;

system_clock::time_point at(int y, unsigned m, unsigned d, hours h, minutes min, seconds s) {
    return system_clock::time_point(sys_days{year{y} / month{m} / day{d}} + h + min + s);
}

TEST(ClockTest, FixedClockCountsFromOneAndKeepsItsDate) {
    auto date = at(2026, 11, 16, 3h, 4min, 5s);
    Clock clock = Clock::fixed(date, "t");
    EXPECT_EQ(clock.newId(), "t-1");
    EXPECT_EQ(clock.now(), date);
    EXPECT_EQ(clock.newId(), "t-2");
    EXPECT_EQ(clock.now(), date);
    EXPECT_EQ(clock.newId(), "t-3");
    EXPECT_EQ(clock.now(), date);
}

TEST(ClockTest, EachFixedClockHasItsOwnCounter) {
    auto date = at(2026, 1, 1, 0h, 0min, 0s);
    Clock first = Clock::fixed(date, "same");
    Clock second = Clock::fixed(date, "same");
    EXPECT_EQ(first.newId(), "same-1");
    EXPECT_EQ(first.newId(), "same-2");
    EXPECT_EQ(second.newId(), "same-1");
    EXPECT_EQ(first.newId(), "same-3");
    EXPECT_EQ(second.newId(), "same-2");
}

TEST(ClockTest, CopiesOfAFixedClockShareTheCounter) {
    Clock original = Clock::fixed(at(2026, 1, 1, 0h, 0min, 0s), "p");
    Clock copy = original;
    EXPECT_EQ(original.newId(), "p-1");
    EXPECT_EQ(copy.newId(), "p-2");
    EXPECT_EQ(original.newId(), "p-3");
}

TEST(ClockTest, EmptyPrefixStillHasTheDash) {
    Clock clock = Clock::fixed(at(2026, 1, 1, 0h, 0min, 0s), "");
    EXPECT_EQ(clock.newId(), "-1");
}

TEST(ClockTest, SystemIdsAreDistinctUpperCaseUuids) {
    Clock clock = Clock::system();
    std::string first = clock.newId();
    std::string second = clock.newId();
    EXPECT_NE(first, second);
    for (const std::string& id : {first, second}) {
        ASSERT_EQ(id.size(), 36u) << id;
        for (size_t i = 0; i < id.size(); ++i) {
            if (i == 8 || i == 13 || i == 18 || i == 23) {
                EXPECT_EQ(id[i], '-') << id;
            } else {
                EXPECT_TRUE(std::isdigit(static_cast<unsigned char>(id[i])) ||
                            (id[i] >= 'A' && id[i] <= 'F'))
                    << id;
            }
        }
        // A random (version 4) UUID.
        EXPECT_EQ(id[14], '4') << id;
    }
}

TEST(ClockTest, SystemNowIsWallTime) {
    Clock clock = Clock::system();
    auto before = system_clock::now();
    auto seen = clock.now();
    auto after = system_clock::now();
    EXPECT_LE(before, seen);
    EXPECT_LE(seen, after);
}

TEST(ClockTest, CounterNeverHandsOutANumberTwiceAcrossThreads) {
    Clock clock = Clock::fixed(at(2026, 1, 1, 0h, 0min, 0s), "n");
    constexpr int kThreads = 4;
    constexpr int kPerThread = 500;
    std::vector<std::vector<std::string>> seen(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&clock, &seen, t] {
            for (int i = 0; i < kPerThread; ++i) {
                seen[t].push_back(clock.newId());
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::set<std::string> all;
    for (const auto& ids : seen) {
        all.insert(ids.begin(), ids.end());
    }
    EXPECT_EQ(all.size(), static_cast<size_t>(kThreads * kPerThread));
    EXPECT_EQ(all.count("n-1"), 1u);
    EXPECT_EQ(all.count("n-2000"), 1u);
    EXPECT_EQ(all.count("n-2001"), 0u);
}

TEST(ClockTest, CounterReachesTheLargestValue) {
    Clock::Counter counter(std::numeric_limits<int64_t>::max() - 1);
    EXPECT_EQ(counter.next(), std::numeric_limits<int64_t>::max());
}

TEST(ClockDeathTest, CounterOverflowIsFatal) {
    Clock::Counter counter(std::numeric_limits<int64_t>::max());
    EXPECT_DEATH(counter.next(), "counter overflowed");
}

TEST(Iso8601Test, RendersUtcWithWholeSeconds) {
    EXPECT_EQ(iso8601(at(2026, 11, 16, 3h, 4min, 5s)), "2026-11-16T03:04:05Z");
    EXPECT_EQ(iso8601(at(1999, 12, 31, 23h, 59min, 59s)), "1999-12-31T23:59:59Z");
}

TEST(Iso8601Test, DropsFractionsOfASecond) {
    EXPECT_EQ(iso8601(at(2026, 11, 16, 3h, 4min, 5s) + 999ms), "2026-11-16T03:04:05Z");
    EXPECT_EQ(iso8601(system_clock::time_point{} - 500ms), "1969-12-31T23:59:59Z");
}

TEST(Iso8601Test, RendersTheEpoch) {
    EXPECT_EQ(iso8601(system_clock::time_point{}), "1970-01-01T00:00:00Z");
}

TEST(Iso8601Test, FixedClockDateRendersAsGiven) {
    Clock clock = Clock::fixed(at(2024, 2, 29, 12h, 0min, 0s), "x");
    EXPECT_EQ(iso8601(clock.now()), "2024-02-29T12:00:00Z");
}

}  // namespace
}  // namespace velmora
