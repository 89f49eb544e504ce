#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

// Reading D-Bus messages off the wire, for the pipelined reader's answers.
//
// The answers come by the thousand; handing each to libdbus to demarshal costs
// more than the rest of their handling together. This reads just what the
// reader needs - the message's type, the serial it answers, its signature and
// its body - with every offset and length checked against the bytes at hand,
// and strings, object paths and signatures checked as the D-Bus specification
// requires, so that a malformed answer is refused rather than misread.

namespace velmora::native::freedesktop {

// The length of the message that starts `bytes` when at least its fixed header
// is there (16 bytes): 0 while fewer bytes are at hand, -1 when they cannot
// start a D-Bus message.
int64_t dbusMessageLength(std::string_view bytes);

// The parts of one complete message that routing and reading its body need.
struct DBusMessageView {
    enum Type : uint8_t { methodCall = 1, methodReturn = 2, error = 3, signal = 4 };
    uint8_t type = 0;
    bool bigEndian = false;
    std::optional<uint32_t> replySerial;
    std::string_view signature;  // of the body; empty for none
    std::string_view body;
};

// Reads a complete message (`bytes` holds exactly its dbusMessageLength bytes).
// None when its header is malformed.
std::optional<DBusMessageView> readDBusMessage(std::string_view bytes);

// A cursor over a message body, for values of known types. Every read checks
// bounds and alignment (counted from the start of the body, which starts the
// message's body on an 8-byte boundary) and fails, leaving the reader failed,
// on anything out of place.
class DBusBodyReader {
  public:
    DBusBodyReader(std::string_view body, bool bigEndian) : body_(body), bigEndian_(bigEndian) {}

    bool byte(uint8_t& out);
    bool uint32(uint32_t& out);
    bool int32(int32_t& out);
    bool float64(double& out);
    bool string(std::string_view& out);      // valid UTF-8, no nul
    bool objectPath(std::string_view& out);  // a valid object path
    bool signature(std::string_view& out);   // a valid signature
    // An array: its length and the padding before its first element, whose
    // alignment is `elementAlignment`; `end` is the offset just past its last.
    bool beginArray(size_t elementAlignment, size_t& end);
    // Whether another element of the array ending at `end` follows. An element
    // that ran past the array's end fails the reader: its bytes belong to what
    // comes after the array.
    bool more(size_t end) {
        if (ok_ && offset_ > end) {
            fail();
        }
        return ok_ && offset_ < end;
    }
    bool beginStruct() { return align(8); }
    // A variant: its one-type signature, then the reader is at its value.
    bool beginVariant(std::string_view& type);
    // Passes over one value of `type`, which must be a single complete type;
    // every part of the value is checked as if it were read. Unix file
    // descriptors, which only come with the message that carries them, fail.
    bool skip(std::string_view type);

    bool ok() const { return ok_; }
    bool atEnd() const { return ok_ && offset_ == body_.size(); }

  private:
    bool skipValue(std::string_view type, int depth);
    bool align(size_t boundary);
    bool take(size_t count, const char*& at);
    bool fail() { return ok_ = false; }

    std::string_view body_;
    bool bigEndian_;
    size_t offset_ = 0;
    bool ok_ = true;
};

bool isValidUtf8(std::string_view text);
bool isValidObjectPath(std::string_view path);
// A unique (":1.42") or well-known ("org.a11y.atspi.Registry") bus name.
bool isValidBusName(std::string_view name);

}  // namespace velmora::native::freedesktop
