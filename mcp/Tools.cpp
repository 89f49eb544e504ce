#include "mcp/Tools.h"

#include <cmath>
#include <cstdint>
#include <set>
#include <vector>

namespace velmora::mcp {

namespace {

const char* const kTargetText =
    "The application: its desktop-entry id on Linux (e.g. \"org.xfce.mousepad\", "
    "\"galculator\"), its bundle identifier on macOS. It must be approved by the server's "
    "policy.";

Json stringSchema(const char* description) {
    return {{"type", "string"}, {"description", description}};
}

Json targetSchema() {
    return {{"type", "string"}, {"minLength", 1}, {"description", kTargetText}};
}

Json pointSchema() {
    return {{"type", "object"},
            {"description", "A screen position in points"},
            {"properties", {{"x", {{"type", "number"}}}, {"y", {{"type", "number"}}}}},
            {"required", {"x", "y"}},
            {"additionalProperties", false}};
}

Json selectorSchema() {
    return {{"type", "object"},
            {"description",
             "Picks accessibility elements; every field narrows the match (role as on macOS, "
             "e.g. AXButton, AXToggleButton, AXTextArea; title is the accessible name)"},
            {"properties",
             {{"role", {{"type", "string"}}},
              {"title", {{"type", "string"}}},
              {"identifier", {{"type", "string"}}},
              {"valueContains", {{"type", "string"}}},
              {"index", {{"type", "integer"}, {"description", "which match, from 0"}}}}},
            {"additionalProperties", false}};
}

Json expectSchema() {
    return {
        {"type", "object"},
        {"description", "What must hold for the matching elements (default: at least one exists)"},
        {"properties",
         {{"exists", {{"type", "boolean"}}},
          {"valueEquals", {{"type", "string"}}},
          {"valueContains", {{"type", "string"}, {"description", "case-insensitive"}}},
          {"minCount", {{"type", "integer"}}}}},
        {"additionalProperties", false}};
}

Json maxElementsSchema() {
    return {{"type", "integer"},
            {"minimum", 0},
            {"description",
             "Elements listed at most (the server's default otherwise); the total is always "
             "stated"}};
}

Json includeValuesSchema() {
    return {{"type", "boolean"},
            {"description", "Keep the elements' values (left out unless asked)"}};
}

Json actionSchema() {
    Json scroll = {
        {"type", "object"},
        {"properties",
         {{"dx", {{"type", "integer"}}}, {"dy", {{"type", "integer"}}}, {"at", pointSchema()}}},
        {"required", {"dx", "dy"}}};
    return {{"type", "object"},
            {"properties",
             {{"kind",
               {{"type", "string"},
                {"enum",
                 {"launch", "focus", "click", "doubleClick", "typeText", "keyPress", "scroll",
                  "query", "assert", "screenshot", "frontmost", "healthTick"}}}},
              {"selector", selectorSchema()},
              {"text", {{"type", "string"}}},
              {"keys", {{"type", "array"}, {"items", {{"type", "string"}}}}},
              {"point", pointSchema()},
              {"scroll", scroll},
              {"expect", expectSchema()},
              {"label", {{"type", "string"}}}}},
            {"required", {"kind"}}};
}

struct ToolInfo {
    const char* name;
    const char* title;
    const char* description;
    Json properties;
    std::vector<std::string> required;
};

std::vector<ToolInfo> tools() {
    Json target = targetSchema();
    return {
        {"run_actions",
         "Run actions",
         "Runs a list of actions against one application in one agent request, in the "
         "request's own form (kinds: launch, focus, click, doubleClick, typeText, keyPress, "
         "scroll, query, assert, screenshot, frontmost, healthTick). Every action gets a "
         "receipt; all actions run even after a failure.",
         {{"target", target},
          {"actions", {{"type", "array"}, {"items", actionSchema()}}},
          {"maxElements", maxElementsSchema()},
          {"includeValues", includeValuesSchema()}},
         {"target", "actions"}},
        {"launch_app",
         "Launch application",
         "Launches the application (or finds it running).",
         {{"target", target}},
         {"target"}},
        {"focus_app",
         "Focus application",
         "Brings the application to the front.",
         {{"target", target}},
         {"target"}},
        {"click",
         "Click",
         "Clicks an element found by a selector (at its centre) or a screen point, after "
         "bringing the application to the front.",
         {{"target", target},
          {"selector", selectorSchema()},
          {"point", pointSchema()},
          {"double", {{"type", "boolean"}, {"description", "a double click"}}},
          {"label", stringSchema("A label for the receipt")}},
         {"target"}},
        {"type_text",
         "Type text",
         "Types text into the application's focused element.",
         {{"target", target},
          {"text", {{"type", "string"}}},
          {"label", stringSchema("A label for the receipt")}},
         {"target", "text"}},
        {"press_keys",
         "Press keys",
         "Presses key chords in order, e.g. [\"ctrl+a\", \"Delete\", \"Return\"].",
         {{"target", target},
          {"keys", {{"type", "array"}, {"items", {{"type", "string"}}}, {"minItems", 1}}},
          {"label", stringSchema("A label for the receipt")}},
         {"target", "keys"}},
        {"scroll",
         "Scroll",
         "Scrolls by dx, dy (positive dy scrolls up), at a point or where the pointer is.",
         {{"target", target},
          {"dx", {{"type", "integer"}}},
          {"dy", {{"type", "integer"}}},
          {"at", pointSchema()},
          {"label", stringSchema("A label for the receipt")}},
         {"target", "dx", "dy"}},
        {"find_elements",
         "Find elements",
         "Lists the application's accessibility elements that match a selector (all without "
         "one): role, title, identifier, frame; at most maxElements of them, with the total.",
         {{"target", target}, {"selector", selectorSchema()}, {"maxElements", maxElementsSchema()}},
         {"target"}},
        {"wait_for",
         "Wait for",
         "Checks that elements matching the selector meet an expectation, retrying a few times "
         "while the application settles; an unmet expectation is an error.",
         {{"target", target},
          {"selector", selectorSchema()},
          {"expect", expectSchema()},
          {"maxElements", maxElementsSchema()},
          {"includeValues", includeValuesSchema()},
          {"label", stringSchema("A label for the receipt")}},
         {"target", "selector"}},
        {"screenshot",
         "Screenshot",
         "Captures the screen as a PNG image, scaled down to fit maxWidth x maxHeight; the "
         "result states the scale, so a point (x, y) in the image is (x / scale, y / scale) on "
         "the screen.",
         {{"target", target},
          {"maxWidth", {{"type", "integer"}, {"minimum", 16}, {"maximum", 8192}}},
          {"maxHeight", {{"type", "integer"}, {"minimum", 16}, {"maximum", 8192}}}},
         {"target"}},
        {"frontmost",
         "Frontmost",
         "Tells whether the application is frontmost, and which one is.",
         {{"target", target}},
         {"target"}},
    };
}

const ToolInfo* findTool(const std::string& name) {
    static const std::vector<ToolInfo> all = tools();
    for (const auto& tool : all) {
        if (name == tool.name) {
            return &tool;
        }
    }
    return nullptr;
}

[[noreturn]] void invalid(const std::string& message) {
    throw InvalidArguments(message);
}

// The arguments object of one call.
class Arguments {
  public:
    Arguments(const Json& arguments, const ToolInfo& tool) : arguments_(arguments) {
        if (!arguments_.is_object()) {
            invalid(std::string("arguments of ") + tool.name + " must be an object");
        }
        for (const auto& [key, value] : arguments_.items()) {
            if (!tool.properties.contains(key)) {
                invalid(std::string("unknown argument \"") + key + "\" for " + tool.name);
            }
        }
        for (const auto& key : tool.required) {
            if (!arguments_.contains(key) || arguments_[key].is_null()) {
                invalid(std::string("missing argument \"") + key + "\" for " + tool.name);
            }
        }
    }

