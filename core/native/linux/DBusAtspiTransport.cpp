#include "core/native/linux/DBusAtspiTransport.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <unordered_map>
#include <vector>

#include <dbus/dbus.h>

namespace velmora::native::freedesktop {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kAccessibleInterface = "org.a11y.atspi.Accessible";
constexpr const char* kPropertiesInterface = "org.freedesktop.DBus.Properties";
constexpr const char* kRootPath = "/org/a11y/atspi/accessible/root";
constexpr const char* kCachePath = "/org/a11y/atspi/cache";
constexpr uint32_t kScreenCoordinates = 0;  // ATSPI_COORD_TYPE_SCREEN

DBusMessage* methodCall(const char* destination, const std::string& path, const char* interface,
                        const char* member) {
    return dbus_message_new_method_call(destination, path.c_str(), interface, member);
}

DBusMessage* propertyCall(const char* destination, const std::string& path, const char* interface,
                          const char* property) {
    DBusMessage* message = methodCall(destination, path, kPropertiesInterface, "Get");
    if (message != nullptr) {
        dbus_message_append_args(message, DBUS_TYPE_STRING, &interface, DBUS_TYPE_STRING, &property,
                                 DBUS_TYPE_INVALID);
    }
    return message;
}

DBusMessage* messageFor(const AtspiRequest& request, const char* destination) {
    const std::string& path = request.target.path;
    switch (request.call) {
        case AtspiCall::role:
            return methodCall(destination, path, kAccessibleInterface, "GetRole");
        case AtspiCall::name:
            return propertyCall(destination, path, kAccessibleInterface, "Name");
        case AtspiCall::accessibleId:
            return propertyCall(destination, path, kAccessibleInterface, "AccessibleId");
        case AtspiCall::interfaces:
            return methodCall(destination, path, kAccessibleInterface, "GetInterfaces");
        case AtspiCall::states:
            return methodCall(destination, path, kAccessibleInterface, "GetState");
        case AtspiCall::children:
            return methodCall(destination, path, kAccessibleInterface, "GetChildren");
        case AtspiCall::childCount:
            return propertyCall(destination, path, kAccessibleInterface, "ChildCount");
        case AtspiCall::childAtIndex: {
            DBusMessage* message =
                methodCall(destination, path, kAccessibleInterface, "GetChildAtIndex");
            if (message != nullptr) {
                dbus_int32_t index = request.first;
                dbus_message_append_args(message, DBUS_TYPE_INT32, &index, DBUS_TYPE_INVALID);
            }
            return message;
        }
        case AtspiCall::extents: {
            DBusMessage* message =
                methodCall(destination, path, kAtspiComponentInterface, "GetExtents");
            if (message != nullptr) {
                dbus_uint32_t coordinates = kScreenCoordinates;
                dbus_message_append_args(message, DBUS_TYPE_UINT32, &coordinates,
                                         DBUS_TYPE_INVALID);
            }
            return message;
        }
        case AtspiCall::currentValue:
            return propertyCall(destination, path, kAtspiValueInterface, "CurrentValue");
        case AtspiCall::characterCount:
            return propertyCall(destination, path, kAtspiTextInterface, "CharacterCount");
        case AtspiCall::text: {
            DBusMessage* message = methodCall(destination, path, kAtspiTextInterface, "GetText");
            if (message != nullptr) {
                dbus_int32_t start = request.first;
                dbus_int32_t end = request.second;
                dbus_message_append_args(message, DBUS_TYPE_INT32, &start, DBUS_TYPE_INT32, &end,
                                         DBUS_TYPE_INVALID);
            }
            return message;
        }
        case AtspiCall::cacheItems:
            return methodCall(destination, kCachePath, "org.a11y.atspi.Cache", "GetItems");
    }
    return nullptr;
}

// Readers of reply arguments: each checks the type it expects and moves on.

bool readString(DBusMessageIter* it, std::string& out) {
    if (dbus_message_iter_get_arg_type(it) != DBUS_TYPE_STRING &&
        dbus_message_iter_get_arg_type(it) != DBUS_TYPE_OBJECT_PATH) {
        return false;
    }
    const char* value = nullptr;
    dbus_message_iter_get_basic(it, &value);
    out = value != nullptr ? value : "";
    dbus_message_iter_next(it);
    return true;
}

template <typename T>
bool readBasic(DBusMessageIter* it, int type, T& out) {
    if (dbus_message_iter_get_arg_type(it) != type) {
        return false;
    }
    dbus_message_iter_get_basic(it, &out);
    dbus_message_iter_next(it);
    return true;
}

bool readAddress(DBusMessageIter* it, AtspiAddress& out) {
    if (dbus_message_iter_get_arg_type(it) != DBUS_TYPE_STRUCT) {
        return false;
    }
    DBusMessageIter fields;
    dbus_message_iter_recurse(it, &fields);
    if (dbus_message_iter_get_arg_type(&fields) != DBUS_TYPE_STRING ||
        !readString(&fields, out.busName) ||
        dbus_message_iter_get_arg_type(&fields) != DBUS_TYPE_OBJECT_PATH ||
        !readString(&fields, out.path)) {
        return false;
    }
    dbus_message_iter_next(it);
    return true;
}

template <typename ReadOne>
bool readArray(DBusMessageIter* it, ReadOne readOne) {
    if (dbus_message_iter_get_arg_type(it) != DBUS_TYPE_ARRAY) {
        return false;
    }
    DBusMessageIter elements;
    dbus_message_iter_recurse(it, &elements);
    while (dbus_message_iter_get_arg_type(&elements) != DBUS_TYPE_INVALID) {
        if (!readOne(&elements)) {
            return false;
        }
    }
    dbus_message_iter_next(it);
    return true;
}

bool readStates(DBusMessageIter* it, AtspiStateBits& out) {
    size_t word = 0;
    out = {};
    return readArray(it, [&](DBusMessageIter* element) {
        dbus_uint32_t bits = 0;
        if (!readBasic(element, DBUS_TYPE_UINT32, bits)) {
            return false;
        }
        if (word < out.size()) {
            out[word] = bits;
        }
        ++word;
        return true;
    });
}

bool readStrings(DBusMessageIter* it, std::vector<std::string>& out) {
    return readArray(it, [&](DBusMessageIter* element) {
        std::string value;
        if (!readString(element, value)) {
            return false;
        }
        out.push_back(std::move(value));
        return true;
    });
}

bool readCacheItem(DBusMessageIter* it, AtspiCacheItem& item) {
    if (dbus_message_iter_get_arg_type(it) != DBUS_TYPE_STRUCT) {
        return false;
    }
    DBusMessageIter fields;
    dbus_message_iter_recurse(it, &fields);
    AtspiAddress application;
    dbus_int32_t index = 0;
    dbus_int32_t count = 0;
    dbus_uint32_t role = 0;
    std::string description;
    if (!readAddress(&fields, item.object) || !readAddress(&fields, application) ||
        !readAddress(&fields, item.parent) || !readBasic(&fields, DBUS_TYPE_INT32, index) ||
        !readBasic(&fields, DBUS_TYPE_INT32, count) || !readStrings(&fields, item.interfaces) ||
        !readString(&fields, item.name) || !readBasic(&fields, DBUS_TYPE_UINT32, role) ||
        !readString(&fields, description) || !readStates(&fields, item.states)) {
        return false;
    }
    item.indexInParent = index;
    item.childCount = count;
    item.role = role;
    dbus_message_iter_next(it);
    return true;
}

// A property's value, inside the variant that Properties.Get answers.
bool openVariant(DBusMessageIter* it, DBusMessageIter* inner) {
    if (dbus_message_iter_get_arg_type(it) != DBUS_TYPE_VARIANT) {
        return false;
    }
    dbus_message_iter_recurse(it, inner);
    return true;
}

AtspiReply parseReply(AtspiCall call, DBusMessage* message) {
    AtspiReply reply;
    if (dbus_message_get_type(message) != DBUS_MESSAGE_TYPE_METHOD_RETURN) {
        return AtspiReply::failure();
    }
    DBusMessageIter it;
    if (!dbus_message_iter_init(message, &it)) {
        return AtspiReply::failure();
    }
    DBusMessageIter value;
    bool ok = false;
    switch (call) {
        case AtspiCall::role:
            ok = readBasic(&it, DBUS_TYPE_UINT32, reply.number);
            break;
        case AtspiCall::name:
        case AtspiCall::accessibleId:
            ok = openVariant(&it, &value) &&
                 dbus_message_iter_get_arg_type(&value) == DBUS_TYPE_STRING &&
                 readString(&value, reply.text);
            break;
        case AtspiCall::childCount:
        case AtspiCall::characterCount: {
            dbus_int32_t integer = 0;
            ok = openVariant(&it, &value) && readBasic(&value, DBUS_TYPE_INT32, integer);
            reply.integer = integer;
            break;
        }
        case AtspiCall::currentValue:
            ok = openVariant(&it, &value) && readBasic(&value, DBUS_TYPE_DOUBLE, reply.real);
            break;
        case AtspiCall::interfaces:
            ok = readStrings(&it, reply.strings);
            break;
        case AtspiCall::states:
            ok = readStates(&it, reply.states);
            break;
        case AtspiCall::children:
            ok = readArray(&it, [&](DBusMessageIter* element) {
                AtspiAddress address;
                if (!readAddress(element, address)) {
                    return false;
                }
                reply.references.push_back(std::move(address));
                return true;
            });
            break;
        case AtspiCall::childAtIndex: {
            AtspiAddress address;
            ok = readAddress(&it, address);
            reply.references.push_back(std::move(address));
            break;
        }
        case AtspiCall::extents: {
            if (dbus_message_iter_get_arg_type(&it) != DBUS_TYPE_STRUCT) {
                break;
            }
            DBusMessageIter fields;
            dbus_message_iter_recurse(&it, &fields);
            ok = readBasic(&fields, DBUS_TYPE_INT32, reply.extents.x) &&
                 readBasic(&fields, DBUS_TYPE_INT32, reply.extents.y) &&
                 readBasic(&fields, DBUS_TYPE_INT32, reply.extents.width) &&
                 readBasic(&fields, DBUS_TYPE_INT32, reply.extents.height);
            break;
        }
        case AtspiCall::text:
            ok = dbus_message_iter_get_arg_type(&it) == DBUS_TYPE_STRING &&
                 readString(&it, reply.text);
            break;
        case AtspiCall::cacheItems:
            ok = readArray(&it, [&](DBusMessageIter* element) {
                AtspiCacheItem item;
                if (!readCacheItem(element, item)) {
                    return false;
                }
                reply.items.push_back(std::move(item));
                return true;
            });
            break;
    }
    if (!ok) {
        return AtspiReply::failure();
    }
    reply.ok = true;
    return reply;
}

// A blocking call of one method with a string answer, for the lookups done once.
std::optional<std::string> callForString(DBusConnection* connection, DBusMessage* message,
                                         int timeoutMs) {
    if (message == nullptr) {
        return std::nullopt;
    }
    DBusError error;
    dbus_error_init(&error);
    DBusMessage* reply =
        dbus_connection_send_with_reply_and_block(connection, message, timeoutMs, &error);
    dbus_message_unref(message);
    dbus_error_free(&error);
    if (reply == nullptr) {
        return std::nullopt;
    }
    const char* text = nullptr;
    std::optional<std::string> result;
    if (dbus_message_get_args(reply, nullptr, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID) &&
        text != nullptr) {
        result = text;
    }
    dbus_message_unref(reply);
    return result;
}

DBusConnection* openPrivate(const std::string& address, bool registerOnBus) {
    DBusError error;
    dbus_error_init(&error);
    DBusConnection* connection = dbus_connection_open_private(address.c_str(), &error);
    if (connection == nullptr) {
        dbus_error_free(&error);
        return nullptr;
    }
    dbus_connection_set_exit_on_disconnect(connection, FALSE);
    if (registerOnBus && !dbus_bus_register(connection, &error)) {
        dbus_error_free(&error);
        dbus_connection_close(connection);
        dbus_connection_unref(connection);
        return nullptr;
    }
    return connection;
}

std::optional<std::string> accessibilityBusAddress(int timeoutMs) {
    if (const char* address = std::getenv("AT_SPI_BUS_ADDRESS"); address && *address) {
        return std::string(address);
    }
    DBusError error;
    dbus_error_init(&error);
    DBusConnection* session = dbus_bus_get_private(DBUS_BUS_SESSION, &error);
    dbus_error_free(&error);
    if (session == nullptr) {
        return std::nullopt;
    }
    dbus_connection_set_exit_on_disconnect(session, FALSE);
    auto address = callForString(
        session,
        dbus_message_new_method_call("org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress"),
        timeoutMs);
    dbus_connection_close(session);
    dbus_connection_unref(session);
    if (address && address->empty()) {
        return std::nullopt;
    }
    return address;
}

}  // namespace

