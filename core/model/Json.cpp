#include "core/model/Json.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string_view>
#include <vector>

#include "core/model/JsonEncoding.h"
#include "core/model/Protocol.h"

namespace velmora {

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& reason) {
    throw DecodeError(path.empty() ? reason : path + ": " + reason);
}

std::string memberPath(const std::string& path, const char* key) {
    return path.empty() ? std::string(key) : path + "." + key;
}

std::string elementPath(const std::string& path, size_t index) {
    return path + "[" + std::to_string(index) + "]";
}

[[noreturn]] void wrongType(const Json& value, const std::string& path, const char* expected) {
    fail(path, std::string("expected ") + expected + ", found " + value.type_name());
}

std::string asString(const Json& value, const std::string& path) {
    if (!value.is_string()) {
        wrongType(value, path, "a string");
    }
    return value.get<std::string>();
}

bool asBool(const Json& value, const std::string& path) {
    if (!value.is_boolean()) {
        wrongType(value, path, "a boolean");
    }
    return value.get<bool>();
}

double asDouble(const Json& value, const std::string& path) {
    if (!value.is_number()) {
        wrongType(value, path, "a number");
    }
    double number = value.get<double>();
    if (!std::isfinite(number)) {
        fail(path, "number is not finite");
    }
    return number;
}

// A whole number in the signed 64-bit range. 1.0 and 1e2 are whole; 1.5 is not.
int64_t asInt(const Json& value, const std::string& path) {
    if (value.is_number_integer() && !value.is_number_unsigned()) {
        return value.get<int64_t>();
    }
    if (value.is_number_unsigned()) {
        uint64_t number = value.get<uint64_t>();
        if (number > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
            fail(path, "number " + value.dump() + " is out of the 64-bit integer range");
        }
        return static_cast<int64_t>(number);
    }
    if (value.is_number_float()) {
        double number = value.get<double>();
        if (!std::isfinite(number) || number != std::trunc(number)) {
            fail(path, "expected a whole number, found " + value.dump());
        }
        // +-2^63 are exactly representable and every double strictly between them
        // fits. -2^63 itself is refused: as a double it is what integer literals just
        // below the range (-9223372036854775809 and on) round to, while the in-range
        // integer -9223372036854775808 never arrives here as a double.
        if (number <= -9223372036854775808.0 || number >= 9223372036854775808.0) {
            fail(path, "number " + value.dump() + " is out of the 64-bit integer range");
        }
        return static_cast<int64_t>(number);
    }
    wrongType(value, path, "an integer");
}

template <typename Decode>
auto asList(const Json& value, const std::string& path, Decode decode) {
    if (!value.is_array()) {
        wrongType(value, path, "an array");
    }
    std::vector<decltype(decode(value, path))> items;
    items.reserve(value.size());
    for (size_t i = 0; i < value.size(); ++i) {
        items.push_back(decode(value[i], elementPath(path, i)));
    }
    return items;
}

std::vector<std::string> asStringList(const Json& value, const std::string& path) {
    return asList(value, path, asString);
}

Point asPoint(const Json& value, const std::string& path);
Rect asRect(const Json& value, const std::string& path);

// Reads one object's members, in the order the caller asks for them.
class ObjectReader {
  public:
    ObjectReader(const Json& value, std::string path) : value_(value), path_(std::move(path)) {
        if (!value_.is_object()) {
            wrongType(value_, path_.empty() ? "" : path_, "an object");
        }
    }

    // A present, non-null member, or none.
    template <typename Decode>
    auto optional(const char* key, Decode decode) const
        -> std::optional<decltype(decode(std::declval<const Json&>(), std::string()))> {
        auto found = value_.find(key);
        if (found == value_.end() || found->is_null()) {
            return std::nullopt;
        }
        return decode(*found, memberPath(path_, key));
    }

    // A member that must be there; `null` fails through the decoder's type check.
    template <typename Decode>
    auto required(const char* key, Decode decode) const {
        auto found = value_.find(key);
        if (found == value_.end()) {
            fail(memberPath(path_, key), "missing required key");
        }
        return decode(*found, memberPath(path_, key));
    }

  private:
    const Json& value_;
    std::string path_;
};

Point asPoint(const Json& value, const std::string& path) {
    ObjectReader reader(value, path);
    Point point;
    point.x = reader.required("x", asDouble);
    point.y = reader.required("y", asDouble);
    return point;
}

