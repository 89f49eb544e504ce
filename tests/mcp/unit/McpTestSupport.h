#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/model/Json.h"
#include "mcp/AgentRunner.h"
#include "mcp/AuditLog.h"
#include "mcp/Config.h"
#include "mcp/Server.h"

namespace velmora::mcp::testing {

// A fresh directory, removed with everything in it at the end.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    const std::filesystem::path& path() const { return path_; }
    std::string file(const std::string& name) const { return (path_ / name).string(); }

  private:
    std::filesystem::path path_;
};

// An agent runner that records each request and answers as told.
class FakeRunner : public AgentRunner {
  public:
    using Answer = std::function<AgentOutcome(const Json& request, const Cancellation&)>;

    AgentOutcome run(const std::string& requestText, std::chrono::milliseconds timeLimit,
                     const Cancellation& cancellation) override;

    Answer answer;  // default: an ok response with one receipt per action
    std::vector<Json> requests;
    std::vector<std::chrono::milliseconds> timeLimits;
};

// An agent's response document for `request`, one receipt per action, all
// succeeding unless `ok` is false (then the last fails with `errorMessage`).
Json agentResponse(const Json& request, bool ok = true,
                   const std::string& errorMessage = "element not found: x");
Json receiptFor(const Json& action, const std::string& target);

AgentOutcome exitedWith(const Json& response, int exitStatus = -1);

// A server with a fake agent, an audit log in a temporary directory and a
// fixed clock, collecting what it sends.
class Harness {
  public:
    explicit Harness(Config config = testConfig(""));

    static Config testConfig(const std::string& auditPath);

    void sendLine(const std::string& line) { server->receive(line); }
    void send(const Json& message) { server->receive(message.dump()); }
    // Sends initialize (and the initialized notification); the result.
    Json initialize(const std::string& revision = "2025-06-18");
    // Sends a tools/call and runs it; the one message answered.
    Json call(const std::string& tool, const Json& arguments, const Json& id = 7);
    // The messages sent since the last take.
    std::vector<Json> take();

    TempDir dir;
    Config config;
    FakeRunner runner;
    std::unique_ptr<AuditLog> audit;
    std::unique_ptr<Server> server;
    std::vector<Json> sent;
};

Json request(const Json& id, const std::string& method, const Json& params = nullptr);

}  // namespace velmora::mcp::testing
