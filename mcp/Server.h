#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "core/model/Json.h"
#include "core/routing/Clock.h"
#include "mcp/AgentRunner.h"
#include "mcp/AuditLog.h"
#include "mcp/Config.h"
#include "mcp/Tools.h"

// The MCP server's message handling, without threads or streams of its own.
// `receive` takes each line from the client and answers at once what needs no
// agent (initialize, ping, tools/list, errors, cancellation); a valid tools/call
// is queued, and `runNextCall` runs the oldest one: audit, agent, audit,
// answer. The stdio loop calls `receive` on one thread and `runNextCall` on
// another, so that a ping or a cancellation is handled while an agent runs.

namespace velmora::mcp {

// Protocol revisions we speak, newest first.
inline constexpr const char* kProtocolRevisions[] = {"2025-06-18", "2025-03-26", "2024-11-05"};
inline constexpr const char* kServerName = "velmora-mcp";
inline constexpr const char* kServerVersion = "0.1.0";

// The revision to answer a client's initialize with: its own when we speak it,
// else our newest.
std::string negotiateRevision(const std::string& requested);

class Server {
  public:
    using Send = std::function<void(const Json& message)>;

    Server(Config config, AgentRunner& runner, AuditLog& audit, Clock clock, Send send);

    void receive(std::string_view line);

    // Runs the oldest queued call and sends its answer, unless the client
    // cancelled it. False when no call was queued.
    bool runNextCall();
    bool hasQueuedCalls() const;

    // The revision agreed with the client; empty before initialize.
    std::string revision() const;

  private:
    struct Call {
        Json id;
        ToolPlan plan;
        std::shared_ptr<Cancellation> cancellation;
    };

    void handleRequest(const Json& id, const std::string& method, const Json& params);
    void handleNotification(const std::string& method, const Json& params);
    Json initialize(const Json& params);
    void queueCall(const Json& id, const Json& params);
    Json runCall(Call& call);
    void sendError(const Json& id, int code, const std::string& message);

    Config config_;
    AgentRunner& runner_;
    AuditLog& audit_;
    Clock clock_;
    Send send_;

    mutable std::mutex lock_;
    std::string revision_;  // empty until initialize
    std::deque<Call> queue_;
    std::map<std::string, std::shared_ptr<Cancellation>> open_;  // by id, queued or running
};

}  // namespace velmora::mcp