Rect asRect(const Json& value, const std::string& path) {
    ObjectReader reader(value, path);
    Rect rect;
    rect.x = reader.required("x", asDouble);
    rect.y = reader.required("y", asDouble);
    rect.width = reader.required("width", asDouble);
    rect.height = reader.required("height", asDouble);
    return rect;
}

std::string quotedText(const std::string& text) {
    return Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
}

ActionKind asKind(const Json& value, const std::string& path) {
    // Any misspelt kind fits; a longer one is named by its start, not repeated whole.
    constexpr size_t kQuotedKindBytes = 64;
    std::string raw = asString(value, path);
    auto kind = actionKindFromRaw(raw);
    if (!kind) {
        if (raw.size() <= kQuotedKindBytes) {
            fail(path, "unknown action kind " + quotedText(raw));
        }
        size_t end = kQuotedKindBytes;
        while (end > 0 && (static_cast<unsigned char>(raw[end]) & 0xC0) == 0x80) {
            --end;  // end on a whole UTF-8 sequence
        }
        fail(path, "unknown action kind of " + std::to_string(raw.size()) + " bytes starting " +
                       quotedText(raw.substr(0, end)));
    }
    return *kind;
}

ScrollSpec asScroll(const Json& value, const std::string& path) {
    ObjectReader reader(value, path);
    ScrollSpec spec;
    spec.dx = reader.required("dx", asInt);
    spec.dy = reader.required("dy", asInt);
    spec.at = reader.optional("at", asPoint);
    return spec;
}

Expectation asExpectation(const Json& value, const std::string& path) {
    ObjectReader reader(value, path);
    Expectation expectation;
    expectation.exists = reader.optional("exists", asBool);
    expectation.valueEquals = reader.optional("valueEquals", asString);
    expectation.valueContains = reader.optional("valueContains", asString);
    expectation.minCount = reader.optional("minCount", asInt);
    return expectation;
}

ConsentScope asConsent(const Json& value, const std::string& path) {
    ObjectReader reader(value, path);
    ConsentScope consent;
    consent.allowScreenshots = reader.optional("allowScreenshots", asBool).value_or(true);
    consent.trainingCorpus = reader.optional("trainingCorpus", asBool).value_or(false);
    return consent;
}

// Builds the document as the library's own parser does (a repeated key keeps its
// last value), but words failures so that they stay short and name their place:
// the library reports a number too large for a double without any position, and
// quotes the whole offending token, which may be most of a hostile input.
class DocumentBuilder final : public nlohmann::json_sax<Json> {
  public:
    explicit DocumentBuilder(std::string_view text) : text_(text) {}

    bool null() override { return put(Json(nullptr)); }
    bool boolean(bool value) override { return put(Json(value)); }
    bool number_integer(number_integer_t value) override { return put(Json(value)); }
    bool number_unsigned(number_unsigned_t value) override { return put(Json(value)); }
    bool number_float(number_float_t value, const string_t&) override { return put(Json(value)); }
    bool string(string_t& value) override { return put(Json(std::move(value))); }
    bool binary(binary_t& value) override { return put(Json::binary(std::move(value))); }

    bool start_object(std::size_t) override { return open(Json::object()); }
    bool key(string_t& key) override {
        member_ = &(*open_.back())[std::move(key)];
        return true;
    }
    bool end_object() override { return close(); }
    bool start_array(std::size_t) override { return open(Json::array()); }
    bool end_array() override { return close(); }

    bool parse_error(std::size_t position, const std::string& lastToken,
                     const nlohmann::json::exception& error) override {
        std::string message = error.what();
        // Drop the library's "[json.exception.parse_error.101] " tag; keep its words.
        if (!message.empty() && message.front() == '[') {
            auto close = message.find("] ");
            if (close != std::string::npos) {
                message.erase(0, close + 2);
            }
        }
        shortenQuotes(message, lastToken);
        if (message.find(" at line ") == std::string::npos) {
            message += " at " + lineAndColumn(position);
        }
        failure_ = std::move(message);
        return false;
    }

    Json take() { return std::move(root_); }
    const std::string& failure() const { return failure_; }

  private:
    // A quoted token longer than this is cut to its end, where the failure is.
    static constexpr size_t kQuotedBytes = 48;