    bool has(const char* key) const {
        return arguments_.contains(key) && !arguments_[key].is_null();
    }
    const Json& at(const char* key) const { return arguments_.at(key); }

    std::string string(const char* key) const {
        if (!at(key).is_string()) {
            invalid(std::string("argument \"") + key + "\" must be a string");
        }
        return at(key).get<std::string>();
    }

    bool boolean(const char* key, bool otherwise) const {
        if (!has(key)) {
            return otherwise;
        }
        if (!at(key).is_boolean()) {
            invalid(std::string("argument \"") + key + "\" must be true or false");
        }
        return at(key).get<bool>();
    }

    int64_t integer(const char* key, int64_t otherwise, int64_t lowest, int64_t highest) const {
        if (!has(key)) {
            return otherwise;
        }
        const Json& value = at(key);
        int64_t number = 0;
        if (value.is_number_integer()) {
            number = value.is_number_unsigned() && value.get<uint64_t>() > uint64_t{INT64_MAX}
                         ? INT64_MAX
                         : value.get<int64_t>();
        } else if (value.is_number_float() && std::isfinite(value.get<double>()) &&
                   std::floor(value.get<double>()) == value.get<double>() &&
                   std::fabs(value.get<double>()) < 9e18) {
            number = static_cast<int64_t>(value.get<double>());
        } else {
            invalid(std::string("argument \"") + key + "\" must be a whole number");
        }
        if (number < lowest || number > highest) {
            invalid(std::string("argument \"") + key + "\" must be from " + std::to_string(lowest) +
                    " to " + std::to_string(highest));
        }
        return number;
    }

