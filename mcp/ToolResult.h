#pragma once

#include <optional>
#include <string>

#include "core/model/Json.h"
#include "core/model/Response.h"
#include "mcp/PngScale.h"
#include "mcp/Tools.h"

// What a client sees of one call: the receipts as structured content, trimmed
// for a model's context (elements listed up to the plan's limit with the total
// stated, values only when asked, the role histogram cut to its largest
// entries), and a short text summary.

namespace velmora::mcp {

// Roles a structural state lists at most; the rest are counted.
inline constexpr size_t kRolesListed = 8;

// The structured content for an agent's response.
Json structuredResult(const ToolPlan& plan, const DriverResponse& response,
                      const std::optional<ScaledPng>& image);

// The text summary of a structured result.
std::string summaryText(const ToolPlan& plan, const Json& structured);

// The tools/call result: `isError` when the agent's response is not ok. With
// `structuredOutput` (revision 2025-06-18) the structured content rides along
// and the text is the summary; older revisions get the structured result as a
// JSON text block after the summary instead.
Json toolResult(const ToolPlan& plan, const DriverResponse& response,
                const std::optional<ScaledPng>& image, bool structuredOutput);

// A failed call that produced no response: `isError` with the text alone.
Json toolErrorResult(const std::string& text);

}  // namespace velmora::mcp
