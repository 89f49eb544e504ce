#include "core/text/NumberText.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <system_error>

namespace velmora {

namespace {

// Integers stay in fixed notation up to the last one a double holds exactly
// along with all its neighbours.
constexpr double kLargestFixed = 9007199254740992.0;  // 2^53
constexpr int kSmallestFixedExponent = -4;            // 0.0001

}  // namespace

std::string doubleDescription(double value) {
    if (std::isnan(value)) {
        return "nan";
    }
    if (std::isinf(value)) {
        return value < 0 ? "-inf" : "inf";
    }
    if (value == 0) {
        return std::signbit(value) ? "-0.0" : "0.0";
    }

    // The shortest round-trip digits and their decimal exponent, from the
    // scientific form "d.ddde±x".
    char buffer[64];
    const auto written = std::to_chars(buffer, buffer + sizeof buffer, std::fabs(value),
                                       std::chars_format::scientific);
    const std::string scientific(buffer, written.ptr);
    const size_t e = scientific.find('e');
    std::string digits = scientific.substr(0, e);
    if (digits.size() > 1) {
        digits.erase(1, 1);  // the point after the first digit
    }
    const int exponent = std::atoi(scientific.c_str() + e + 1);

    std::string text = std::signbit(value) ? "-" : "";
    if (exponent < kSmallestFixedExponent || std::fabs(value) > kLargestFixed) {
        text += digits[0];
        if (digits.size() > 1) {
            text += '.';
            text.append(digits, 1);
        }
        text += exponent < 0 ? "e-" : "e+";
        const int magnitude = std::abs(exponent);
        if (magnitude < 10) {
            text += '0';
        }
        text += std::to_string(magnitude);
    } else if (exponent < 0) {
        text += "0.";
        text.append(static_cast<size_t>(-exponent - 1), '0');
        text += digits;
    } else if (static_cast<size_t>(exponent) + 1 < digits.size()) {
        const size_t whole = static_cast<size_t>(exponent) + 1;
        text.append(digits, 0, whole);
        text += '.';
        text.append(digits, whole);
    } else {
        text += digits;
        text.append(static_cast<size_t>(exponent) + 1 - digits.size(), '0');
        text += ".0";
    }
    return text;
}

std::string jsonNumberText(double value) {
    std::string text = doubleDescription(value);
    if (text.size() >= 2 && text.compare(text.size() - 2, 2, ".0") == 0) {
        text.resize(text.size() - 2);
    }
    return text;
}

}  // namespace velmora