    bool put(Json&& value) {
        place(std::move(value));
        return true;
    }

    Json* place(Json&& value) {
        if (open_.empty()) {
            root_ = std::move(value);
            return &root_;
        }
        Json& container = *open_.back();
        if (container.is_array()) {
            container.push_back(std::move(value));
            return &container.back();
        }
        *member_ = std::move(value);
        return member_;
    }

    // A container stays where it was placed while it is open: its parent only
    // grows again after it closes.
    bool open(Json&& container) {
        open_.push_back(place(std::move(container)));
        return true;
    }

    bool close() {
        open_.pop_back();
        return true;
    }

    void shortenQuotes(std::string& message, const std::string& token) const {
        if (token.size() <= kQuotedBytes) {
            return;
        }
        size_t from = token.size() - kQuotedBytes;
        while (from < token.size() && (static_cast<unsigned char>(token[from]) & 0xC0) == 0x80) {
            ++from;  // start on a whole UTF-8 sequence
        }
        std::string excerpt = "..." + token.substr(from);
        for (size_t at = message.find(token); at != std::string::npos;
             at = message.find(token, at + excerpt.size())) {
            message.replace(at, token.size(), excerpt);
        }
    }

    // `position` counts the bytes read, the failing one included.
    std::string lineAndColumn(size_t position) const {
        position = std::min(position, text_.size());
        size_t line = 1;
        size_t lineStart = 0;
        for (size_t i = 0; i < position; ++i) {
            if (text_[i] == '\n') {
                ++line;
                lineStart = i + 1;
            }
        }
        return "line " + std::to_string(line) + ", column " + std::to_string(position - lineStart);
    }

    std::string_view text_;
    Json root_;
    std::vector<Json*> open_;
    Json* member_ = nullptr;
    std::string failure_;
};

template <typename T>
void putOptional(Json& out, const char* key, const std::optional<T>& value) {
    if (value) {
        out[key] = *value;
    }
}

}  // namespace

Json parseJson(std::string_view bytes) {
    std::string converted;
    const std::string_view text = jsonTextAsUtf8(bytes, converted);
    DocumentBuilder builder(text);
    if (!Json::sax_parse(text.begin(), text.end(), &builder)) {
        throw DecodeError("invalid JSON: " + builder.failure());
    }
    return builder.take();
}

ElementSelector decodeSelector(const Json& value, const std::string& path) {
    ObjectReader reader(value, path);
    ElementSelector selector;
    selector.role = reader.optional("role", asString);
    selector.title = reader.optional("title", asString);
    selector.identifier = reader.optional("identifier", asString);
    selector.valueContains = reader.optional("valueContains", asString);
    selector.index = reader.optional("index", asInt);
    return selector;
}

DriverAction decodeAction(const Json& value, const std::string& path) {
    ObjectReader reader(value, path);
    DriverAction action;
    action.kind = reader.required("kind", asKind);
    action.selector = reader.optional("selector", decodeSelector);
    action.text = reader.optional("text", asString);
    action.keys = reader.optional("keys", asStringList);
    action.point = reader.optional("point", asPoint);
    action.scroll = reader.optional("scroll", asScroll);
    action.expect = reader.optional("expect", asExpectation);
    action.label = reader.optional("label", asString);
    return action;
}

DriverRequest decodeRequest(const Json& document) {
    ObjectReader reader(document, "");
    auto protocolVersion = reader.optional("protocolVersion", asString);
    auto sessionId = reader.required("sessionId", asString);
    auto seatLease = reader.required("seatLease", asString);
    auto targetBundleId = reader.required("targetBundleId", asString);
    auto targetAppName = reader.optional("targetAppName", asString);
    auto approvedApps = reader.optional("approvedApps", asStringList);
    auto deniedApps = reader.optional("deniedApps", asStringList);
    auto decodeActions = [](const Json& value, const std::string& path) {
        return asList(value, path, decodeAction);
    };
    auto actions = reader.required("actions", decodeActions);
    auto consent = reader.optional("consent", asConsent);
    auto screenshotDir = reader.optional("screenshotDir", asString);
    return DriverRequest(std::move(sessionId), std::move(seatLease), std::move(targetBundleId),
                         std::move(actions), std::move(targetAppName), std::move(approvedApps),
                         deniedApps.value_or(std::vector<std::string>{}), consent,
                         std::move(screenshotDir), protocolVersion.value_or(kDriverBrokerProtocol));
}

