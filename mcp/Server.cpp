#include "mcp/Server.h"

#include <cstring>

#include "core/model/Protocol.h"
#include "mcp/JsonRpc.h"
#include "mcp/PngScale.h"
#include "mcp/ToolResult.h"

namespace velmora::mcp {

namespace {

const char* const kInstructions =
    "Drives desktop applications through velmora-agent. Every tool names its target "
    "application (a desktop-entry id on Linux, a bundle identifier on macOS), which the "
    "server's policy must approve. Results carry the agent's receipts: what was done, to which "
    "executable, whether the target was frontmost. Use find_elements to see an application's "
    "elements, click them by selector, and wait_for to check a result.";

// The last part of the child's standard error, for a message.
std::string errTail(const std::string& err) {
    constexpr size_t kTail = 400;
    std::string tail = err.size() > kTail ? "..." + err.substr(err.size() - kTail) : err;
    while (!tail.empty() && (tail.back() == '\n' || tail.back() == ' ')) {
        tail.pop_back();
    }
    return tail.empty() ? std::string() : "; its standard error ends: " + tail;
}

const char* endingName(AgentOutcome::Ending ending) {
    switch (ending) {
        case AgentOutcome::Ending::exited:
            return "exited";
        case AgentOutcome::Ending::signalled:
            return "signalled";
        case AgentOutcome::Ending::timedOut:
            return "timedOut";
        case AgentOutcome::Ending::cancelled:
            return "cancelled";
        case AgentOutcome::Ending::notStarted:
            return "notStarted";
        case AgentOutcome::Ending::tooMuchOutput:
            return "tooMuchOutput";
    }
    return "unknown";
}

std::string seconds(double value) {
    std::string text = std::to_string(value);
    text.erase(text.find_last_not_of('0') + 1);
    if (!text.empty() && text.back() == '.') {
        text.pop_back();
    }
    return text;
}

}  // namespace

std::string negotiateRevision(const std::string& requested) {
    for (const char* revision : kProtocolRevisions) {
        if (requested == revision) {
            return requested;
        }
    }
    return kProtocolRevisions[0];
}

Server::Server(Config config, AgentRunner& runner, AuditLog& audit, Clock clock, Send send)
    : config_(std::move(config)),
      runner_(runner),
      audit_(audit),
      clock_(std::move(clock)),
      send_(std::move(send)) {}

std::string Server::revision() const {
    std::lock_guard<std::mutex> guard(lock_);
    return revision_;
}

bool Server::hasQueuedCalls() const {
    std::lock_guard<std::mutex> guard(lock_);
    return !queue_.empty();
}

void Server::sendError(const Json& id, int code, const std::string& message) {
    send_(errorMessage(id, code, message));
}

void Server::receive(std::string_view line) {
    Incoming incoming = classify(line);
    try {
        switch (incoming.kind) {
            case Incoming::Kind::invalid:
                sendError(incoming.id, incoming.errorCode, incoming.errorMessage);
                return;
            case Incoming::Kind::response:
                return;  // we send no requests, so there is nothing to match it with
            case Incoming::Kind::notification:
                handleNotification(incoming.method, incoming.params);
                return;
            case Incoming::Kind::request:
                handleRequest(incoming.id, incoming.method, incoming.params);
                return;
        }
    } catch (const std::exception& error) {
        if (incoming.kind == Incoming::Kind::request) {
            sendError(incoming.id, rpc::kInternalError,
                      std::string("Internal error: ") + error.what());
        }
    }
}

void Server::handleNotification(const std::string& method, const Json& params) {
    if (method == "notifications/cancelled") {
        if (!params.is_object() || !params.contains("requestId")) {
            return;
        }
        std::lock_guard<std::mutex> guard(lock_);
        auto open = open_.find(params["requestId"].dump());
        if (open != open_.end()) {
            open->second->cancel();
        }
    }
    // notifications/initialized and anything else need no action and get no answer.
}

void Server::handleRequest(const Json& id, const std::string& method, const Json& params) {
    if (method == "ping") {
        send_(resultMessage(id, Json::object()));
        return;
    }
    if (method == "initialize") {
        if (!revision().empty()) {
            sendError(id, rpc::kInvalidRequest, "Invalid Request: already initialized");
            return;
        }
        if (!params.is_object() || !params.contains("protocolVersion") ||
            !params["protocolVersion"].is_string()) {
            sendError(id, rpc::kInvalidParams,
                      "Invalid params: initialize needs \"protocolVersion\" (a string)");
            return;
        }
        send_(resultMessage(id, initialize(params)));
        return;
    }
    if (method != "tools/list" && method != "tools/call") {
        sendError(id, rpc::kMethodNotFound, "Method not found: " + method);
        return;
    }
    if (revision().empty()) {
        sendError(id, rpc::kInvalidRequest,
                  "Invalid Request: not initialized (initialize comes first)");
        return;
    }
    if (!params.is_null() && !params.is_object()) {
        sendError(id, rpc::kInvalidParams, "Invalid params: \"params\" must be an object");
        return;
    }
    if (method == "tools/list") {
        if (params.is_object() && params.contains("cursor") && !params["cursor"].is_null()) {
            sendError(id, rpc::kInvalidParams,
                      "Invalid params: unknown cursor (every tool is on the first page)");
            return;
        }
        bool structured = revision() == kProtocolRevisions[0];
        send_(resultMessage(id, {{"tools", toolDefinitions(structured)}}));
        return;
    }
    queueCall(id, params);
}

Json Server::initialize(const Json& params) {
    std::string agreed = negotiateRevision(params["protocolVersion"].get<std::string>());
    {
        std::lock_guard<std::mutex> guard(lock_);
        revision_ = agreed;
    }
    Json serverInfo = {{"name", kServerName}, {"version", kServerVersion}};
    if (agreed == kProtocolRevisions[0]) {
        serverInfo["title"] = "Velmora desktop agent";
    }
    return {{"protocolVersion", agreed},
            {"capabilities", {{"tools", {{"listChanged", false}}}}},
            {"serverInfo", serverInfo},
            {"instructions", kInstructions}};
}

void Server::queueCall(const Json& id, const Json& params) {
    if (!params.is_object() || !params.contains("name") || !params["name"].is_string()) {
        sendError(id, rpc::kInvalidParams, "Invalid params: tools/call needs \"name\" (a string)");
        return;
    }
    std::string name = params["name"].get<std::string>();
    if (!isKnownTool(name)) {
        sendError(id, rpc::kInvalidParams, "Unknown tool: " + name);
        return;
    }
    Json arguments = params.contains("arguments") ? params["arguments"] : Json();
    Call call;
    try {
        call.plan = planToolCall(name, arguments, config_.maxElements);
    } catch (const InvalidArguments& error) {
        sendError(id, rpc::kInvalidParams, std::string("Invalid params: ") + error.what());
        return;
    }
    call.id = id;
    call.cancellation = std::make_shared<Cancellation>();
    std::lock_guard<std::mutex> guard(lock_);
    open_[id.dump()] = call.cancellation;
    queue_.push_back(std::move(call));
}

bool Server::runNextCall() {
    Call call;
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (queue_.empty()) {
            return false;
        }
        call = std::move(queue_.front());
        queue_.pop_front();
    }
    Json result;
    if (!call.cancellation->requested()) {
        try {
            result = runCall(call);
        } catch (const std::exception& error) {
            result = toolErrorResult(std::string("internal error: ") + error.what());
        }
    }
    {
        std::lock_guard<std::mutex> guard(lock_);
        open_.erase(call.id.dump());
    }
    // A cancelled call is not answered.
    if (!call.cancellation->requested() && !result.is_null()) {
        send_(resultMessage(call.id, result));
    }
    return true;
}