  private:
    const Json& arguments_;
};

// Checks one action in the request's own form with the agent's own decoder, so
// that a bad action is refused here with the same words.
void checkAction(const Json& action, const std::string& path) {
    try {
        decodeAction(action, path);
    } catch (const DecodeError& error) {
        invalid(error.what());
    }
}

}  // namespace

Json resultSchema() {
    Json frame = {{"type", "object"},
                  {"properties",
                   {{"x", {{"type", "number"}}},
                    {"y", {{"type", "number"}}},
                    {"width", {{"type", "number"}}},
                    {"height", {{"type", "number"}}}}},
                  {"required", {"x", "y", "width", "height"}}};
    Json element = {{"type", "object"},
                    {"properties",
                     {{"role", {{"type", "string"}}},
                      {"title", {{"type", "string"}}},
                      {"identifier", {{"type", "string"}}},
                      {"valuePresent", {{"type", "boolean"}}},
                      {"value", {{"type", "string"}}},
                      {"frame", frame}}},
                    {"required", {"role", "valuePresent"}}};
    Json state = {
        {"type", "object"},
        {"description",
         "The target's accessibility tree after the action, summarised: its element count and "
         "its most frequent roles"},
        {"properties",
         {{"frontmostBundleId", {{"type", "string"}}},
          {"elementCount", {{"type", "integer"}}},
          {"roleHistogram", {{"type", "object"}, {"additionalProperties", {{"type", "integer"}}}}},
          {"rolesLeftOut",
           {{"type", "integer"}, {"description", "roles not listed in roleHistogram"}}}}},
        {"required", {"elementCount", "roleHistogram", "rolesLeftOut"}}};
    Json receipt = {
        {"type", "object"},
        {"description", "The agent's receipt of one action"},
        {"properties",
         {{"schema", {{"type", "string"}}},
          {"receiptId", {{"type", "string"}}},
          {"ts", {{"type", "string"}}},
          {"action", {{"type", "string"}}},
          {"label", {{"type", "string"}}},
          {"bundleIdentifier", {{"type", "string"}}},
          {"binarySha256", {{"type", "string"}}},
          {"frontmostTargetMatch", {{"type", "boolean"}}},
          {"succeeded", {{"type", "boolean"}}},
          {"reversible", {{"type", "boolean"}}},
          {"errorMessage", {{"type", "string"}}},
          {"screenshotPath", {{"type", "string"}}},
          {"postActionStructuralState", state},
          {"queryResult", {{"type", "array"}, {"items", element}}},
          {"queryResultCount",
           {{"type", "integer"}, {"description", "elements found, listed or not"}}}}},
        {"required",
         {"schema", "receiptId", "ts", "action", "bundleIdentifier", "binarySha256",
          "frontmostTargetMatch", "succeeded", "reversible", "postActionStructuralState"}}};
    Json image = {
        {"type", "object"},
        {"properties",
         {{"mimeType", {{"type", "string"}}},
          {"width", {{"type", "integer"}}},
          {"height", {{"type", "integer"}}},
          {"screenshotWidth", {{"type", "integer"}}},
          {"screenshotHeight", {{"type", "integer"}}},
          {"scale",
           {{"type", "number"},
            {"description", "image size / screenshot size; screen x = image x / scale"}}}}},
        {"required",
         {"mimeType", "width", "height", "screenshotWidth", "screenshotHeight", "scale"}}};
    return {{"type", "object"},
            {"properties",
             {{"ok", {{"type", "boolean"}}},
              {"sessionId", {{"type", "string"}}},
              {"target", {{"type", "string"}}},
              {"error", {{"type", "string"}}},
              {"receipts", {{"type", "array"}, {"items", receipt}}},
              {"image", image}}},
            {"required", {"ok", "sessionId", "target", "receipts"}}};
}

Json toolDefinitions(bool withOutputSchemas) {
    Json list = Json::array();
    for (const auto& tool : tools()) {
        Json input = {{"type", "object"},
                      {"properties", tool.properties},
                      {"required", tool.required},
                      {"additionalProperties", false}};
        Json entry = {
            {"name", tool.name}, {"description", tool.description}, {"inputSchema", input}};
        if (withOutputSchemas) {
            entry["title"] = tool.title;
            entry["outputSchema"] = resultSchema();
        }
        list.push_back(std::move(entry));
    }
    return list;
}

bool isKnownTool(const std::string& name) {
    return findTool(name) != nullptr;
}

ToolPlan planToolCall(const std::string& name, const Json& arguments, int64_t defaultMaxElements) {
    const ToolInfo* tool = findTool(name);
    if (tool == nullptr) {
        invalid("unknown tool: " + name);
    }
    Json empty = Json::object();
    Arguments args(arguments.is_null() ? empty : arguments, *tool);
    ToolPlan plan;
    plan.tool = name;
    plan.target = args.string("target");
    if (plan.target.find_first_not_of(" \t") == std::string::npos) {
        invalid("argument \"target\" must name an application");
    }
    plan.maxElements = defaultMaxElements;
    if (tool->properties.contains("maxElements")) {
        plan.maxElements = args.integer("maxElements", defaultMaxElements, 0, 100000);
    }
    plan.includeValues = args.boolean("includeValues", false);

    Json action = Json::object();
    auto copy = [&](const char* key, const char* as) {
        if (args.has(key)) {
            action[as] = args.at(key);
        }
    };
    copy("label", "label");
    if (name == "run_actions") {
        const Json& actions = args.at("actions");
        if (!actions.is_array()) {
            invalid("argument \"actions\" must be a list of actions");
        }
        for (size_t i = 0; i < actions.size(); ++i) {
            checkAction(actions[i], "actions[" + std::to_string(i) + "]");
        }
        plan.actions = actions;
        return plan;
    }
    if (name == "launch_app") {
        action["kind"] = "launch";
    } else if (name == "focus_app") {
        action["kind"] = "focus";
    } else if (name == "frontmost") {
        action["kind"] = "frontmost";
    } else if (name == "click") {
        if (args.has("selector") == args.has("point")) {
            invalid("click needs either \"selector\" or \"point\"");
        }
        action["kind"] = args.boolean("double", false) ? "doubleClick" : "click";
        copy("selector", "selector");
        copy("point", "point");
    } else if (name == "type_text") {
        action["kind"] = "typeText";
        action["text"] = args.string("text");
    } else if (name == "press_keys") {
        action["kind"] = "keyPress";
        copy("keys", "keys");
        if (!action["keys"].is_array() || action["keys"].empty()) {
            invalid("argument \"keys\" must be a non-empty list of key chords");
        }
    } else if (name == "scroll") {
        action["kind"] = "scroll";
        action["scroll"] = {{"dx", args.at("dx")}, {"dy", args.at("dy")}};
        if (args.has("at")) {
            action["scroll"]["at"] = args.at("at");
        }
    } else if (name == "find_elements") {
        action["kind"] = "query";
        copy("selector", "selector");
    } else if (name == "wait_for") {
        action["kind"] = "assert";
        copy("selector", "selector");
        copy("expect", "expect");
    } else if (name == "screenshot") {
        action["kind"] = "screenshot";
        plan.maxWidth = static_cast<int>(args.integer("maxWidth", kDefaultScreenshotBox, 16, 8192));
        plan.maxHeight =
            static_cast<int>(args.integer("maxHeight", kDefaultScreenshotBox, 16, 8192));
    }
    checkAction(action, "arguments");
    plan.actions = Json::array({action});
    return plan;
}

}  // namespace velmora::mcp
