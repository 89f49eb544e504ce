#include "agent/JsonWriter.h"

#include <cmath>
#include <vector>

#include "core/text/NumberText.h"
#include "core/text/Utf8.h"

namespace velmora {

namespace {

void appendHex4(std::string& out, unsigned value) {
    static constexpr char kDigits[] = "0123456789abcdef";
    out += "\\u";
    for (int shift = 12; shift >= 0; shift -= 4) {
        out += kDigits[(value >> shift) & 0xF];
    }
}

bool isPlain(unsigned char c) {
    return c >= 0x20 && c < 0x80 && c != '"' && c != '\\' && c != '/';
}

// A string in quotes, with only the escapes JSON requires and every "/" as
// "\/". Ill-formed UTF-8 becomes U+FFFD, one per maximal ill-formed sequence.
void appendString(std::string& out, const std::string& text) {
    out += '"';
    for (size_t at = 0; at < text.size();) {
        // Printable ASCII other than the quote, the backslash and the slash is
        // copied as it stands, a run at a time: most texts are nothing else.
        size_t plain = at;
        while (plain < text.size() && isPlain(static_cast<unsigned char>(text[plain]))) {
            ++plain;
        }
        if (plain > at) {
            out.append(text, at, plain - at);
            at = plain;
            continue;
        }
        const unsigned char c = static_cast<unsigned char>(text[at]);
        if (c >= 0x80) {
            const Utf8Character character = readUtf8(text, at);
            if (character.wellFormed) {
                out.append(text, at, character.length);
            } else {
                appendUtf8(out, kReplacementCharacter);
            }
            at += character.length;
            continue;
        }
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '/':
                out += "\\/";
                break;
            case '\b':
                out += "\\b";
                break;
            case '\f':
                out += "\\f";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20) {
                    appendHex4(out, c);
                } else {
                    out += static_cast<char>(c);
                }
        }
        ++at;
    }
    out += '"';
}

// Anything but a non-empty object or array; false, for a number JSON cannot
// write (infinite or not a number).
bool appendScalar(std::string& out, const Json& value) {
    switch (value.type()) {
        case Json::value_t::object:
            out += "{}";
            break;
        case Json::value_t::array:
            out += "[]";
            break;
        case Json::value_t::string:
            appendString(out, value.get_ref<const std::string&>());
            break;
        case Json::value_t::boolean:
            out += value.get<bool>() ? "true" : "false";
            break;
        case Json::value_t::number_integer:
            out += std::to_string(value.get<int64_t>());
            break;
        case Json::value_t::number_unsigned:
            out += std::to_string(value.get<uint64_t>());
            break;
        case Json::value_t::number_float:
            if (!std::isfinite(value.get<double>())) {
                return false;
            }
            out += jsonNumberText(value.get<double>());
            break;
        default:
            out += "null";
            break;
    }
    return true;
}

bool opensLevel(const Json& value) {
    return value.is_structured() && !value.empty();
}

void indent(std::string& out, size_t depth) {
    out += '\n';
    out.append(2 * depth, ' ');
}

// An object or array being written: where it stands and what comes next.
struct Level {
    const Json* container;
    Json::const_iterator next;
    size_t depth;
};

}  // namespace

std::optional<std::string> renderDocument(const Json& document) {
    // Two-space indentation, one member per line, "key": value. Objects keep
    // their keys in a std::map, so every level comes out sorted.
    // A document with a number JSON cannot write is not written at all.
    std::string out;
    std::vector<Level> open;
    auto write = [&](const Json& value, size_t depth) {
        if (!opensLevel(value)) {
            return appendScalar(out, value);
        }
        out += value.is_object() ? '{' : '[';
        open.push_back(Level{&value, value.cbegin(), depth});
        return true;
    };
    if (!write(document, 0)) {
        return std::nullopt;
    }
    while (!open.empty()) {
        Level& level = open.back();
        const bool first = level.next == level.container->cbegin();
        if (level.next == level.container->cend()) {
            const bool object = level.container->is_object();
            const size_t depth = level.depth;
            open.pop_back();
            indent(out, depth);
            out += object ? '}' : ']';
            continue;
        }
        if (!first) {
            out += ',';
        }
        indent(out, level.depth + 1);
        const auto member = level.next++;
        if (level.container->is_object()) {
            appendString(out, member.key());
            out += ": ";
        }
        // `level` may move when a nested level opens; it is not used after this.
        if (!write(*member, level.depth + 1)) {
            return std::nullopt;
        }
    }
    out += '\n';
    return out;
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