Json Server::runCall(Call& call) {
    const ToolPlan& plan = call.plan;
    const std::string sessionId = "mcp-" + clock_.newId();
    Json request = {{"protocolVersion", kDriverBrokerProtocol},
                    {"sessionId", sessionId},
                    {"seatLease", config_.seatLease},
                    {"targetBundleId", plan.target},
                    {"approvedApps", config_.approvedApps},
                    {"deniedApps", config_.deniedApps},
                    {"consent",
                     {{"allowScreenshots", config_.allowScreenshots},
                      {"trainingCorpus", config_.trainingCorpus}}},
                    {"actions", plan.actions}};
    if (config_.screenshotDir) {
        request["screenshotDir"] = *config_.screenshotDir;
    }
    try {
        audit_.append({{"event", "request"},
                       {"call", call.id},
                       {"tool", plan.tool},
                       {"sessionId", sessionId},
                       {"request", request}});
    } catch (const AuditError& error) {
        return toolErrorResult(std::string("refused: the call was not run because the audit log "
                                           "cannot be written: ") +
                               error.what());
    }

    auto timeLimit =
        std::chrono::milliseconds(static_cast<int64_t>(config_.callTimeoutSeconds * 1000 + 0.5));
    AgentOutcome outcome = runner_.run(request.dump(), timeLimit, *call.cancellation);

    // What the agent answered, when it answered a response.
    std::optional<DriverResponse> response;
    Json answer;
    std::string failure;
    std::string agent = "velmora-agent (process " + std::to_string(outcome.processId) + ")";
    switch (outcome.ending) {
        case AgentOutcome::Ending::exited:
            try {
                answer = parseJson(outcome.out);
                response = decodeResponse(answer);
            } catch (const DecodeError& error) {
                failure = agent + " exited with status " + std::to_string(outcome.exitStatus) +
                          " without a response (" + error.what() + ")" + errTail(outcome.err);
            }
            if (response && outcome.exitStatus == 3) {
                failure = "velmora-agent could not read the request: " +
                          response->error.value_or("(no error text)");
                response.reset();
            } else if (response && outcome.exitStatus != 0 && outcome.exitStatus != 2) {
                failure = agent + " exited with status " + std::to_string(outcome.exitStatus) +
                          errTail(outcome.err);
                response.reset();
            }
            break;
        case AgentOutcome::Ending::signalled:
            failure = agent + " was ended by signal " + std::to_string(outcome.signal) + " (" +
                      strsignal(outcome.signal) + ") without a response" + errTail(outcome.err);
            break;
        case AgentOutcome::Ending::timedOut:
            failure = agent + " did not answer within " + seconds(config_.callTimeoutSeconds) +
                      " s, the call's time limit, and was ended by its process id; its actions "
                      "may have been done in part";
            break;
        case AgentOutcome::Ending::cancelled:
            failure = "cancelled by the client; " + agent + " was ended by its process id";
            break;
        case AgentOutcome::Ending::notStarted:
            failure = "velmora-agent could not be started: " + outcome.detail;
            break;
        case AgentOutcome::Ending::tooMuchOutput:
            failure = agent + " wrote more output than a response can be and was ended";
            break;
    }

    Json record = {{"event", "outcome"},
                   {"call", call.id},
                   {"sessionId", sessionId},
                   {"ending", endingName(outcome.ending)}};
    if (outcome.processId > 0) {
        record["processId"] = outcome.processId;
    }
    if (outcome.ending == AgentOutcome::Ending::exited) {
        record["exitStatus"] = outcome.exitStatus;
    }
    if (!answer.is_null()) {
        record["response"] = answer;
    }
    if (!failure.empty()) {
        record["error"] = failure;
    }
    std::string unrecorded;
    try {
        audit_.append(record);
    } catch (const AuditError& error) {
        unrecorded = std::string(
                         "the call ran, but its outcome could not be written to the "
                         "audit log: ") +
                     error.what();
    }
    if (call.cancellation->requested()) {
        return Json();
    }
    if (!response) {
        return toolErrorResult(unrecorded.empty() ? failure : unrecorded + "\n" + failure);
    }

    std::optional<ScaledPng> image;
    if (plan.tool == "screenshot") {
        for (const auto& receipt : response->receipts) {
            if (receipt.screenshotPath && receipt.succeeded) {
                try {
                    image = scalePngToFit(*receipt.screenshotPath, plan.maxWidth, plan.maxHeight);
                } catch (const std::exception& error) {
                    return toolErrorResult("the screenshot was taken but cannot be read: " +
                                           std::string(error.what()));
                }
            }
        }
    }
    Json result = toolResult(plan, *response, image, revision() == kProtocolRevisions[0]);
    if (!unrecorded.empty()) {
        result["isError"] = true;
        result["content"].insert(result["content"].begin(),
                                 {{"type", "text"}, {"text", unrecorded}});
    }
    return result;
}

}  // namespace velmora::mcp
