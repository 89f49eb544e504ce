#include "core/native/linux/atspi/DBusAtspiTransport.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <limits>
#include <string_view>
#include <vector>

#include <dbus/dbus.h>

#include "core/native/linux/atspi/AtspiReplyParser.h"
#include "core/native/linux/atspi/DBusMessageReader.h"
#include "core/native/linux/atspi/DBusMethodCall.h"

namespace velmora::native::freedesktop {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kAccessibleInterface = "org.a11y.atspi.Accessible";
constexpr const char* kPropertiesInterface = "org.freedesktop.DBus.Properties";
constexpr const char* kRootPath = "/org/a11y/atspi/accessible/root";
constexpr const char* kCachePath = "/org/a11y/atspi/cache";
constexpr const char* kApplicationInterface = "org.a11y.atspi.Application";
constexpr uint32_t kScreenCoordinates = 0;  // ATSPI_COORD_TYPE_SCREEN
constexpr const char* kRegistry = "org.a11y.atspi.Registry";
constexpr const char* kBusDaemon = "org.freedesktop.DBus";

// The method call that answers a request.
DBusMethodCall callFor(const AtspiRequest& request, std::string_view destination) {
    DBusMethodCall call;
    call.destination = destination;
    call.path = request.target.path;
    call.interface = kAccessibleInterface;
    auto property = [&](const char* interface, const char* name) {
        call.interface = kPropertiesInterface;
        call.member = "Get";
        call.arguments = {DBusArgument::ofString(interface), DBusArgument::ofString(name)};
    };
    switch (request.call) {
        case AtspiCall::role:
            call.member = "GetRole";
            break;
        case AtspiCall::name:
            property(kAccessibleInterface, "Name");
            break;
        case AtspiCall::accessibleId:
            property(kAccessibleInterface, "AccessibleId");
            break;
        case AtspiCall::properties:
            call.interface = kPropertiesInterface;
            call.member = "GetAll";
            call.arguments = {DBusArgument::ofString(kAccessibleInterface)};
            break;
        case AtspiCall::interfaces:
            call.member = "GetInterfaces";
            break;
        case AtspiCall::states:
            call.member = "GetState";
            break;
        case AtspiCall::children:
            call.member = "GetChildren";
            break;
        case AtspiCall::childCount:
            property(kAccessibleInterface, "ChildCount");
            break;
        case AtspiCall::childAtIndex:
            call.member = "GetChildAtIndex";
            call.arguments = {DBusArgument::ofInt32(request.first)};
            break;
        case AtspiCall::extents:
            call.interface = kAtspiComponentInterface;
            call.member = "GetExtents";
            call.arguments = {DBusArgument::ofUint32(kScreenCoordinates)};
            break;
        case AtspiCall::currentValue:
            property(kAtspiValueInterface, "CurrentValue");
            break;
        case AtspiCall::characterCount:
            property(kAtspiTextInterface, "CharacterCount");
            break;
        case AtspiCall::text:
            call.interface = kAtspiTextInterface;
            call.member = "GetText";
            call.arguments = {DBusArgument::ofInt32(request.first),
                              DBusArgument::ofInt32(request.second)};
            break;
        case AtspiCall::toolkitName:
            property(kApplicationInterface, "ToolkitName");
            break;
        case AtspiCall::cacheItems:
            call.path = kCachePath;
            call.interface = "org.a11y.atspi.Cache";
            call.member = "GetItems";
            break;
        case AtspiCall::processId:
            // A question to the bus about the target's bus name, not to the target.
            call.destination = kBusDaemon;
            call.path = "/org/freedesktop/DBus";
            call.interface = kBusDaemon;
            call.member = "GetConnectionUnixProcessID";
            call.arguments = {DBusArgument::ofString(request.target.busName)};
            break;
    }
    return call;
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

// One connection. Once libdbus has opened and authenticated it, this transport
// does all its reading and writing: libdbus would read at most 2 KiB per system
// call and build a queue entry per message.
struct DBusAtspiTransport::Link {
    DBusConnection* connection = nullptr;  // kept open; libdbus no longer reads it
    int socket = -1;
    bool direct = false;
    bool lost = false;
    uint32_t nextSerial = uint32_t{1} << 30;  // clear of the serials libdbus used
    std::map<uint32_t, Pending> pending;      // by serial: the oldest first
    std::string output;                       // marshalled requests not written yet
    size_t written = 0;
    std::string input;  // read, not yet taken apart into messages
    size_t parsed = 0;

    ~Link() {
        if (connection != nullptr) {
            dbus_connection_close(connection);
            dbus_connection_unref(connection);
        }
    }
};

namespace {

DBusAtspiTransport::Statistics& totals() {
    static DBusAtspiTransport::Statistics statistics;
    return statistics;
}

// Drives a fresh connection through authentication and drops whatever libdbus
// has read by then (nothing that answers this transport's requests), so that the
// socket can be read and written directly from here on.
bool authenticate(DBusConnection* connection, double timeoutSeconds) {
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                             std::chrono::duration<double>(timeoutSeconds));
    while (!dbus_connection_get_is_authenticated(connection)) {
        if (!dbus_connection_get_is_connected(connection) || Clock::now() > deadline) {
            return false;
        }
        dbus_connection_read_write(connection, 50);
    }
    dbus_connection_flush(connection);
    while (DBusMessage* early = dbus_connection_pop_message(connection)) {
        dbus_message_unref(early);
    }
    return dbus_connection_get_is_connected(connection);
}

constexpr size_t kReadChunk = 64 * 1024;
// With this many requests unanswered the application is busy for a while yet;
// a blocked reader then pauses this long after the first answer arrives.
constexpr size_t kLongQueue = 64;
constexpr long kBatchPauseNs = 200 * 1000;

}  // namespace

const DBusAtspiTransport::Statistics& DBusAtspiTransport::processStatistics() {
    return totals();
}

DBusAtspiTransport::DBusAtspiTransport(double timeoutSeconds) : timeoutSeconds_(timeoutSeconds) {}

DBusAtspiTransport::~DBusAtspiTransport() = default;

DBusAtspiTransport::Link* DBusAtspiTransport::adopt(DBusConnection* connection, bool direct) {
    int socket = -1;
    if (!authenticate(connection, timeoutSeconds_) ||
        !dbus_connection_get_socket(connection, &socket)) {
        dbus_connection_close(connection);
        dbus_connection_unref(connection);
        return nullptr;
    }
    links_.push_back(std::make_unique<Link>());
    Link* link = links_.back().get();
    link->connection = connection;
    link->socket = socket;
    link->direct = direct;
    return link;
}

DBusAtspiTransport::Link* DBusAtspiTransport::busLink() {
    if (!busTried_) {
        busTried_ = true;
        const int timeoutMs = static_cast<int>(timeoutSeconds_ * 1000);
        if (auto address = accessibilityBusAddress(timeoutMs)) {
            if (DBusConnection* connection = openPrivate(*address, true)) {
                bus_ = adopt(connection, false);
            }
        }
    }
    return bus_ != nullptr && !bus_->lost ? bus_ : nullptr;
}

void DBusAtspiTransport::setTimeout(const std::string& busName, double seconds) {
    if (seconds > 0) {
        timeouts_[busName] = seconds;
    } else {
        timeouts_.erase(busName);
    }
}

double DBusAtspiTransport::timeoutFor(const std::string& busName) const {
    auto found = timeouts_.find(busName);
    return found == timeouts_.end() ? timeoutSeconds_ : found->second;
}

bool DBusAtspiTransport::connect(const std::string& busName) {
    if (peers_.count(busName) != 0) {
        Link* peer = peers_[busName];
        if (peer == nullptr || !peer->lost) {
            return false;
        }
    }
    Link* peer = nullptr;
    if (Link* bus = busLink()) {
        DBusMethodCall call;
        call.serial = bus->nextSerial++;
        call.destination = busName;
        call.path = kRootPath;
        call.interface = "org.a11y.atspi.Application";
        call.member = "GetApplicationBusAddress";
        std::optional<std::string> address;
        bool answered = false;
        bool unanswered = false;
        queue(*bus, call, AtspiCall::text, timeoutFor(busName), [&](const AtspiReply& reply) {
            answered = true;
            unanswered = reply.unanswered;
            if (reply.ok) {
                address = reply.text;
            }
        });
        while (!answered && pump(true)) {
        }
        if (unanswered) {
            return true;  // a hung application: asked again next time
        }
        if (address && !address->empty()) {
            if (DBusConnection* connection = openPrivate(*address, false)) {
                peer = adopt(connection, true);
            }
        }
    }
    peers_[busName] = peer;
    return false;
}

DBusAtspiTransport::ApplicationSearch DBusAtspiTransport::findApplication(int32_t processId) {
    ApplicationSearch search;
    Link* bus = busLink();
    if (bus == nullptr) {
        return search;
    }
    search.busReached = true;

    // The desktop's applications, as the registry lists them.
    std::vector<AtspiAddress> applications;
    bool answered = false;
    // A call refers to its request's texts until it is queued (marshalled).
    const AtspiRequest registry{AtspiCall::children, AtspiAddress{kRegistry, kRootPath}};
    DBusMethodCall listing = callFor(registry, kRegistry);
    listing.serial = bus->nextSerial++;
    queue(*bus, listing, AtspiCall::children, timeoutSeconds_, [&](const AtspiReply& reply) {
        answered = true;
        if (reply.ok) {
            applications = reply.references;
        }
    });
    while (!answered && pump(true)) {
    }

    // The process behind each application's bus name, all asked at once.
    std::vector<std::optional<uint32_t>> owners(applications.size());
    size_t unanswered = 0;
    for (size_t i = 0; i < applications.size(); ++i) {
        if (applications[i].path == kAtspiNullPath || !isValidBusName(applications[i].busName)) {
            continue;
        }
        const AtspiRequest owner{AtspiCall::processId, applications[i]};
        DBusMethodCall question = callFor(owner, kBusDaemon);
        question.serial = bus->nextSerial++;
        ++unanswered;
        queue(*bus, question, AtspiCall::processId, timeoutSeconds_,
              [&owners, &unanswered, i](const AtspiReply& reply) {
                  --unanswered;
                  if (reply.ok) {
                      owners[i] = reply.number;
                  }
              });
    }
    while (unanswered > 0 && pump(true)) {
    }
    for (size_t i = 0; i < applications.size(); ++i) {
        if (owners[i] && static_cast<int64_t>(*owners[i]) == processId) {
            search.application = applications[i];
            break;
        }
    }
    return search;
}

DBusAtspiTransport::Link* DBusAtspiTransport::linkFor(const std::string& busName) {
    auto known = peers_.find(busName);
    if (known != peers_.end() && known->second != nullptr && !known->second->lost) {
        return known->second;
    }
    // No direct connection (none offered, not asked for, or closed): over the bus.
    return busLink();
}

void DBusAtspiTransport::queue(Link& link, const DBusMethodCall& call, AtspiCall parseAs,
                               double timeoutSeconds, AtspiReplyHandler handler) {
    // Written in batches at the next pump: one system call for many requests.
    appendMethodCall(link.output, call);
    const auto limit =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(timeoutSeconds));
    link.pending.emplace(call.serial, Pending{parseAs, std::move(handler), Clock::now() + limit});
}

