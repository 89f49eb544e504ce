#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/model/Geometry.h"
#include "core/model/Json.h"

// The agent executable as a broker drives it: one request on standard input,
// one JSON document on standard output and an exit status. Requests are plain
// JSON, written as a broker writes them, so that the tests read the wire form.

namespace velmora::e2e {

struct AgentRun {
    int exitStatus = -1;
    Json response;  // the one document the agent printed; null when there was none
    std::string err;
};

// Runs the agent with `arguments`, `input` on its standard input. Records a test
// failure unless standard output holds exactly one JSON document and a newline.
AgentRun runAgent(const std::vector<std::string>& arguments, const std::string& input = "");

// A request for `target` with these actions; the keys of `extra` (consent,
// screenshotDir, ...) are added to it.
Json makeRequest(const std::string& target, const Json& actions,
                 const Json& extra = Json::object());

// Runs one request in the "run" mode.
AgentRun runRequest(const std::string& target, const Json& actions,
                    const Json& extra = Json::object());

// The receipt at `index` of a run's response (an empty object when there is
// none, with a test failure recorded).
Json receiptAt(const AgentRun& run, size_t index);

// A one-line account of a run's receipts, for failure messages.
std::string summary(const AgentRun& run);

// Sends `assert` requests for `target` until one passes or `seconds` have
// passed; whether one passed. Each request already retries a few times, so
// this only matters on a slow machine. `last` gets the last response.
bool assertEventually(const std::string& target, const Json& selector, const Json& expect,
                      double seconds, AgentRun* last = nullptr);

// Sends `query` requests until the first element matching `selector` has a
// frame that stayed the same over three answers in a row (a new window is
// reported before the window manager has placed it); that frame, or none when
// `seconds` passed first.
std::optional<Rect> settledFrame(const std::string& target, const Json& selector, double seconds);

// The frame of a query result element, when it has one.
std::optional<Rect> elementFrame(const Json& element);

// The SHA-256 of a file's contents as 64 lower-case hexadecimal digits,
// computed by sha256sum; empty when it cannot be read.
std::string sha256OfFile(const std::string& path);

}  // namespace velmora::e2e
