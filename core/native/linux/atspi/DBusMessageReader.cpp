#include "core/native/linux/atspi/DBusMessageReader.h"

#include <cstring>

namespace velmora::native::freedesktop {

namespace {

constexpr int64_t kMaxMessageLength =
    int64_t{1} << 27;  // 128 MiB, the largest message the D-Bus wire protocol allows
constexpr uint32_t kMaxArrayLength = uint32_t{1} << 26;  // 64 MiB

uint32_t decode32(const char* at, bool bigEndian) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(at);
    return bigEndian ? (uint32_t{bytes[0]} << 24) | (uint32_t{bytes[1]} << 16) |
                           (uint32_t{bytes[2]} << 8) | uint32_t{bytes[3]}
                     : (uint32_t{bytes[3]} << 24) | (uint32_t{bytes[2]} << 16) |
                           (uint32_t{bytes[1]} << 8) | uint32_t{bytes[0]};
}

uint64_t decode64(const char* at, bool bigEndian) {
    const uint64_t first = decode32(at, bigEndian);
    const uint64_t second = decode32(at + 4, bigEndian);
    return bigEndian ? (first << 32) | second : (second << 32) | first;
}

bool isNameCharacter(char c, bool allowDigit, bool allowHyphen) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' ||
           (allowDigit && c >= '0' && c <= '9') || (allowHyphen && c == '-');
}

bool isValidSignature(std::string_view signature) {
    static constexpr std::string_view kTypes = "ybnqiuxtdsogvh";
    int parentheses = 0;
    int braces = 0;
    for (char c : signature) {
        if (c == '(') {
            ++parentheses;
        } else if (c == ')') {
            if (--parentheses < 0) {
                return false;
            }
        } else if (c == '{') {
            ++braces;
        } else if (c == '}') {
            if (--braces < 0) {
                return false;
            }
        } else if (c != 'a' && kTypes.find(c) == std::string_view::npos) {
            return false;
        }
    }
    return parentheses == 0 && braces == 0 && (signature.empty() || signature.back() != 'a');
}

constexpr std::string_view kBasicTypes = "ybnqiuxtdsogh";
// How deep containers may nest in a value passed over: D-Bus allows 32 arrays
// and 32 structs; answers the reader passes over need far fewer.
constexpr int kDeepestValue = 32;

// The length of the single complete type that starts `type`; 0 when none does.
size_t completeTypeLength(std::string_view type, int depth) {
    if (type.empty() || depth > kDeepestValue) {
        return 0;
    }
    const char first = type.front();
    if (first == 'v' || kBasicTypes.find(first) != std::string_view::npos) {
        return 1;
    }
    if (first == 'a') {
        if (type.size() > 1 && type[1] == '{') {
            // A dict entry: a basic key and one complete value, only in an array.
            if (type.size() < 3 || kBasicTypes.find(type[2]) == std::string_view::npos) {
                return 0;
            }
            const size_t value = completeTypeLength(type.substr(3), depth + 1);
            return value != 0 && type.size() > 3 + value && type[3 + value] == '}' ? 4 + value : 0;
        }
        const size_t element = completeTypeLength(type.substr(1), depth + 1);
        return element != 0 ? 1 + element : 0;
    }
    if (first == '(') {
        size_t at = 1;
        while (at < type.size() && type[at] != ')') {
            const size_t member = completeTypeLength(type.substr(at), depth + 1);
            if (member == 0) {
                return 0;
            }
            at += member;
        }
        return at > 1 && at < type.size() ? at + 1 : 0;
    }
    return 0;
}

size_t alignmentOf(char type) {
    switch (type) {
        case 'y':
        case 'g':
        case 'v':
            return 1;
        case 'n':
        case 'q':
            return 2;
        case 'x':
        case 't':
        case 'd':
        case '(':
        case '{':
            return 8;
        default:
            return 4;
    }
}

// The header fields read here; the others are checked and passed over.
constexpr uint8_t kReplySerial = 5;
constexpr uint8_t kSignature = 8;

}  // namespace

bool isValidUtf8(std::string_view text) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const size_t size = text.size();
    size_t i = 0;
    while (i < size) {
        const unsigned char lead = bytes[i];
        if (lead == 0) {
            return false;  // D-Bus strings hold no nul
        }
        if (lead < 0x80) {
            ++i;
            continue;
        }
        size_t length = 0;
        uint32_t codePoint = 0;
        if ((lead & 0xE0) == 0xC0) {
            length = 2;
            codePoint = lead & 0x1F;
        } else if ((lead & 0xF0) == 0xE0) {
            length = 3;
            codePoint = lead & 0x0F;
        } else if ((lead & 0xF8) == 0xF0) {
            length = 4;
            codePoint = lead & 0x07;
        } else {
            return false;
        }
        if (i + length > size) {
            return false;
        }
        for (size_t k = 1; k < length; ++k) {
            if ((bytes[i + k] & 0xC0) != 0x80) {
                return false;
            }
            codePoint = (codePoint << 6) | (bytes[i + k] & 0x3F);
        }
        const uint32_t smallest = length == 2 ? 0x80 : length == 3 ? 0x800 : 0x10000;
        if (codePoint < smallest || codePoint > 0x10FFFF ||
            (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
            return false;
        }
        i += length;
    }
    return true;
}