void DBusAtspiTransport::send(const AtspiRequest& request, AtspiReplyHandler handler) {
    // Only the bus knows which process owns a bus name.
    Link* link = request.call == AtspiCall::processId ? busLink() : linkFor(request.target.busName);
    if (link == nullptr) {
        refused_.push_back(std::move(handler));
        return;
    }
    if (!link->direct && !isValidBusName(request.target.busName)) {
        // Not a name the bus could route to (a toolkit's placeholder): sending it
        // would make the bus drop the connection.
        refused_.push_back(std::move(handler));
        return;
    }
    DBusMethodCall call =
        callFor(request, link->direct ? std::string_view() : request.target.busName);
    call.serial = link->nextSerial++;
    queue(*link, call, request.call, timeoutFor(request.target.busName), std::move(handler));
    ++totals().requests;
    ++totals().byCall[static_cast<size_t>(request.call)];
    if (link->direct) {
        ++totals().directRequests;
    }
}

void DBusAtspiTransport::flush(Link& link) {
    while (link.written < link.output.size()) {
        ssize_t sent = ::send(link.socket, link.output.data() + link.written,
                              link.output.size() - link.written, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            link.written += static_cast<size_t>(sent);
            ++totals().writes;
        } else if (sent < 0 && errno == EINTR) {
            continue;
        } else if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            return;  // the application is behind: the rest goes when it can take it
        } else {
            link.lost = true;
            return;
        }
    }
    link.output.clear();
    link.written = 0;
}

