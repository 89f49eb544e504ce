#include "mcp/ToolResult.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <vector>

#include "mcp/Base64.h"

namespace velmora::mcp {

namespace {

Json summariseState(const StructuralState& state) {
    std::vector<std::pair<std::string, int64_t>> roles(state.roleHistogram.begin(),
                                                       state.roleHistogram.end());
    std::stable_sort(roles.begin(), roles.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    Json histogram = Json::object();
    for (size_t i = 0; i < roles.size() && i < kRolesListed; ++i) {
        histogram[roles[i].first] = roles[i].second;
    }
    Json summary = {
        {"elementCount", state.elementCount},
        {"roleHistogram", histogram},
        {"rolesLeftOut", roles.size() > kRolesListed ? roles.size() - kRolesListed : 0}};
    if (state.frontmostBundleId) {
        summary["frontmostBundleId"] = *state.frontmostBundleId;
    }
    return summary;
}

Json summariseReceipt(const ActionReceipt& receipt, const ToolPlan& plan) {
    Json out = {{"schema", receipt.schema},
                {"receiptId", receipt.receiptId},
                {"ts", receipt.ts},
                {"action", receipt.action},
                {"bundleIdentifier", receipt.bundleIdentifier},
                {"binarySha256", receipt.binarySha256},
                {"frontmostTargetMatch", receipt.frontmostTargetMatch},
                {"succeeded", receipt.succeeded},
                {"reversible", receipt.reversible},
                {"postActionStructuralState", summariseState(receipt.postActionStructuralState)}};
    if (receipt.label) {
        out["label"] = *receipt.label;
    }
    if (receipt.errorMessage) {
        out["errorMessage"] = *receipt.errorMessage;
    }
    if (receipt.screenshotPath) {
        out["screenshotPath"] = *receipt.screenshotPath;
    }
    if (receipt.queryResult) {
        Json listed = Json::array();
        for (size_t i = 0; i < receipt.queryResult->size() &&
                           i < static_cast<size_t>(std::max<int64_t>(0, plan.maxElements));
             ++i) {
            ElementInfo element = (*receipt.queryResult)[i];
            if (!plan.includeValues) {
                element.value.reset();
            }
            listed.push_back(element);
        }
        out["queryResult"] = listed;
        out["queryResultCount"] = receipt.queryResult->size();
    }
    return out;
}

std::string number(double value) {
    std::ostringstream text;
    text << value;
    return text.str();
}

std::string describeElement(const Json& element) {
    std::string text = element.value("role", "?");
    if (element.contains("title")) {
        text += " \"" + element["title"].get<std::string>() + "\"";
    }
    if (element.contains("identifier")) {
        text += " #" + element["identifier"].get<std::string>();
    }
    if (element.contains("value")) {
        text += " value \"" + element["value"].get<std::string>() + "\"";
    }
    if (element.contains("frame")) {
        const Json& f = element["frame"];
        text += " at " + number(f["x"].get<double>()) + "," + number(f["y"].get<double>()) + " " +
                number(f["width"].get<double>()) + "x" + number(f["height"].get<double>());
    }
    return text;
}

}  // namespace

Json structuredResult(const ToolPlan& plan, const DriverResponse& response,
                      const std::optional<ScaledPng>& image) {
    Json receipts = Json::array();
    for (const auto& receipt : response.receipts) {
        receipts.push_back(summariseReceipt(receipt, plan));
    }
    Json out = {{"ok", response.ok},
                {"sessionId", response.sessionId},
                {"target", plan.target},
                {"receipts", receipts}};
    if (response.error) {
        out["error"] = *response.error;
    }
    if (image) {
        out["image"] = {{"mimeType", "image/png"},
                        {"width", image->width},
                        {"height", image->height},
                        {"screenshotWidth", image->sourceWidth},
                        {"screenshotHeight", image->sourceHeight},
                        {"scale", image->scale}};
    }
    return out;
}

std::string summaryText(const ToolPlan& plan, const Json& structured) {
    std::string text = plan.tool + " on " + plan.target + ": ";
    if (structured.contains("error")) {
        return text + "refused: " + structured["error"].get<std::string>();
    }
    text += structured.value("ok", false) ? "ok" : "failed";
    for (const auto& receipt : structured["receipts"]) {
        text += "\n- " + receipt.value("action", "?");
        if (receipt.contains("label")) {
            text += " [" + receipt["label"].get<std::string>() + "]";
        }
        const Json& state = receipt["postActionStructuralState"];
        if (receipt.value("succeeded", false)) {
            text += ": succeeded";
        } else {
            text += ": FAILED";
            if (receipt.contains("errorMessage")) {
                text += ": " + receipt["errorMessage"].get<std::string>();
            }
        }
        text += std::string("; target ") +
                (receipt.value("frontmostTargetMatch", false) ? "frontmost" : "not frontmost");
        if (state.contains("frontmostBundleId") && !receipt.value("frontmostTargetMatch", false)) {
            text += " (frontmost: " + state["frontmostBundleId"].get<std::string>() + ")";
        }
        text += "; " + std::to_string(state.value("elementCount", 0)) + " elements after";
        if (receipt.contains("queryResultCount")) {
            size_t total = receipt["queryResultCount"].get<size_t>();
            size_t listed = receipt["queryResult"].size();
            text += "\n  found " + std::to_string(total) + " element" + (total == 1 ? "" : "s");
            if (listed < total) {
                text += ", first " + std::to_string(listed) + " listed";
            }
            for (const auto& element : receipt["queryResult"]) {
                text += "\n  " + describeElement(element);
            }
        }
    }
    if (structured.contains("image")) {
        const Json& image = structured["image"];
        text += "\nimage " + std::to_string(image["width"].get<int>()) + "x" +
                std::to_string(image["height"].get<int>()) + " of a " +
                std::to_string(image["screenshotWidth"].get<int>()) + "x" +
                std::to_string(image["screenshotHeight"].get<int>()) + " screenshot, scale " +
                number(image["scale"].get<double>()) +
                ": a point (x, y) in the image is (x / scale, y / scale) on the screen";
    }
    return text;
}

Json toolResult(const ToolPlan& plan, const DriverResponse& response,
                const std::optional<ScaledPng>& image, bool structuredOutput) {
    Json structured = structuredResult(plan, response, image);
    Json content = Json::array({{{"type", "text"}, {"text", summaryText(plan, structured)}}});
    if (image) {
        content.push_back(
            {{"type", "image"}, {"data", base64(image->png)}, {"mimeType", "image/png"}});
    }
    Json result = {{"content", content}, {"isError", !response.ok}};
    if (structuredOutput) {
        result["structuredContent"] = structured;
    } else {
        result["content"].push_back(
            {{"type", "text"},
             {"text", structured.dump(-1, ' ', false, Json::error_handler_t::replace)}});
    }
    return result;
}

Json toolErrorResult(const std::string& text) {
    return {{"content", Json::array({{{"type", "text"}, {"text", text}}})}, {"isError", true}};
}

}  // namespace velmora::mcp
