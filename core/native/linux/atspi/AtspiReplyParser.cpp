#include "core/native/linux/atspi/AtspiReplyParser.h"

namespace velmora::native::freedesktop {

namespace {

// Readers of answer bodies: each reads one value of the type it expects.

bool readAddress(DBusBodyReader& reader, AtspiAddress& out) {
    std::string_view busName;
    std::string_view path;
    if (!reader.beginStruct() || !reader.string(busName) || !reader.objectPath(path)) {
        return false;
    }
    out.busName.assign(busName);
    out.path.assign(path);
    return true;
}

template <typename ReadOne>
bool readArray(DBusBodyReader& reader, size_t elementAlignment, ReadOne readOne) {
    size_t end = 0;
    if (!reader.beginArray(elementAlignment, end)) {
        return false;
    }
    while (reader.more(end)) {
        if (!readOne()) {
            return false;
        }
    }
    return reader.ok();
}

bool readStates(DBusBodyReader& reader, AtspiStateBits& out) {
    size_t word = 0;
    out = {};
    return readArray(reader, 4, [&] {
        uint32_t bits = 0;
        if (!reader.uint32(bits)) {
            return false;
        }
        if (word < out.size()) {
            out[word] = bits;
        }
        ++word;
        return true;
    });
}

// A list of interface names, as the bits of those the reader uses.
bool readInterfaces(DBusBodyReader& reader, AtspiInterfaces& out) {
    out = 0;
    return readArray(reader, 4, [&] {
        std::string_view name;
        if (!reader.string(name)) {
            return false;
        }
        out |= interfaceNamed(name);
        return true;
    });
}

// One (object, application, parent, index, child count, interfaces, name, role,
// description, states) item of Cache.GetItems.
bool readCacheItem(DBusBodyReader& reader, AtspiCacheItem& item) {
    AtspiAddress application;
    std::string_view name;
    std::string_view description;
    if (!reader.beginStruct() || !readAddress(reader, item.object) ||
        !readAddress(reader, application) || !readAddress(reader, item.parent) ||
        !reader.int32(item.indexInParent) || !reader.int32(item.childCount) ||
        !readInterfaces(reader, item.interfaces) || !reader.string(name) ||
        !reader.uint32(item.role) || !reader.string(description) ||
        !readStates(reader, item.states)) {
        return false;
    }
    item.name.assign(name);
    return true;
}

// Properties.GetAll's a{sv}, keeping the properties the reader uses. A property
// listed twice makes the answer malformed.
bool readAccessibleProperties(DBusBodyReader& reader, AtspiAccessibleProperties& out) {
    return readArray(reader, 8, [&] {
        std::string_view key;
        std::string_view type;
        if (!reader.beginStruct() || !reader.string(key) || !reader.beginVariant(type)) {
            return false;
        }
        std::optional<std::string>* text = key == "Name"           ? &out.name
                                           : key == "AccessibleId" ? &out.accessibleId
                                                                   : nullptr;
        if (text != nullptr && type == "s") {
            std::string_view value;
            if (text->has_value() || !reader.string(value)) {
                return false;
            }
            text->emplace(value);
            return true;
        }
        if (key == "ChildCount" && type == "i") {
            int32_t count = 0;
            if (out.childCount.has_value() || !reader.int32(count)) {
                return false;
            }
            out.childCount = count;
            return true;
        }
        return reader.skip(type);
    });
}

}  // namespace

AtspiReply parseAtspiReply(AtspiCall call, const DBusMessageView& message) {
    AtspiReply reply;
    if (message.type != DBusMessageView::methodReturn) {
        return AtspiReply::failure();
    }
    DBusBodyReader reader(message.body, message.bigEndian);
    const std::string_view signature = message.signature;
    std::string_view type;
    std::string_view text;
    bool ok = false;
    switch (call) {
        case AtspiCall::role:
        case AtspiCall::processId:
            ok = signature == "u" && reader.uint32(reply.number);
            break;
        case AtspiCall::name:
        case AtspiCall::accessibleId:
        case AtspiCall::toolkitName:
            ok =
                signature == "v" && reader.beginVariant(type) && type == "s" && reader.string(text);
            reply.text.assign(text);
            break;
        case AtspiCall::childCount:
        case AtspiCall::characterCount:
            ok = signature == "v" && reader.beginVariant(type) && type == "i" &&
                 reader.int32(reply.integer);
            break;
        case AtspiCall::currentValue:
            ok = signature == "v" && reader.beginVariant(type) && type == "d" &&
                 reader.float64(reply.real);
            break;
        case AtspiCall::properties:
            ok = signature == "a{sv}" && readAccessibleProperties(reader, reply.properties);
            break;
        case AtspiCall::interfaces:
            ok = signature == "as" && readInterfaces(reader, reply.interfaces);
            break;
        case AtspiCall::states:
            ok = signature == "au" && readStates(reader, reply.states);
            break;
        case AtspiCall::children:
            ok = signature == "a(so)" && readArray(reader, 8, [&] {
                     AtspiAddress address;
                     if (!readAddress(reader, address)) {
                         return false;
                     }
                     reply.references.push_back(std::move(address));
                     return true;
                 });
            break;
        case AtspiCall::childAtIndex: {
            AtspiAddress address;
            ok = signature == "(so)" && readAddress(reader, address);
            reply.references.push_back(std::move(address));
            break;
        }
        case AtspiCall::extents:
            ok = signature == "(iiii)" && reader.beginStruct() && reader.int32(reply.extents.x) &&
                 reader.int32(reply.extents.y) && reader.int32(reply.extents.width) &&
                 reader.int32(reply.extents.height);
            break;
        case AtspiCall::text:
            ok = signature == "s" && reader.string(text);
            reply.text.assign(text);
            break;
        case AtspiCall::cacheItems:
            ok = signature == "a((so)(so)(so)iiassusau)" && readArray(reader, 8, [&] {
                     AtspiCacheItem item;
                     if (!readCacheItem(reader, item)) {
                         return false;
                     }
                     reply.items.push_back(std::move(item));
                     return true;
                 });
            break;
    }
    if (!ok || !reader.atEnd()) {
        return AtspiReply::failure();
    }
    reply.ok = true;
    return reply;
}

}  // namespace velmora::native::freedesktop
