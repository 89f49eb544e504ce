#include "mcp/JsonRpc.h"

namespace velmora::mcp {

namespace {

Incoming invalid(int code, std::string message, Json id = nullptr) {
    Incoming incoming;
    incoming.kind = Incoming::Kind::invalid;
    incoming.id = std::move(id);
    incoming.errorCode = code;
    incoming.errorMessage = std::move(message);
    return incoming;
}

// MCP ids are strings or numbers; null is not an id.
bool usableId(const Json& id) {
    return id.is_string() || id.is_number();
}

}  // namespace

Incoming classify(std::string_view line) {
    Json message;
    try {
        message = parseJson(line);
    } catch (const DecodeError& error) {
        return invalid(rpc::kParseError, std::string("Parse error: ") + error.what());
    }
    if (message.is_array()) {
        return invalid(rpc::kInvalidRequest,
                       "Invalid Request: batches are not supported; send one message per line");
    }
    if (!message.is_object()) {
        return invalid(rpc::kInvalidRequest, "Invalid Request: a message is a JSON object");
    }
    Json id = nullptr;
    bool hasId = message.contains("id");
    if (hasId && usableId(message["id"])) {
        id = message["id"];
    }
    auto jsonrpc = message.find("jsonrpc");
    if (jsonrpc == message.end() || *jsonrpc != "2.0") {
        return invalid(rpc::kInvalidRequest, "Invalid Request: \"jsonrpc\" must be \"2.0\"", id);
    }
    if (hasId && !usableId(message["id"])) {
        return invalid(rpc::kInvalidRequest,
                       "Invalid Request: \"id\" must be a string or a number");
    }
    auto method = message.find("method");
    if (method == message.end()) {
        if (hasId && (message.contains("result") || message.contains("error"))) {
            Incoming response;
            response.kind = Incoming::Kind::response;
            response.id = id;
            return response;
        }
        return invalid(rpc::kInvalidRequest, "Invalid Request: no \"method\"", id);
    }
    if (!method->is_string()) {
        return invalid(rpc::kInvalidRequest, "Invalid Request: \"method\" must be a string", id);
    }
    Incoming incoming;
    incoming.method = method->get<std::string>();
    auto params = message.find("params");
    if (params != message.end()) {
        if (!params->is_object() && !params->is_array()) {
            return invalid(rpc::kInvalidRequest, "Invalid Request: \"params\" must be an object",
                           id);
        }
        incoming.params = *params;
    }
    incoming.kind = hasId ? Incoming::Kind::request : Incoming::Kind::notification;
    incoming.id = id;
    return incoming;
}

Json resultMessage(const Json& id, Json result) {
    return Json{{"jsonrpc", "2.0"}, {"id", id}, {"result", std::move(result)}};
}

Json errorMessage(const Json& id, int code, const std::string& message) {
    return Json{{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", message}}}};
}

std::string frame(const Json& message) {
    return message.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace velmora::mcp
