#include "tools/replay/Scenario.h"

#include <chrono>
#include <cmath>
#include <limits>

#include "core/model/Json.h"

namespace velmora::replay {

namespace {

// The operations the mock driver logs, and so the only ones it can fail.
const std::set<std::string> kFailableOperations = {
    "launch",    "focus",  "click", "doubleClick",     "typeText",
    "pressKeys", "scroll", "query", "structuralState", "screenshot",
};

[[noreturn]] void fail(const std::string& key, const std::string& reason) {
    throw ScenarioError(key + ": " + reason);
}

const Json* member(const Json& object, const char* key) {
    auto found = object.find(key);
    return found == object.end() || found->is_null() ? nullptr : &*found;
}

std::string asString(const Json& value, const std::string& key) {
    if (!value.is_string()) {
        fail(key, std::string("expected a string, found ") + value.type_name());
    }
    return value.get<std::string>();
}

bool asBool(const Json& value, const std::string& key) {
    if (!value.is_boolean()) {
        fail(key, std::string("expected a boolean, found ") + value.type_name());
    }
    return value.get<bool>();
}

int64_t asInt(const Json& value, const std::string& key) {
    if (value.is_number_integer()) {
        if (value.is_number_unsigned() &&
            value.get<uint64_t>() > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
            fail(key, "number is out of the 64-bit integer range");
        }
        return value.get<int64_t>();
    }
    fail(key, std::string("expected an integer, found ") + value.type_name());
}

double asSeconds(const Json& value, const std::string& key) {
    if (!value.is_number()) {
        fail(key, std::string("expected a number of seconds, found ") + value.type_name());
    }
    double seconds = value.get<double>();
    if (!std::isfinite(seconds) || seconds < 0) {
        fail(key, "expected a finite, non-negative number of seconds");
    }
    return seconds;
}

const Json& asArray(const Json& value, const std::string& key) {
    if (!value.is_array()) {
        fail(key, std::string("expected an array, found ") + value.type_name());
    }
    return value;
}

void rejectUnknownKeys(const Json& object, const std::set<std::string>& known,
                       const std::string& where) {
    for (const auto& [key, value] : object.items()) {
        if (known.count(key) == 0) {
            // A misspelt key would otherwise be ignored silently and the replay
            // would run against a desktop other than the one intended.
            fail(where.empty() ? key : where + "." + key, "unknown key");
        }
    }
}

bool digitsAt(std::string_view text, size_t position, size_t count, int& out) {
    if (position + count > text.size()) {
        return false;
    }
    out = 0;
    for (size_t i = position; i < position + count; ++i) {
        if (text[i] < '0' || text[i] > '9') {
            return false;
        }
        out = out * 10 + (text[i] - '0');
    }
    return true;
}

}  // namespace

std::optional<Clock::TimePoint> parseInternetDateTime(std::string_view text) {
    using namespace std::chrono;
    int yearValue, monthValue, dayValue, hourValue, minuteValue, secondValue;
    if (!digitsAt(text, 0, 4, yearValue) || text.size() < 20 || text[4] != '-' ||
        !digitsAt(text, 5, 2, monthValue) || text[7] != '-' || !digitsAt(text, 8, 2, dayValue) ||
        (text[10] != 'T' && text[10] != 't') || !digitsAt(text, 11, 2, hourValue) ||
        text[13] != ':' || !digitsAt(text, 14, 2, minuteValue) || text[16] != ':' ||
        !digitsAt(text, 17, 2, secondValue)) {
        return std::nullopt;
    }
    year_month_day date{year{yearValue}, month{static_cast<unsigned>(monthValue)},
                        day{static_cast<unsigned>(dayValue)}};
    if (!date.ok() || hourValue > 23 || minuteValue > 59 || secondValue > 59) {
        return std::nullopt;
    }
    size_t position = 19;
    nanoseconds fraction{0};
    if (position < text.size() && text[position] == '.') {
        ++position;
        size_t start = position;
        int64_t scale = 100000000;
        while (position < text.size() && text[position] >= '0' && text[position] <= '9') {
            fraction += nanoseconds((text[position] - '0') * scale);
            scale /= 10;
            ++position;
        }
        if (position == start) {
            return std::nullopt;
        }
    }
    minutes offset{0};
    if (position < text.size() && (text[position] == 'Z' || text[position] == 'z')) {
        ++position;
    } else if (position < text.size() && (text[position] == '+' || text[position] == '-')) {
        int sign = text[position] == '-' ? -1 : 1;
        int offsetHours, offsetMinutes;
        if (!digitsAt(text, position + 1, 2, offsetHours) || position + 3 >= text.size() ||
            text[position + 3] != ':' || !digitsAt(text, position + 4, 2, offsetMinutes) ||
            offsetHours > 23 || offsetMinutes > 59) {
            return std::nullopt;
        }
        offset = minutes(sign * (offsetHours * 60 + offsetMinutes));
        position += 6;
    } else {
        return std::nullopt;
    }
    if (position != text.size()) {
        return std::nullopt;
    }
    auto local = sys_days{date} + hours{hourValue} + minutes{minuteValue} + seconds{secondValue};
    return time_point_cast<system_clock::duration>(local - offset + fraction);
}

Scenario decodeScenario(std::string_view text) {
    Json document;
    try {
        document = parseJson(text);
    } catch (const DecodeError& error) {
        throw ScenarioError(error.what());
    }
    if (!document.is_object()) {
        throw ScenarioError(std::string("expected an object, found ") + document.type_name());
    }
    rejectUnknownKeys(document,
                      {"frontmost", "elements", "sha", "failOn", "focusSucceeds",
                       "screenshotShouldFail", "clock", "assertRetries", "assertRetryDelay"},
                      "");

    Scenario scenario;
    if (const Json* value = member(document, "frontmost")) {
        scenario.frontmost = asString(*value, "frontmost");
    }
    const Json* elements = member(document, "elements");
    if (!elements) {
        fail("elements", "missing required key");
    }
    try {
        const Json& list = asArray(*elements, "elements");
        for (size_t i = 0; i < list.size(); ++i) {
            scenario.elements.push_back(
                decodeElementInfo(list[i], "elements[" + std::to_string(i) + "]"));
        }
    } catch (const DecodeError& error) {
        throw ScenarioError(error.what());
    }
    const Json* sha = member(document, "sha");
    if (!sha) {
        fail("sha", "missing required key");
    }
    scenario.sha = asString(*sha, "sha");
    if (const Json* value = member(document, "failOn")) {
        const Json& list = asArray(*value, "failOn");
        for (size_t i = 0; i < list.size(); ++i) {
            std::string key = "failOn[" + std::to_string(i) + "]";
            std::string op = asString(list[i], key);
            if (kFailableOperations.count(op) == 0) {
                fail(key, "\"" + op + "\" is not an operation the mock driver logs");
            }
            scenario.failOn.insert(op);
        }
    }
    if (const Json* value = member(document, "focusSucceeds")) {
        scenario.focusSucceeds = asBool(*value, "focusSucceeds");
    }
    if (const Json* value = member(document, "screenshotShouldFail")) {
        scenario.screenshotShouldFail = asBool(*value, "screenshotShouldFail");
    }
    if (const Json* value = member(document, "clock")) {
        if (!value->is_object()) {
            fail("clock", std::string("expected an object, found ") + value->type_name());
        }
        rejectUnknownKeys(*value, {"date", "idPrefix"}, "clock");
        const Json* date = member(*value, "date");
        if (!date) {
            fail("clock.date", "missing required key");
        }
        std::string dateText = asString(*date, "clock.date");
        auto instant = parseInternetDateTime(dateText);
        if (!instant) {
            fail("clock.date",
                 "\"" + dateText + "\" is not an internet date-time like 2026-11-16T03:04:05Z");
        }
        const Json* prefix = member(*value, "idPrefix");
        if (!prefix) {
            fail("clock.idPrefix", "missing required key");
        }
        scenario.clock = Scenario::FixedClock{*instant, asString(*prefix, "clock.idPrefix")};
    }
    if (const Json* value = member(document, "assertRetries")) {
        scenario.assertRetries = asInt(*value, "assertRetries");
    }
    if (const Json* value = member(document, "assertRetryDelay")) {
        scenario.assertRetryDelay = asSeconds(*value, "assertRetryDelay");
    }
    return scenario;
}

}  // namespace velmora::replay
