#include "mcp/Config.h"

#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "core/model/Json.h"
#include "core/routing/ApprovedAppPolicy.h"

namespace velmora::mcp {

namespace {

namespace fs = std::filesystem;

std::string stringValue(const Json& value, const std::string& where) {
    if (!value.is_string()) {
        throw ConfigError(where + ": expected a string, found " + value.type_name());
    }
    return value.get<std::string>();
}

bool boolValue(const Json& value, const std::string& where) {
    if (!value.is_boolean()) {
        throw ConfigError(where + ": expected true or false, found " + value.type_name());
    }
    return value.get<bool>();
}

std::vector<std::string> listValue(const Json& value, const std::string& where) {
    if (!value.is_array()) {
        throw ConfigError(where + ": expected a list of strings, found " + value.type_name());
    }
    std::vector<std::string> list;
    for (size_t i = 0; i < value.size(); ++i) {
        list.push_back(stringValue(value[i], where + "[" + std::to_string(i) + "]"));
    }
    return list;
}

double timeoutValue(double seconds, const std::string& where) {
    if (!std::isfinite(seconds) || seconds <= 0 || seconds > 24 * 3600) {
        throw ConfigError(where + ": expected seconds above 0 and at most 86400");
    }
    return seconds;
}

int64_t elementsValue(int64_t count, const std::string& where) {
    if (count < 0 || count > 100000) {
        throw ConfigError(where + ": expected a whole number from 0 to 100000");
    }
    return count;
}

double parseSeconds(const std::string& text, const std::string& flag) {
    char* end = nullptr;
    errno = 0;
    double seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || end != text.c_str() + text.size() || errno != 0) {
        throw ConfigError(flag + ": expected seconds, found \"" + text + "\"");
    }
    return timeoutValue(seconds, flag);
}

int64_t parseCount(const std::string& text, const std::string& flag) {
    char* end = nullptr;
    errno = 0;
    long long count = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || end != text.c_str() + text.size() || errno != 0) {
        throw ConfigError(flag + ": expected a whole number, found \"" + text + "\"");
    }
    return elementsValue(count, flag);
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw ConfigError("--config " + path + ": " + std::strerror(errno));
    }
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad()) {
        throw ConfigError("--config " + path + ": cannot be read");
    }
    return text.str();
}

std::string ownDirectory() {
    std::error_code error;
    fs::path self = fs::read_symlink("/proc/self/exe", error);
    return error ? std::string() : self.parent_path().string();
}

}  // namespace

ConfigDefaults systemDefaults() {
    ConfigDefaults defaults;
    std::string dir = ownDirectory();
    if (!dir.empty() && ::access((dir + "/velmora-agent").c_str(), X_OK) == 0) {
        defaults.agentPath = dir + "/velmora-agent";
    } else if (!dir.empty() && ::access((dir + "/../agent/velmora-agent").c_str(), X_OK) == 0) {
        // The build tree keeps the agent in a sibling folder.
        defaults.agentPath = fs::weakly_canonical(dir + "/../agent/velmora-agent").string();
    } else {
        defaults.agentPath = "velmora-agent";
    }
    char host[256] = {};
    ::gethostname(host, sizeof host - 1);
    defaults.seatLease = std::string("velmora-mcp/") + host + "/" + std::to_string(::getpid());
    const char* state = std::getenv("XDG_STATE_HOME");
    const char* home = std::getenv("HOME");
    std::string stateDir = state && *state ? std::string(state)
                           : home && *home ? std::string(home) + "/.local/state"
                                           : std::string(".");
    defaults.auditLogPath = stateDir + "/velmora/mcp-audit.jsonl";
    return defaults;
}

void applyConfigText(Config& config, const std::string& text, const std::string& fileName) {
    Json document;
    try {
        document = parseJson(text);
    } catch (const DecodeError& error) {
        throw ConfigError(fileName + ": " + error.what());
    }
    if (!document.is_object()) {
        throw ConfigError(fileName + ": expected a JSON object");
    }
    for (const auto& [key, value] : document.items()) {
        std::string where = fileName + ": " + key;
        if (key == "agent") {
            config.agentPath = stringValue(value, where);
        } else if (key == "seatLease") {
            config.seatLease = stringValue(value, where);
        } else if (key == "approvedApps") {
            config.approvedApps = listValue(value, where);
        } else if (key == "deniedApps") {
            config.deniedApps = listValue(value, where);
        } else if (key == "consent") {
            if (!value.is_object()) {
                throw ConfigError(where + ": expected an object");
            }
            for (const auto& [flag, setting] : value.items()) {
                if (flag == "allowScreenshots") {
                    config.allowScreenshots = boolValue(setting, where + "." + flag);
                } else if (flag == "trainingCorpus") {
                    config.trainingCorpus = boolValue(setting, where + "." + flag);
                } else {
                    throw ConfigError(where + ": unknown key \"" + flag + "\"");
                }
            }
        } else if (key == "screenshotDir") {
            config.screenshotDir = stringValue(value, where);
        } else if (key == "auditLog") {
            config.auditLogPath = stringValue(value, where);
        } else if (key == "callTimeoutSeconds") {
            if (!value.is_number()) {
                throw ConfigError(where + ": expected seconds, found " + value.type_name());
            }
            config.callTimeoutSeconds = timeoutValue(value.get<double>(), where);
        } else if (key == "maxElements") {
            if (!value.is_number_integer()) {
                throw ConfigError(where + ": expected a whole number, found " + value.type_name());
            }
            config.maxElements = elementsValue(value.get<int64_t>(), where);
        } else {
            throw ConfigError(fileName + ": unknown key \"" + key + "\"");
        }
    }
}

