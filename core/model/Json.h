#pragma once

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

#include "core/model/Manifest.h"
#include "core/model/Request.h"
#include "core/model/Response.h"

// The JSON forms of the wire records.
//
// Decoding is strict: keys are read in each record's declared order and the
// first missing required key, wrong type or unknown action kind fails the
// whole document. A missing key and `null` both mean none for an optional field
// and both fail for a required one. Integer fields take only whole numbers in
// the signed 64-bit range (1.0 and 1e2 are whole). Unknown keys are ignored.
// The error message starts with the failing place, e.g.
// `actions[2].kind: unknown action kind "Click"`.
//
// Encoding leaves optional fields out (no `null` is ever written); key order is
// the writer's business.

namespace velmora {

using Json = nlohmann::json;

class DecodeError : public std::runtime_error {
  public:
    explicit DecodeError(const std::string& message) : std::runtime_error(message) {}
};

// Parses `bytes` as one JSON document, in any encoding JSON allows (UTF-8,
// UTF-16 or UTF-32 in either byte order, with or without a byte-order mark; see
// JsonEncoding.h). A syntax or encoding error is a DecodeError that names the
// line and column in the text as UTF-8.
Json parseJson(std::string_view bytes);

// Parses `text` and decodes it as a request.
DriverRequest decodeRequestText(std::string_view text);
DriverRequest decodeRequest(const Json& document);
DriverAction decodeAction(const Json& value, const std::string& path);
ElementSelector decodeSelector(const Json& value, const std::string& path);
ElementInfo decodeElementInfo(const Json& value, const std::string& path);
StructuralState decodeStructuralState(const Json& value, const std::string& path);
ActionReceipt decodeReceipt(const Json& value, const std::string& path);
DriverResponse decodeResponse(const Json& document);
SelfCheck decodeSelfCheck(const Json& document);
DriverInstanceManifest decodeManifest(const Json& document);

void to_json(Json& out, const Point& value);
void to_json(Json& out, const Rect& value);
void to_json(Json& out, const ElementSelector& value);
void to_json(Json& out, const ScrollSpec& value);
void to_json(Json& out, const Expectation& value);
void to_json(Json& out, const ConsentScope& value);
void to_json(Json& out, const DriverAction& value);
void to_json(Json& out, const DriverRequest& value);
void to_json(Json& out, const ElementInfo& value);
void to_json(Json& out, const StructuralState& value);
void to_json(Json& out, const ActionReceipt& value);
void to_json(Json& out, const DriverResponse& value);
void to_json(Json& out, const SelfCheck& value);
void to_json(Json& out, const DriverInstanceManifest& value);

}  // namespace velmora
