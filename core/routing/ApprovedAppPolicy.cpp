#include "core/routing/ApprovedAppPolicy.h"

#include <array>

#include "core/text/Text.h"

namespace velmora {

namespace {

std::vector<std::string> normalised(const std::vector<std::string>& patterns) {
    std::vector<std::string> kept;
    for (const auto& pattern : patterns) {
        std::string trimmed = trimmedOfWhitespace(pattern);
        if (!trimmed.empty()) {
            kept.push_back(std::move(trimmed));
        }
    }
    return kept;
}

bool matchesAny(const std::vector<std::string>& patterns,
                const std::array<std::string, 2>& candidates) {
    for (const auto& pattern : patterns) {
        std::string folded = lowercased(pattern);
        for (const auto& candidate : candidates) {
            if (!candidate.empty() && containsText(candidate, folded)) {
                return true;
            }
        }
    }
    return false;
}

}  // namespace

ApprovedAppPolicy::ApprovedAppPolicy(const std::vector<std::string>& approved,
                                     const std::vector<std::string>& denied)
    : approved_(normalised(approved)), denied_(normalised(denied)) {}

bool ApprovedAppPolicy::isAllowed(const std::string& appBundleId,
                                  const std::optional<std::string>& appName) const {
    if (approved_.empty()) {
        return false;
    }
    const std::array<std::string, 2> candidates{lowercased(appBundleId),
                                                lowercased(appName.value_or(""))};
    if (matchesAny(denied_, candidates)) {
        return false;
    }
    return matchesAny(approved_, candidates);
}

std::vector<std::string> ApprovedAppPolicy::parseList(const std::optional<std::string>& text) {
    std::vector<std::string> pieces;
    if (!text) {
        return pieces;
    }
    size_t start = 0;
    while (start <= text->size()) {
        size_t comma = text->find(',', start);
        size_t end = comma == std::string::npos ? text->size() : comma;
        std::string piece = trimmedOfWhitespace(std::string_view(*text).substr(start, end - start));
        if (!piece.empty()) {
            pieces.push_back(std::move(piece));
        }
        if (comma == std::string::npos) {
            break;
        }
        start = comma + 1;
    }
    return pieces;
}

}  // namespace velmora