DriverRequest decodeRequestText(std::string_view text) {
    return decodeRequest(parseJson(text));
}

ElementInfo decodeElementInfo(const Json& value, const std::string& path) {
    ObjectReader reader(value, path);
    ElementInfo info;
    info.role = reader.required("role", asString);
    info.title = reader.optional("title", asString);
    info.identifier = reader.optional("identifier", asString);
    info.valuePresent = reader.required("valuePresent", asBool);
    info.value = reader.optional("value", asString);
    info.frame = reader.optional("frame", asRect);
    return info;
}

StructuralState decodeStructuralState(const Json& value, const std::string& path) {
    ObjectReader reader(value, path);
    StructuralState state;
    state.frontmostBundleId = reader.optional("frontmostBundleId", asString);
    state.elementCount = reader.required("elementCount", asInt);
    auto histogram = [](const Json& map, const std::string& mapPath) {
        if (!map.is_object()) {
            wrongType(map, mapPath, "an object");
        }
        std::map<std::string, int64_t> counts;
        for (const auto& [role, count] : map.items()) {
            counts[role] = asInt(count, memberPath(mapPath, role.c_str()));
        }
        return counts;
    };
    state.roleHistogram = reader.required("roleHistogram", histogram);
    return state;
}

ActionReceipt decodeReceipt(const Json& value, const std::string& path) {
    ObjectReader reader(value, path);
    ActionReceipt receipt;
    receipt.schema = reader.required("schema", asString);
    receipt.action = reader.required("action", asString);
    receipt.label = reader.optional("label", asString);
    receipt.bundleIdentifier = reader.required("bundleIdentifier", asString);
    receipt.binarySha256 = reader.required("binarySha256", asString);
    receipt.frontmostTargetMatch = reader.required("frontmostTargetMatch", asBool);
    receipt.postActionStructuralState =
        reader.required("postActionStructuralState", decodeStructuralState);
    receipt.succeeded = reader.required("succeeded", asBool);
    receipt.reversible = reader.required("reversible", asBool);
    receipt.ts = reader.required("ts", asString);
    receipt.receiptId = reader.required("receiptId", asString);
    receipt.screenshotPath = reader.optional("screenshotPath", asString);
    receipt.queryResult = reader.optional(
        "queryResult",
        [](const Json& list, const std::string& p) { return asList(list, p, decodeElementInfo); });
    receipt.errorMessage = reader.optional("errorMessage", asString);
    return receipt;
}

DriverResponse decodeResponse(const Json& document) {
    ObjectReader reader(document, "");
    auto protocolVersion = reader.required("protocolVersion", asString);
    auto sessionId = reader.required("sessionId", asString);
    auto ok = reader.required("ok", asBool);
    auto receipts = reader.required("receipts", [](const Json& list, const std::string& p) {
        return asList(list, p, decodeReceipt);
    });
    auto error = reader.optional("error", asString);
    return DriverResponse(std::move(sessionId), ok, std::move(receipts), std::move(error),
                          std::move(protocolVersion));
}

SelfCheck decodeSelfCheck(const Json& document) {
    ObjectReader reader(document, "");
    SelfCheck check;
    check.protocolVersion = reader.required("protocolVersion", asString);
    check.accessibilityTrusted = reader.required("accessibilityTrusted", asBool);
    check.screenRecordingGranted = reader.required("screenRecordingGranted", asBool);
    check.healthy = reader.required("healthy", asBool);
    return check;
}

DriverInstanceManifest decodeManifest(const Json& document) {
    ObjectReader reader(document, "");
    DriverInstanceManifest manifest;
    manifest.kind = reader.required("kind", asString);
    manifest.surface = reader.required("surface", asString);
    manifest.capabilities = reader.required("capabilities", asStringList);
    manifest.requiresLease = reader.required("requiresLease", asBool);
    manifest.endpoint = reader.required("endpoint", asString);
    manifest.protocolVersion = reader.required("protocolVersion", asString);
    manifest.bundleIdentifier = reader.required("bundleIdentifier", asString);
    manifest.platform = reader.required("platform", asString);
    return manifest;
}

void to_json(Json& out, const Point& value) {
    out = Json{{"x", value.x}, {"y", value.y}};
}