int DBusAtspiTransport::deliverArrived(Link& link) {
    // Take in everything the socket holds.
    readBuffer_.resize(kReadChunk);
    while (true) {
        ssize_t got = ::recv(link.socket, readBuffer_.data(), readBuffer_.size(), MSG_DONTWAIT);
        if (got > 0) {
            link.input.append(readBuffer_.data(), static_cast<size_t>(got));
            ++totals().reads;
            if (static_cast<size_t>(got) < readBuffer_.size()) {
                break;
            }
        } else if (got < 0 && errno == EINTR) {
            continue;
        } else {
            if (got == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
                link.lost = true;  // closed by the application, or broken
            }
            break;
        }
    }

    // Hand out every complete message.
    int delivered = 0;
    while (true) {
        const std::string_view rest = std::string_view(link.input).substr(link.parsed);
        const int64_t length = dbusMessageLength(rest);
        if (length < 0) {
            link.lost = true;  // not D-Bus: nothing more on this connection can be trusted
            break;
        }
        if (length == 0 || static_cast<size_t>(length) > rest.size()) {
            break;  // the rest has not arrived yet
        }
        link.parsed += static_cast<size_t>(length);
        const auto message = readDBusMessage(rest.substr(0, static_cast<size_t>(length)));
        if (!message || !message->replySerial) {
            continue;  // a signal, or a message that answers nothing readable
        }
        auto found = link.pending.find(*message->replySerial);
        if (found == link.pending.end()) {
            continue;  // an answer nobody waits for any more
        }
        Pending pending = std::move(found->second);
        link.pending.erase(found);
        pending.handler(parseAtspiReply(pending.call, *message));
        ++delivered;
    }
    if (link.parsed == link.input.size()) {
        link.input.clear();
        link.parsed = 0;
    } else if (link.parsed > kReadChunk) {
        link.input.erase(0, link.parsed);
        link.parsed = 0;
    }
    return delivered;
}

