#include "tests/fuzz/AtspiReplyChecks.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <dbus/dbus.h>

#include "core/native/linux/atspi/AtspiCacheIndex.h"
#include "core/native/linux/atspi/AtspiRecord.h"
#include "core/native/linux/atspi/AtspiReplyParser.h"
#include "core/native/linux/atspi/DBusMessageReader.h"

namespace velmora::fuzz {

namespace {

using namespace velmora::native;
using namespace velmora::native::freedesktop;

constexpr AtspiCall kCalls[] = {
    AtspiCall::role,       AtspiCall::name,         AtspiCall::accessibleId,
    AtspiCall::properties, AtspiCall::interfaces,   AtspiCall::states,
    AtspiCall::children,   AtspiCall::childCount,   AtspiCall::childAtIndex,
    AtspiCall::extents,    AtspiCall::currentValue, AtspiCall::characterCount,
    AtspiCall::text,       AtspiCall::cacheItems,   AtspiCall::toolkitName,
    AtspiCall::processId,
};

void require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "AT-SPI reply check failed: %s\n", what);
        std::abort();
    }
}

bool inside(std::string_view part, std::string_view whole) {
    return part.empty() || (part.data() >= whole.data() &&
                            part.data() + part.size() <= whole.data() + whole.size());
}

void requireAddress(const AtspiAddress& address) {
    require(isValidUtf8(address.busName), "a bus name that is not valid UTF-8");
    require(isValidObjectPath(address.path), "an invalid object path");
}

void checkAnswer(const AttributeRead& read) {
    if (read.code != kAXErrorSuccess) {
        require(!read.value.has_value(), "a failed read with a value");
        return;
    }
    if (read.value && read.value->type == AttributeValue::Type::text) {
        require(isValidUtf8(read.value->text), "an answer text that is not valid UTF-8");
    }
}

void checkList(const AtspiListAnswer& list, const AtspiRecord& record) {
    if (list.code != kAXErrorSuccess) {
        require(list.addresses.empty(), "a failed list with addresses");
        return;
    }
    require(record.children.ok() && list.addresses == record.children.value,
            "a child list that is not the record's");
    for (const auto& address : list.addresses) {
        requireAddress(address);
    }
}

// Every check of one parsed answer; the record takes what it answers.
void checkReply(AtspiCall call, const AtspiReply& reply, AtspiRecord& record) {
    require(!reply.unanswered, "a parsed message reported as unanswered");
    if (!reply.ok) {
        return;
    }
    require(isValidUtf8(reply.text), "a text that is not valid UTF-8");
    for (const auto& reference : reply.references) {
        requireAddress(reference);
    }
    for (const auto& item : reply.items) {
        requireAddress(item.object);
        requireAddress(item.parent);
        require(isValidUtf8(item.name), "a cached name that is not valid UTF-8");
    }
    switch (call) {
        case AtspiCall::role:
            record.role.answer(reply.number);
            break;
        case AtspiCall::name:
            record.name.answer(reply.text);
            break;
        case AtspiCall::accessibleId:
            record.accessibleId.answer(reply.text);
            break;
        case AtspiCall::properties:
            if (reply.properties.name) {
                require(isValidUtf8(*reply.properties.name), "a name that is not valid UTF-8");
                record.name.answer(*reply.properties.name);
            }
            if (reply.properties.accessibleId) {
                require(isValidUtf8(*reply.properties.accessibleId),
                        "an identifier that is not valid UTF-8");
                record.accessibleId.answer(*reply.properties.accessibleId);
            }
            break;
        case AtspiCall::interfaces:
            record.interfaces.answer(reply.interfaces);
            break;
        case AtspiCall::states:
            record.states.answer(reply.states);
            break;
        case AtspiCall::children: {
            std::vector<AtspiAddress> children;
            for (const auto& reference : reply.references) {
                if (reference.path != kAtspiNullPath) {
                    children.push_back(reference);
                }
            }
            record.childRoles.assign(children.size(), {});
            record.children.answer(std::move(children));
            break;
        }
        case AtspiCall::childAtIndex:
            require(reply.references.size() == 1, "GetChildAtIndex answered with other than one");
            break;
        case AtspiCall::extents:
            record.extents.answer(reply.extents);
            break;
        case AtspiCall::currentValue:
            record.currentValue.answer(reply.real);
            break;
        case AtspiCall::characterCount:
            record.characterCount.answer(reply.integer);
            break;
        case AtspiCall::text:
            record.text.answer(reply.text);
            break;
        case AtspiCall::childCount:
        case AtspiCall::toolkitName:
        case AtspiCall::processId:
            break;
        case AtspiCall::cacheItems: {
            if (reply.items.empty()) {
                break;
            }
            const std::string busName = reply.items.front().object.busName;
            AtspiCacheIndex index(busName, reply.items);
            require(index.size() == reply.items.size(), "the cache index lost items");
            for (const auto& item : reply.items) {
                const auto* entry = index.find(item.object);
                if (item.object.busName != busName) {
                    require(entry == nullptr, "an object of another application found");
                    continue;
                }
                require(entry != nullptr, "a cached object not found");
            }
            // The children's roles of a combo box come from the cache as well.
            for (size_t i = 0; i < record.childRoles.size() && i < reply.items.size(); ++i) {
                record.childRoles[i].answer(reply.items[i].role);
            }
            break;
        }
    }
}

