#include "agent/RunMode.h"

#include <optional>

#include "agent/JsonWriter.h"
#include "core/model/Json.h"

namespace velmora {

DriverResponse undecodableResponse(const std::string& reason) {
    return DriverResponse("unknown", false, {}, "decode: " + reason);
}

int runRequest(std::string_view input,
               const std::function<DriverResponse(const DriverRequest&)>& run, std::FILE* out) {
    std::optional<DriverRequest> request;
    try {
        request = decodeRequestText(input);
    } catch (const DecodeError& error) {
        writeDocument(Json(undecodableResponse(error.what())), out);
        return kExitUndecodable;
    }
    DriverResponse response = run(*request);
    writeDocument(Json(response), out);
    return response.ok ? kExitOk : kExitActionsFailed;
}

}  // namespace velmora