Config parseArguments(const std::vector<std::string>& arguments, const ConfigDefaults& defaults) {
    Config config;
    config.agentPath = defaults.agentPath;
    config.seatLease = defaults.seatLease;
    config.auditLogPath = defaults.auditLogPath;

    // The file first, wherever --config stands, so that flags win over it.
    for (size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--config") {
            if (i + 1 >= arguments.size()) {
                throw ConfigError("--config needs a file");
            }
            applyConfigText(config, readFile(arguments[i + 1]), arguments[i + 1]);
            ++i;
        }
    }
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& flag = arguments[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= arguments.size()) {
                throw ConfigError(flag + " needs a value");
            }
            return arguments[++i];
        };
        if (flag == "--config") {
            ++i;
        } else if (flag == "--agent") {
            config.agentPath = value();
        } else if (flag == "--seat-lease") {
            config.seatLease = value();
        } else if (flag == "--approve") {
            for (auto& app : ApprovedAppPolicy::parseList(value())) {
                config.approvedApps.push_back(app);
            }
        } else if (flag == "--deny") {
            for (auto& app : ApprovedAppPolicy::parseList(value())) {
                config.deniedApps.push_back(app);
            }
        } else if (flag == "--allow-screenshots") {
            config.allowScreenshots = true;
        } else if (flag == "--no-screenshots") {
            config.allowScreenshots = false;
        } else if (flag == "--screenshot-dir") {
            config.screenshotDir = value();
        } else if (flag == "--audit-log") {
            config.auditLogPath = value();
        } else if (flag == "--timeout") {
            config.callTimeoutSeconds = parseSeconds(value(), flag);
        } else if (flag == "--max-elements") {
            config.maxElements = parseCount(value(), flag);
        } else {
            throw ConfigError("unknown argument: " + flag);
        }
    }
    if (config.agentPath.empty()) {
        throw ConfigError("the agent's path is empty");
    }
    if (config.auditLogPath.empty()) {
        throw ConfigError("the audit log's path is empty");
    }
    return config;
}

std::string usageText() {
    return R"(usage: velmora-mcp [--config FILE] [OPTION...]
       velmora-mcp verify-log FILE
       velmora-mcp --help | --version

An MCP server over standard input and output (newline-delimited JSON-RPC 2.0,
protocol revisions 2025-06-18, 2025-03-26 and 2024-11-05) that drives desktop
applications through velmora-agent. Every tool call runs one velmora-agent
process with a fresh session id, under the seat lease and the application
policy below, and is recorded in a hash-chained audit log first.

Options (they override the configuration file; list options add to its lists):
  --config FILE          JSON configuration file (keys: agent, seatLease,
                         approvedApps, deniedApps, consent {allowScreenshots,
                         trainingCorpus}, screenshotDir, auditLog,
                         callTimeoutSeconds, maxElements)
  --agent PATH           the velmora-agent executable (default: the one beside
                         velmora-mcp, else velmora-agent on PATH)
  --seat-lease TEXT      the seat lease sent with every request
                         (default: velmora-mcp/HOST/PID)
  --approve APPS         approve applications (comma-separated patterns,
                         repeatable); nothing is approved by default
  --deny APPS            deny applications (comma-separated, repeatable); a
                         denial always wins
  --allow-screenshots    allow screenshots (the default)
  --no-screenshots       refuse screenshots
  --screenshot-dir DIR   where the agent writes screenshots
                         (default: the temporary directory)
  --audit-log FILE       the audit log (default:
                         $XDG_STATE_HOME/velmora/mcp-audit.jsonl, or
                         ~/.local/state/velmora/mcp-audit.jsonl)
  --timeout SECONDS      time limit of one tool call (default 60); an agent
                         still running then is ended by its process id
  --max-elements N       elements a result lists at most (default 50)
  --help                 this text
  --version              the server's version

verify-log FILE checks an audit log's chain: it prints the number of lines and
the last line's SHA-256 and exits 0, or names the first broken line and exits 1.
)";
}

}  // namespace velmora::mcp