void to_json(Json& out, const Rect& value) {
    out = Json{{"x", value.x}, {"y", value.y}, {"width", value.width}, {"height", value.height}};
}

void to_json(Json& out, const ElementSelector& value) {
    out = Json::object();
    putOptional(out, "role", value.role);
    putOptional(out, "title", value.title);
    putOptional(out, "identifier", value.identifier);
    putOptional(out, "valueContains", value.valueContains);
    putOptional(out, "index", value.index);
}

void to_json(Json& out, const ScrollSpec& value) {
    out = Json{{"dx", value.dx}, {"dy", value.dy}};
    putOptional(out, "at", value.at);
}

void to_json(Json& out, const Expectation& value) {
    out = Json::object();
    putOptional(out, "exists", value.exists);
    putOptional(out, "valueEquals", value.valueEquals);
    putOptional(out, "valueContains", value.valueContains);
    putOptional(out, "minCount", value.minCount);
}

void to_json(Json& out, const ConsentScope& value) {
    out = Json{{"allowScreenshots", value.allowScreenshots},
               {"trainingCorpus", value.trainingCorpus}};
}

void to_json(Json& out, const DriverAction& value) {
    out = Json{{"kind", rawValue(value.kind)}};
    putOptional(out, "selector", value.selector);
    putOptional(out, "text", value.text);
    putOptional(out, "keys", value.keys);
    putOptional(out, "point", value.point);
    putOptional(out, "scroll", value.scroll);
    putOptional(out, "expect", value.expect);
    putOptional(out, "label", value.label);
}

void to_json(Json& out, const DriverRequest& value) {
    out = Json{{"protocolVersion", value.protocolVersion},
               {"sessionId", value.sessionId},
               {"seatLease", value.seatLease},
               {"targetBundleId", value.targetBundleId},
               {"approvedApps", value.approvedApps},
               {"deniedApps", value.deniedApps},
               {"actions", value.actions}};
    putOptional(out, "targetAppName", value.targetAppName);
    putOptional(out, "consent", value.consent);
    putOptional(out, "screenshotDir", value.screenshotDir);
}

void to_json(Json& out, const ElementInfo& value) {
    out = Json{{"role", value.role}, {"valuePresent", value.valuePresent}};
    putOptional(out, "title", value.title);
    putOptional(out, "identifier", value.identifier);
    putOptional(out, "value", value.value);
    putOptional(out, "frame", value.frame);
}

void to_json(Json& out, const StructuralState& value) {
    out = Json{{"elementCount", value.elementCount}, {"roleHistogram", Json(value.roleHistogram)}};
    putOptional(out, "frontmostBundleId", value.frontmostBundleId);
}

void to_json(Json& out, const ActionReceipt& value) {
    out = Json{{"schema", value.schema},
               {"action", value.action},
               {"bundleIdentifier", value.bundleIdentifier},
               {"binarySha256", value.binarySha256},
               {"frontmostTargetMatch", value.frontmostTargetMatch},
               {"postActionStructuralState", value.postActionStructuralState},
               {"succeeded", value.succeeded},
               {"reversible", value.reversible},
               {"ts", value.ts},
               {"receiptId", value.receiptId}};
    putOptional(out, "label", value.label);
    putOptional(out, "screenshotPath", value.screenshotPath);
    putOptional(out, "queryResult", value.queryResult);
    putOptional(out, "errorMessage", value.errorMessage);
}

void to_json(Json& out, const DriverResponse& value) {
    out = Json{{"protocolVersion", value.protocolVersion},
               {"sessionId", value.sessionId},
               {"ok", value.ok},
               {"receipts", value.receipts}};
    putOptional(out, "error", value.error);
}

void to_json(Json& out, const SelfCheck& value) {
    out = Json{{"protocolVersion", value.protocolVersion},
               {"accessibilityTrusted", value.accessibilityTrusted},
               {"screenRecordingGranted", value.screenRecordingGranted},
               {"healthy", value.healthy}};
}

void to_json(Json& out, const DriverInstanceManifest& value) {
    out = Json{{"kind", value.kind},
               {"surface", value.surface},
               {"capabilities", value.capabilities},
               {"requiresLease", value.requiresLease},
               {"endpoint", value.endpoint},
               {"protocolVersion", value.protocolVersion},
               {"bundleIdentifier", value.bundleIdentifier},
               {"platform", value.platform}};
}

}  // namespace velmora
