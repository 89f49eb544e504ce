#pragma once

#include <optional>
#include <string>
#include <vector>

namespace velmora {

// Which applications a request may drive. Allow-list based: nothing is allowed
// unless approved, and a denial always wins. Patterns match as case-insensitive
// substrings of the bundle identifier or the app name, by the platform's string
// search (canonically equivalent spellings match); there are no wildcards.
class ApprovedAppPolicy {
  public:
    // Trims every entry of the whitespace set (every Unicode space separator and
    // the tab; not newlines) and drops the ones left empty, keeping order and
    // letter case.
    ApprovedAppPolicy(const std::vector<std::string>& approved,
                      const std::vector<std::string>& denied);

    // False when nothing is approved, when a denied pattern matches, or when no
    // approved pattern matches. An absent or empty app name never matches.
    bool isAllowed(const std::string& appBundleId,
                   const std::optional<std::string>& appName = std::nullopt) const;

    // One comma-separated text as a list: pieces trimmed of the whitespace set,
    // empty ones dropped, order kept. An absent text is an empty list.
    static std::vector<std::string> parseList(const std::optional<std::string>& text);

    const std::vector<std::string>& approved() const { return approved_; }
    const std::vector<std::string>& denied() const { return denied_; }

  private:
    std::vector<std::string> approved_;
    std::vector<std::string> denied_;
};

}  // namespace velmora
