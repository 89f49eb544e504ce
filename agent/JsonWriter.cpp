#include "agent/JsonWriter.h"

#include <cmath>
#include <vector>

namespace velmora {

namespace {

// Walks without recursion: documents may be deep.
bool allNumbersFinite(const Json& document) {
    std::vector<const Json*> pending{&document};
    while (!pending.empty()) {
        const Json* value = pending.back();
        pending.pop_back();
        if (value->is_number_float() && !std::isfinite(value->get<double>())) {
            return false;
        }
        if (value->is_structured()) {
            for (const auto& child : *value) {
                pending.push_back(&child);
            }
        }
    }
    return true;
}

}  // namespace

std::optional<std::string> renderDocument(const Json& document) {
    if (!allNumbersFinite(document)) {
        return std::nullopt;
    }
    // Objects keep their keys in a std::map, so every level comes out sorted.
    std::string text = document.dump(2, ' ', false, Json::error_handler_t::replace);
    // A slash can only stand inside a string in JSON text, so escaping every
    // slash of the text escapes exactly the slashes of the strings.
    std::string escaped;
    escaped.reserve(text.size() + 16);
    for (char c : text) {
        if (c == '/') {
            escaped += '\\';
        }
        escaped += c;
    }
    escaped += '\n';
    return escaped;
}

bool writeDocument(const Json& document, std::FILE* out) {
    auto text = renderDocument(document);
    if (!text) {
        return false;
    }
    std::fwrite(text->data(), 1, text->size(), out);
    std::fflush(out);
    return true;
}

}  // namespace velmora
