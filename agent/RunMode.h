#pragma once

#include <cstdio>
#include <functional>
#include <string_view>

#include "core/model/Request.h"
#include "core/model/Response.h"

namespace velmora {

// Exit statuses of the run path.
inline constexpr int kExitOk = 0;
inline constexpr int kExitActionsFailed = 2;
inline constexpr int kExitUndecodable = 3;
inline constexpr int kExitUsage = 64;

// The run path shared by the agent and the replay tool: decodes `input` as one
// request; on failure writes a response with sessionId "unknown", no receipts and
// "decode: " + the decoder's words, and returns 3 without calling `run`. Otherwise
// writes what `run` returns and returns 0 when it is ok, else 2.
int runRequest(std::string_view input,
               const std::function<DriverResponse(const DriverRequest&)>& run,
               std::FILE* out = stdout);

// The response for input that could not be decoded.
DriverResponse undecodableResponse(const std::string& reason);

}  // namespace velmora