struct DBusAtspiTransport::Pending {
    AtspiCall call = AtspiCall::role;
    AtspiReplyHandler handler;
    Clock::time_point deadline;
};

struct DBusAtspiTransport::Link {
    DBusConnection* connection = nullptr;
    bool direct = false;
    std::unordered_map<uint32_t, Pending> pending;

    ~Link() {
        if (connection != nullptr) {
            dbus_connection_close(connection);
            dbus_connection_unref(connection);
        }
    }
};

DBusAtspiTransport::DBusAtspiTransport(double timeoutSeconds) : timeoutSeconds_(timeoutSeconds) {}

DBusAtspiTransport::~DBusAtspiTransport() = default;

DBusAtspiTransport::Link* DBusAtspiTransport::busLink() {
    if (!busTried_) {
        busTried_ = true;
        const int timeoutMs = static_cast<int>(timeoutSeconds_ * 1000);
        if (auto address = accessibilityBusAddress(timeoutMs)) {
            if (DBusConnection* connection = openPrivate(*address, true)) {
                bus_ = std::make_unique<Link>();
                bus_->connection = connection;
            }
        }
    }
    return bus_.get();
}

std::optional<std::string> DBusAtspiTransport::peerAddress(const std::string& busName) {
    Link* bus = busLink();
    if (bus == nullptr) {
        return std::nullopt;
    }
    return callForString(
        bus->connection,
        dbus_message_new_method_call(busName.c_str(), kRootPath, "org.a11y.atspi.Application",
                                     "GetApplicationBusAddress"),
        static_cast<int>(timeoutSeconds_ * 1000));
}