int DBusAtspiTransport::expire() {
    const auto now = Clock::now();
    std::vector<AtspiReplyHandler> expired;
    for (auto& link : links_) {
        // Applications can have time limits of their own, so any request may be
        // the next to expire.
        for (auto it = link->pending.begin(); it != link->pending.end();) {
            if (link->lost || it->second.deadline <= now) {
                expired.push_back(std::move(it->second.handler));
                it = link->pending.erase(it);
            } else {
                ++it;
            }
        }
    }
    totals().unanswered += expired.size();
    for (auto& handler : expired) {
        handler(AtspiReply::noAnswer());
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
        bool outstanding = false;
        for (size_t i = 0; i < links_.size(); ++i) {  // handlers may open links
            Link& link = *links_[i];
            if (link.pending.empty() || link.lost) {
                continue;
            }
            flush(link);
            delivered += deliverArrived(link);
            outstanding = outstanding || !link.pending.empty();
        }
        delivered += expire();
        if (delivered > 0 || !wait || !outstanding) {
            return delivered > 0;
        }

        // Block until an answer can be read (or more requests written), or until
        // the oldest request's time is up.
        auto deadline = Clock::time_point::max();
        std::vector<pollfd> descriptors;
        size_t waiting = 0;
        for (auto& link : links_) {
            if (link->pending.empty() || link->lost) {
                continue;
            }
            waiting += link->pending.size();
            short events = POLLIN;
            if (link->written < link->output.size()) {
                events |= POLLOUT;
            }
            descriptors.push_back(pollfd{link->socket, events, 0});
            for (const auto& [serial, pending] : link->pending) {
                deadline = std::min(deadline, pending.deadline);
            }
        }
        const auto started = Clock::now();
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - started);
        const int timeoutMs = static_cast<int>(std::clamp<int64_t>(left.count() + 1, 0, 60000));
        if (poll(descriptors.data(), descriptors.size(), timeoutMs) > 0 && waiting >= kLongQueue) {
            // The application has a long queue of requests before it: rather than
            // wake for each answer it writes, let a batch of them come in. It does
            // not idle meanwhile, so nothing is lost but switches between processes.
            timespec pause{0, kBatchPauseNs};
            nanosleep(&pause, nullptr);
        }
        ++totals().blockingWaits;
        totals().waitingSeconds += std::chrono::duration<double>(Clock::now() - started).count();
    }
}

}  // namespace velmora::native::freedesktop