bool isValidObjectPath(std::string_view path) {
    if (path.empty() || path.front() != '/') {
        return false;
    }
    if (path.size() == 1) {
        return true;
    }
    bool elementEmpty = true;
    for (size_t i = 1; i < path.size(); ++i) {
        if (path[i] == '/') {
            if (elementEmpty) {
                return false;
            }
            elementEmpty = true;
        } else if (isNameCharacter(path[i], true, false)) {
            elementEmpty = false;
        } else {
            return false;
        }
    }
    return !elementEmpty;
}

bool isValidBusName(std::string_view name) {
    if (name.empty() || name.size() > 255) {
        return false;
    }
    const bool unique = name.front() == ':';
    int elements = 1;
    bool elementStart = true;
    for (size_t i = unique ? 1 : 0; i < name.size(); ++i) {
        const char c = name[i];
        if (c == '.') {
            if (elementStart) {
                return false;
            }
            ++elements;
            elementStart = true;
        } else if (isNameCharacter(c, unique || !elementStart, true)) {
            elementStart = false;
        } else {
            return false;
        }
    }
    return !elementStart && elements >= 2;
}

int64_t dbusMessageLength(std::string_view bytes) {
    if (bytes.size() < 16) {
        return 0;
    }
    const char endianness = bytes[0];
    if ((endianness != 'l' && endianness != 'B') || bytes[3] != 1) {
        return -1;
    }
    const bool bigEndian = endianness == 'B';
    const int64_t bodyLength = decode32(bytes.data() + 4, bigEndian);
    const int64_t fieldsLength = decode32(bytes.data() + 12, bigEndian);
    const int64_t headerLength = (16 + fieldsLength + 7) / 8 * 8;
    const int64_t length = headerLength + bodyLength;
    if (length > kMaxMessageLength) {
        return -1;
    }
    return length;
}

bool DBusBodyReader::align(size_t boundary) {
    const size_t padding = (boundary - offset_ % boundary) % boundary;
    if (!ok_ || offset_ + padding > body_.size()) {
        return fail();
    }
    for (size_t i = 0; i < padding; ++i) {
        if (body_[offset_ + i] != '\0') {
            return fail();
        }
    }
    offset_ += padding;
    return true;
}

bool DBusBodyReader::take(size_t count, const char*& at) {
    if (!ok_ || count > body_.size() - offset_) {
        return fail();
    }
    at = body_.data() + offset_;
    offset_ += count;
    return true;
}

bool DBusBodyReader::byte(uint8_t& out) {
    const char* at = nullptr;
    if (!take(1, at)) {
        return false;
    }
    out = static_cast<uint8_t>(*at);
    return true;
}

bool DBusBodyReader::uint32(uint32_t& out) {
    const char* at = nullptr;
    if (!align(4) || !take(4, at)) {
        return false;
    }
    out = decode32(at, bigEndian_);
    return true;
}

bool DBusBodyReader::int32(int32_t& out) {
    uint32_t bits = 0;
    if (!uint32(bits)) {
        return false;
    }
    std::memcpy(&out, &bits, sizeof out);
    return true;
}

bool DBusBodyReader::float64(double& out) {
    const char* at = nullptr;
    if (!align(8) || !take(8, at)) {
        return false;
    }
    const uint64_t bits = decode64(at, bigEndian_);
    std::memcpy(&out, &bits, sizeof out);
    return true;
}

bool DBusBodyReader::string(std::string_view& out) {
    uint32_t length = 0;
    const char* at = nullptr;
    if (!uint32(length) || length == UINT32_MAX || !take(size_t{length} + 1, at) ||
        at[length] != '\0') {
        return fail();
    }
    out = std::string_view(at, length);
    return isValidUtf8(out) || fail();
}

bool DBusBodyReader::objectPath(std::string_view& out) {
    return (string(out) && isValidObjectPath(out)) || fail();
}

bool DBusBodyReader::signature(std::string_view& out) {
    const char* at = nullptr;
    if (!take(1, at)) {
        return false;
    }
    const auto length = static_cast<unsigned char>(*at);
    if (!take(size_t{length} + 1, at) || at[length] != '\0') {
        return fail();
    }
    out = std::string_view(at, length);
    return isValidSignature(out) || fail();
}