DBusAtspiTransport::Link* DBusAtspiTransport::linkFor(const std::string& busName) {
    auto known = peers_.find(busName);
    if (known == peers_.end()) {
        std::unique_ptr<Link> peer;
        if (auto address = peerAddress(busName); address && !address->empty()) {
            if (DBusConnection* connection = openPrivate(*address, false)) {
                peer = std::make_unique<Link>();
                peer->connection = connection;
                peer->direct = true;
            }
        }
        known = peers_.emplace(busName, std::move(peer)).first;
    }
    if (known->second != nullptr) {
        if (dbus_connection_get_is_connected(known->second->connection)) {
            return known->second.get();
        }
        // The application closed the direct connection: fall back to the bus. The
        // link itself is kept until the end, as a pump may be holding it.
        for (auto& [serial, pending] : known->second->pending) {
            refused_.push_back(std::move(pending.handler));
        }
        known->second->pending.clear();
        retired_.push_back(std::move(known->second));
    }
    return busLink();
}

void DBusAtspiTransport::send(const AtspiRequest& request, AtspiReplyHandler handler) {
    Link* link = linkFor(request.target.busName);
    DBusMessage* message = nullptr;
    if (link != nullptr) {
        message = messageFor(request, link->direct ? nullptr : request.target.busName.c_str());
    }
    dbus_uint32_t serial = 0;
    if (message == nullptr || !dbus_connection_send(link->connection, message, &serial)) {
        if (message != nullptr) {
            dbus_message_unref(message);
        }
        refused_.push_back(std::move(handler));
        return;
    }
    dbus_message_unref(message);
    ++statistics_.requests;
    if (link->direct) {
        ++statistics_.directRequests;
    }
    const auto limit =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(timeoutSeconds_));
    link->pending.emplace(serial, Pending{request.call, std::move(handler), Clock::now() + limit});
}

