#pragma once

#include <string>
#include <string_view>

#include "core/model/Json.h"

// JSON-RPC 2.0 as MCP's stdio transport carries it: one message per line, no
// batches. Incoming lines are classified here; nothing here knows MCP methods.

namespace velmora::mcp {

namespace rpc {
inline constexpr int kParseError = -32700;
inline constexpr int kInvalidRequest = -32600;
inline constexpr int kMethodNotFound = -32601;
inline constexpr int kInvalidParams = -32602;
inline constexpr int kInternalError = -32603;
}  // namespace rpc

// One line from the client, classified.
struct Incoming {
    enum class Kind {
        request,       // method and id: must be answered
        notification,  // method, no id: never answered
        response,      // a result or error for a request of ours (we send none)
        invalid,       // answered with `errorCode` and `errorMessage`, id `id`
    };
    Kind kind = Kind::invalid;
    Json id;  // the request's id; null for notifications and for invalid messages without a usable
              // id
    std::string method;
    Json params;  // object or array as sent; null when absent
    int errorCode = 0;
    std::string errorMessage;
};

// Classifies one line (without its newline). Never throws: a line that is not
// JSON is a parse error, a JSON array (a batch: MCP no longer has them) and any
// other malformed message an invalid request.
Incoming classify(std::string_view line);

Json resultMessage(const Json& id, Json result);
Json errorMessage(const Json& id, int code, const std::string& message);

// The message as one line and a newline: compact, invalid UTF-8 replaced, so a
// message never spans lines.
std::string frame(const Json& message);

}  // namespace velmora::mcp
