#pragma once

#include <chrono>
#include <string>

namespace velmora {

// An instant as an internet date-time in UTC with whole seconds, e.g.
// 2026-11-16T03:04:05Z. Fractions of a second are dropped (rounded down).
// Safe to call from any thread.
std::string iso8601(std::chrono::system_clock::time_point instant);

}  // namespace velmora