int DBusAtspiTransport::deliverArrived(Link& link) {
    int delivered = 0;
    // Read what the socket holds (and write what is queued) without blocking, then
    // hand out every complete message.
    dbus_connection_read_write(link.connection, 0);
    while (DBusMessage* message = dbus_connection_pop_message(link.connection)) {
        const uint32_t serial = dbus_message_get_reply_serial(message);
        auto found = serial != 0 ? link.pending.find(serial) : link.pending.end();
        if (found != link.pending.end()) {
            Pending pending = std::move(found->second);
            link.pending.erase(found);
            AtspiReply reply = parseReply(pending.call, message);
            dbus_message_unref(message);
            pending.handler(reply);
            ++delivered;
        } else {
            dbus_message_unref(message);  // a signal, or an answer nobody waits for
        }
        if (dbus_connection_get_dispatch_status(link.connection) == DBUS_DISPATCH_COMPLETE) {
            dbus_connection_read_write(link.connection, 0);
        }
    }
    return delivered;
}

int DBusAtspiTransport::expire() {
    const auto now = Clock::now();
    std::vector<AtspiReplyHandler> expired;
    auto collect = [&](Link* link) {
        if (link == nullptr) {
            return;
        }
        for (auto it = link->pending.begin(); it != link->pending.end();) {
            bool lost = !dbus_connection_get_is_connected(link->connection);
            if (lost || it->second.deadline <= now) {
                expired.push_back(std::move(it->second.handler));
                it = link->pending.erase(it);
            } else {
                ++it;
            }
        }
    };
    collect(bus_.get());
    for (auto& [name, peer] : peers_) {
        collect(peer.get());
    }
    statistics_.unanswered += expired.size();
    for (auto& handler : expired) {
        handler(AtspiReply::failure());
    }
    return static_cast<int>(expired.size());
}

