#pragma once

#include "mcp/Server.h"

// Serves one client over standard input and output: this thread reads lines
// and hands them to the server; a second thread runs the queued tool calls one
// after another. At the end of the input the queued calls still run and are
// answered, then it returns. Only protocol messages reach standard output.

namespace velmora::mcp {

// Lines longer than this are answered with a parse error and skipped.
inline constexpr size_t kMaxLineBytes = size_t{64} << 20;

// Writes one message to standard output, whole; false once the client is gone.
bool writeMessage(const Json& message);

// Reads `inputFd` to its end, feeding `server`. Returns 0.
int serveStdio(Server& server, int inputFd);

}  // namespace velmora::mcp
