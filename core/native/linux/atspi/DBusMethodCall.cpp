#include "core/native/linux/atspi/DBusMethodCall.h"

#include <cstring>

namespace velmora::native::freedesktop {

namespace {

// Values are written at offsets relative to the start of the message, which is
// where alignment is counted from.
class Writer {
  public:
    Writer(std::string& out) : out_(out), start_(out.size()) {}

    size_t offset() const { return out_.size() - start_; }
    void align(size_t boundary) {
        while (offset() % boundary != 0) {
            out_.push_back('\0');
        }
    }
    void byte(uint8_t value) { out_.push_back(static_cast<char>(value)); }
    void uint32(uint32_t value) {
        align(4);
        char bytes[4];
        for (int i = 0; i < 4; ++i) {
            bytes[i] = static_cast<char>((value >> (8 * i)) & 0xFF);  // little-endian
        }
        out_.append(bytes, 4);
    }
    void patchUint32(size_t at, uint32_t value) {
        for (int i = 0; i < 4; ++i) {
            out_[start_ + at + i] = static_cast<char>((value >> (8 * i)) & 0xFF);
        }
    }
    // A string or object path: length, bytes, terminating nul.
    void string(std::string_view text) {
        uint32(static_cast<uint32_t>(text.size()));
        out_.append(text.data(), text.size());
        out_.push_back('\0');
    }
    // A signature: one-byte length, bytes, terminating nul.
    void signature(std::string_view text) {
        byte(static_cast<uint8_t>(text.size()));
        out_.append(text.data(), text.size());
        out_.push_back('\0');
    }
    // A header field: a struct of its code and a variant of one type.
    void field(uint8_t code, char type, std::string_view value) {
        align(8);
        byte(code);
        const char typeSignature[1] = {type};
        signature(std::string_view(typeSignature, 1));
        if (type == 'g') {
            signature(value);
        } else {
            string(value);
        }
    }

  private:
    std::string& out_;
    size_t start_;
};

constexpr uint8_t kMethodCall = 1;
constexpr uint8_t kProtocolVersion = 1;
enum : uint8_t {
    kFieldPath = 1,
    kFieldInterface = 2,
    kFieldMember = 3,
    kFieldDestination = 6,
    kFieldSignature = 8,
};

}  // namespace

void appendMethodCall(std::string& out, const DBusMethodCall& call) {
    std::string signature;
    for (const auto& argument : call.arguments) {
        signature.push_back(argument.type == DBusArgument::Type::string  ? 's'
                            : argument.type == DBusArgument::Type::int32 ? 'i'
                                                                         : 'u');
    }

    Writer writer(out);
    writer.byte('l');
    writer.byte(kMethodCall);
    writer.byte(0);  // flags: a reply is expected
    writer.byte(kProtocolVersion);
    const size_t bodyLengthAt = writer.offset();
    writer.uint32(0);  // body length, patched below
    writer.uint32(call.serial);
    const size_t fieldsLengthAt = writer.offset();
    writer.uint32(0);  // header fields' length in bytes, patched below
    writer.align(8);
    const size_t fieldsStart = writer.offset();
    writer.field(kFieldPath, 'o', call.path);
    if (!call.destination.empty()) {
        writer.field(kFieldDestination, 's', call.destination);
    }
    writer.field(kFieldInterface, 's', call.interface);
    writer.field(kFieldMember, 's', call.member);
    if (!signature.empty()) {
        writer.field(kFieldSignature, 'g', signature);
    }
    writer.patchUint32(fieldsLengthAt, static_cast<uint32_t>(writer.offset() - fieldsStart));
    writer.align(8);  // the body starts on an 8-byte boundary

    const size_t bodyStart = writer.offset();
    for (const auto& argument : call.arguments) {
        if (argument.type == DBusArgument::Type::string) {
            writer.string(argument.text);
        } else {
            writer.uint32(argument.bits);
        }
    }
    writer.patchUint32(bodyLengthAt, static_cast<uint32_t>(writer.offset() - bodyStart));
}

}  // namespace velmora::native::freedesktop