bool DBusAtspiTransport::pump(bool wait) {
    int delivered = 0;
    std::vector<AtspiReplyHandler> refused;
    refused.swap(refused_);
    for (auto& handler : refused) {
        handler(AtspiReply::failure());
        ++delivered;
    }

    while (true) {
        std::vector<Link*> busy;
        if (bus_ && !bus_->pending.empty()) {
            busy.push_back(bus_.get());
        }
        for (auto& [name, peer] : peers_) {
            if (peer && !peer->pending.empty()) {
                busy.push_back(peer.get());
            }
        }
        for (Link* link : busy) {
            delivered += deliverArrived(*link);
        }
        delivered += expire();
        if (delivered > 0 || !wait || busy.empty()) {
            return delivered > 0;
        }

        // Block until a connection can be read (or written), or the first deadline.
        auto deadline = Clock::time_point::max();
        std::vector<pollfd> descriptors;
        for (Link* link : busy) {
            int fd = -1;
            if (!dbus_connection_get_unix_fd(link->connection, &fd)) {
                continue;
            }
            short events = POLLIN;
            if (dbus_connection_has_messages_to_send(link->connection)) {
                events |= POLLOUT;
            }
            descriptors.push_back(pollfd{fd, events, 0});
            for (const auto& [serial, pending] : link->pending) {
                deadline = std::min(deadline, pending.deadline);
            }
        }
        const auto started = Clock::now();
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - started);
        const int timeoutMs = static_cast<int>(std::clamp<int64_t>(left.count() + 1, 0, 60000));
        poll(descriptors.data(), descriptors.size(), timeoutMs);
        statistics_.waitingSeconds += std::chrono::duration<double>(Clock::now() - started).count();
    }
}

}  // namespace velmora::native::freedesktop
