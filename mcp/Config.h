#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

// What the server holds on behalf of its client: the seat lease, the policy
// (approved and denied apps, consent) and where things live. Read from a JSON
// file (--config) and flags; flags win over the file, and list flags add to the
// file's lists.

namespace velmora::mcp {

struct Config {
    std::string agentPath;  // velmora-agent; a bare name is looked up on PATH
    std::string seatLease;
    std::vector<std::string> approvedApps;  // empty: every application is refused
    std::vector<std::string> deniedApps;
    bool allowScreenshots = true;
    bool trainingCorpus = false;
    std::optional<std::string> screenshotDir;  // none: the agent's temporary directory
    std::string auditLogPath;
    double callTimeoutSeconds = 60;  // per tool call, for the whole agent process
    int64_t maxElements = 50;        // elements a result lists unless the call asks otherwise
};

class ConfigError : public std::runtime_error {
  public:
    explicit ConfigError(const std::string& message) : std::runtime_error(message) {}
};

// Where the defaults come from, so that tests can pin them.
struct ConfigDefaults {
    std::string agentPath;     // velmora-agent beside our own executable, else on PATH
    std::string seatLease;     // unique to this server process
    std::string auditLogPath;  // under the user's state directory
};

ConfigDefaults systemDefaults();

// Reads the configuration file's text. Unknown keys are errors, so that a
// misspelt key cannot silently loosen the policy.
void applyConfigText(Config& config, const std::string& text, const std::string& fileName);

// Builds the configuration from the server's arguments (everything after the
// program name). Throws ConfigError naming the bad flag, file or key.
Config parseArguments(const std::vector<std::string>& arguments, const ConfigDefaults& defaults);

// The usage text for --help.
std::string usageText();

}  // namespace velmora::mcp
