#include "core/routing/Iso8601.h"

#include <cstdio>
#include <ctime>

namespace velmora {

std::string iso8601(std::chrono::system_clock::time_point instant) {
    auto seconds = std::chrono::floor<std::chrono::seconds>(instant);
    std::time_t time = static_cast<std::time_t>(seconds.time_since_epoch().count());
    std::tm parts{};
    gmtime_r(&time, &parts);  // reentrant: no shared formatter state between threads
    char text[64];
    std::snprintf(text, sizeof text, "%04lld-%02d-%02dT%02d:%02d:%02dZ",
                  static_cast<long long>(parts.tm_year) + 1900, parts.tm_mon + 1, parts.tm_mday,
                  parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}

}  // namespace velmora