// libdbus as the second opinion on a body: a method return with exactly this
// body and signature, in the message's byte order, built here around it, must
// be one that libdbus accepts (dbus_message_demarshal checks every value against
// the signature). A body this reader accepts and libdbus refuses has been misread.
bool libdbusAcceptsBody(const DBusMessageView& message) {
    const bool big = message.bigEndian;
    std::string bytes;
    auto put32 = [&](uint32_t value) {
        for (int i = 0; i < 4; ++i) {
            const int shift = big ? 24 - 8 * i : 8 * i;
            bytes += static_cast<char>((value >> shift) & 0xff);
        }
    };
    auto pad8 = [&] {
        while (bytes.size() % 8 != 0) {
            bytes += '\0';
        }
    };
    bytes += big ? 'B' : 'l';
    bytes += '\2';  // method return
    bytes += '\0';
    bytes += '\1';
    put32(static_cast<uint32_t>(message.body.size()));
    put32(1);  // serial
    std::string fields;
    {
        std::string saved;
        saved.swap(bytes);
        // reply serial: (5, variant "u")
        bytes += '\5';
        bytes += '\1';
        bytes += 'u';
        bytes += '\0';
        put32(1);
        // signature: (8, variant "g"), 8-aligned inside the array
        bytes += '\10';
        bytes += '\1';
        bytes += 'g';
        bytes += '\0';
        bytes += static_cast<char>(message.signature.size());
        bytes.append(message.signature);
        bytes += '\0';
        fields.swap(bytes);
        bytes.swap(saved);
    }
    put32(static_cast<uint32_t>(fields.size()));
    bytes += fields;
    pad8();
    bytes.append(message.body);
    DBusError error;
    dbus_error_init(&error);
    DBusMessage* parsed =
        dbus_message_demarshal(bytes.data(), static_cast<int>(bytes.size()), &error);
    dbus_error_free(&error);
    if (parsed == nullptr) {
        return false;
    }
    dbus_message_unref(parsed);
    return true;
}

}  // namespace

AtspiReplyStatistics checkAtspiReplies(std::string_view bytes) {
    AtspiReplyStatistics statistics;
    AtspiRecord record;

    // The whole input as one message too: lengths that do not match are refused.
    if (auto whole = readDBusMessage(bytes)) {
        require(dbusMessageLength(bytes) == static_cast<int64_t>(bytes.size()),
                "a message read at another length than its own");
        require(inside(whole->body, bytes), "a body outside the message");
    }

    std::string_view rest = bytes;
    while (true) {
        const int64_t length = dbusMessageLength(rest);
        require(length >= -1 && length <= (int64_t{1} << 27), "a message length out of range");
        if (length < 0 || length == 0 || static_cast<uint64_t>(length) > rest.size()) {
            require(length != 0 || rest.size() < 16, "no length for a whole fixed header");
            break;
        }
        require(length >= 16, "a message shorter than its fixed header");
        const std::string_view bytesOfMessage = rest.substr(0, static_cast<size_t>(length));
        rest.remove_prefix(static_cast<size_t>(length));
        const auto message = readDBusMessage(bytesOfMessage);
        if (!message) {
            continue;
        }
        ++statistics.messages;
        require(inside(message->body, bytesOfMessage), "a body outside the message");
        require(inside(message->signature, bytesOfMessage), "a signature outside the message");
        if (!message->body.empty()) {
            require(!message->signature.empty(), "a body without a signature");
        }
        if (message->type == DBusMessageView::methodReturn ||
            message->type == DBusMessageView::error) {
            require(message->replySerial.has_value(), "an answer that answers no serial");
        }
        if (message->type == DBusMessageView::error) {
            ++statistics.errors;
        }
        for (AtspiCall call : kCalls) {
            const AtspiReply reply = parseAtspiReply(call, *message);
            if (reply.ok) {
                require(message->type == DBusMessageView::methodReturn,
                        "an answer read from other than a method return");
                require(libdbusAcceptsBody(*message),
                        "an answer read from a body that libdbus refuses");
                ++statistics.answers;
            }
            checkReply(call, reply, record);
        }
    }

    // Every attribute the walk reads, from whatever the record now knows.
    checkAnswer(roleAnswer(record));
    checkAnswer(titleAnswer(record));
    checkAnswer(identifierAnswer(record));
    checkAnswer(valueAnswer(record));
    checkAnswer(positionAnswer(record));
    checkAnswer(sizeAnswer(record));
    checkList(childrenAnswer(record), record);
    const AtspiListAnswer windows = windowsAnswer(record);
    if (windows.code == kAXErrorSuccess) {
        checkList(windows, record);
    }
    (void)valueSource(record);
    (void)needsChildRoles(record);
    return statistics;
}

}  // namespace velmora::fuzz