bool DBusBodyReader::beginArray(size_t elementAlignment, size_t& end) {
    uint32_t length = 0;
    if (!uint32(length) || length > kMaxArrayLength || !align(elementAlignment) ||
        length > body_.size() - offset_) {
        return fail();
    }
    end = offset_ + length;
    return true;
}

bool DBusBodyReader::beginVariant(std::string_view& type) {
    return signature(type);
}

bool DBusBodyReader::skip(std::string_view type) {
    if (type.empty() || completeTypeLength(type, 0) != type.size()) {
        return fail();
    }
    return skipValue(type, 0);
}

// `type` is a single complete type, already checked.
bool DBusBodyReader::skipValue(std::string_view type, int depth) {
    std::string_view text;
    uint32_t number = 0;
    uint8_t small = 0;
    const char* at = nullptr;
    switch (type.front()) {
        case 'y':
            return byte(small);
        case 'b':
            return (uint32(number) && number <= 1) || fail();
        case 'n':
        case 'q':
            return align(2) && take(2, at);
        case 'i':
        case 'u':
            return uint32(number);
        case 'x':
        case 't':
        case 'd':
            return align(8) && take(8, at);
        case 's':
            return string(text);
        case 'o':
            return objectPath(text);
        case 'g':
            return signature(text);
        case 'v':
            if (!signature(text) || text.empty() ||
                completeTypeLength(text, depth + 1) != text.size()) {
                return fail();
            }
            return skipValue(text, depth + 1);
        case 'a': {
            const std::string_view element = type.substr(1);
            size_t end = 0;
            if (!beginArray(alignmentOf(element.front()), end)) {
                return false;
            }
            while (more(end)) {
                if (!skipValue(element, depth + 1)) {
                    return false;
                }
            }
            return ok_;
        }
        case '(':
        case '{': {
            if (!align(8)) {
                return false;
            }
            size_t member = 1;
            while (type[member] != ')' && type[member] != '}') {
                const size_t length = completeTypeLength(type.substr(member), depth + 1);
                if (!skipValue(type.substr(member, length), depth + 1)) {
                    return false;
                }
                member += length;
            }
            return true;
        }
        default:
            return fail();  // a Unix file descriptor
    }
}

std::optional<DBusMessageView> readDBusMessage(std::string_view bytes) {
    const int64_t length = dbusMessageLength(bytes);
    if (length <= 0 || static_cast<size_t>(length) != bytes.size()) {
        return std::nullopt;
    }
    DBusMessageView message;
    message.bigEndian = bytes[0] == 'B';
    message.type = static_cast<uint8_t>(bytes[1]);
    const uint32_t bodyLength = decode32(bytes.data() + 4, message.bigEndian);
    const uint32_t fieldsLength = decode32(bytes.data() + 12, message.bigEndian);

    // The header fields: an array of (code, variant) structs after the 12 fixed
    // bytes, alignment counted from the start of the message.
    DBusBodyReader header(bytes.substr(0, 16 + size_t{fieldsLength}), message.bigEndian);
    uint32_t fixed = 0;
    header.uint32(fixed);  // endianness, type, flags, version
    header.uint32(fixed);  // body length
    header.uint32(fixed);  // serial
    size_t end = 0;
    if (!header.beginArray(8, end)) {
        return std::nullopt;
    }
    while (header.more(end)) {
        uint8_t code = 0;
        std::string_view type;
        if (!header.beginStruct() || !header.byte(code) || !header.beginVariant(type)) {
            return std::nullopt;
        }
        std::string_view text;
        uint32_t number = 0;
        bool read = false;
        if (type == "u") {
            read = header.uint32(number);
        } else if (type == "s") {
            read = header.string(text);
        } else if (type == "o") {
            read = header.objectPath(text);
        } else if (type == "g") {
            read = header.signature(text);
        }
        if (!read) {
            return std::nullopt;  // a field of a type no header field has
        }
        if (code == kReplySerial && type == "u") {
            message.replySerial = number;
        } else if (code == kSignature && type == "g") {
            message.signature = text;
        }
    }
    if (!header.atEnd()) {
        return std::nullopt;
    }
    if ((message.type == DBusMessageView::methodReturn || message.type == DBusMessageView::error) &&
        !message.replySerial) {
        return std::nullopt;
    }
    const size_t bodyStart = static_cast<size_t>(length) - bodyLength;
    for (size_t i = 16 + fieldsLength; i < bodyStart; ++i) {
        if (bytes[i] != '\0') {
            return std::nullopt;  // padding before the body is zero
        }
    }
    // Without a signature, or with an empty one, there is nothing to read a
    // body as: a message that has one anyway is malformed.
    if (bodyLength > 0 && message.signature.empty()) {
        return std::nullopt;
    }
    message.body = bytes.substr(bodyStart);
    return message;
}

}  // namespace velmora::native::freedesktop
