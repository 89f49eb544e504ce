#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "core/model/Json.h"

// The tools the server offers and how a call becomes the actions of one agent
// request. Every tool names its target application; `run_actions` takes the
// request's own action list, the others build one action each.

namespace velmora::mcp {

// Arguments that do not fit the tool's input schema (answered as invalid params).
class InvalidArguments : public std::runtime_error {
  public:
    explicit InvalidArguments(const std::string& message) : std::runtime_error(message) {}
};

struct ToolPlan {
    std::string tool;
    std::string target;
    Json actions = Json::array();     // the request's "actions", already checked
    int64_t maxElements = 50;         // elements listed per receipt at most
    bool includeValues = false;       // whether element values are kept
    int maxWidth = 0, maxHeight = 0;  // the screenshot tool's box
};

inline constexpr int kDefaultScreenshotBox = 1024;

// The tools/list entries. Output schemas (and titles) only for clients that
// speak a revision that has them.
Json toolDefinitions(bool withOutputSchemas);

bool isKnownTool(const std::string& name);

// Checks a call's arguments against the tool and builds its plan. Throws
// InvalidArguments naming the argument.
ToolPlan planToolCall(const std::string& name, const Json& arguments, int64_t defaultMaxElements);

// The schema of every tool's structured result.
Json resultSchema();

}  // namespace velmora::mcp
