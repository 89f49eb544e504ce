// velmora-mcp: an MCP server over standard input and output that drives
// desktop applications through velmora-agent, one agent process per tool call.

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "mcp/AuditLog.h"
#include "mcp/ChildProcess.h"
#include "mcp/Config.h"
#include "mcp/Server.h"
#include "mcp/StdioLoop.h"

using namespace velmora::mcp;

int main(int argc, char** argv) {
    std::vector<std::string> arguments(argv + 1, argv + argc);
    if (!arguments.empty() && (arguments[0] == "--help" || arguments[0] == "-h")) {
        std::cout << usageText();
        return 0;
    }
    if (!arguments.empty() && arguments[0] == "--version") {
        std::cout << kServerName << " " << kServerVersion << "\n";
        return 0;
    }
    if (!arguments.empty() && arguments[0] == "verify-log") {
        if (arguments.size() != 2) {
            std::cerr << "usage: velmora-mcp verify-log FILE\n";
            return 64;
        }
        std::string report;
        int status = verifyLogCommand(arguments[1], report);
        (status == 0 ? std::cout : std::cerr) << report << "\n";
        return status;
    }
    Config config;
    try {
        config = parseArguments(arguments, systemDefaults());
    } catch (const ConfigError& error) {
        std::cerr << "velmora-mcp: " << error.what() << "\n(velmora-mcp --help shows the usage)\n";
        return 64;
    }
    // A client or a child that goes away must not end us with SIGPIPE.
    ::signal(SIGPIPE, SIG_IGN);

    PosixProcessSystem system;
    SystemSteadyClock steady;
    ChildProcessRunner runner(config.agentPath, system, steady);
    AuditLog audit(config.auditLogPath, velmora::Clock::system());
    Server server(config, runner, audit, velmora::Clock::system(),
                  [](const velmora::Json& message) { writeMessage(message); });
    return serveStdio(server, STDIN_FILENO);
}
