#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/native/linux/atspi/AtspiCalls.h"
#include "core/native/linux/atspi/DBusMethodCall.h"

// The AT-SPI transport over libdbus, for the pipelined reader.
//
// libdbus opens and authenticates the connections and checks every answer
// (dbus_message_demarshal); the transport itself writes and reads the sockets.
// Requests are marshalled here (DBusMethodCall.h) and written in batches, one
// system call for everything queued since the last pump, and answers are read
// 64 KiB at a time - where libdbus would build, check and write each message on
// its own, and read at most 2 KiB per system call. Requests to an application go over a private
// connection to the accessibility bus, or over a direct (peer-to-peer) connection to it once
// connect() has opened one (Application.GetApplicationBusAddress, asked over the bus), so that
// neither the bus daemon's routing nor its round trip is paid. The application keeps a direct
// connection until it exits, closed or not: only a reader that lives long should open one. Both
// connections are this transport's own, apart from any libatspi keeps, so that answers are
// never taken from under it. The applications themselves are found over the same connection
// (the registry's list, and the bus's owner of each), so that the pipelined reader needs no
// libatspi at all: starting it would cost a connection and questions of its own.
//
// The accessibility bus is found as libatspi finds it: AT_SPI_BUS_ADDRESS, else
// the session bus's org.a11y.Bus. A request that is not answered within the time
// limit (2.5 s, as the one-call-at-a-time reader allows, unless one is set for
// its application) is answered with a failure. Nothing connects before the
// first request.

struct DBusConnection;
struct DBusMessage;

namespace velmora::native::freedesktop {

class DBusAtspiTransport final : public AtspiTransport {
  public:
    explicit DBusAtspiTransport(double timeoutSeconds = 2.5);
    ~DBusAtspiTransport() override;
    DBusAtspiTransport(const DBusAtspiTransport&) = delete;
    DBusAtspiTransport& operator=(const DBusAtspiTransport&) = delete;

    // Opens the direct connection to the application with this bus name when it
    // offers one (once; again after it closed). Blocks for the answer, calling the
    // handlers of other answers that come meanwhile: call it before reading the
    // application's elements, never from a handler. Requests to an application
    // without a direct connection go over the bus.
    // Whether the application did not answer it in time (asked again next time).
    bool connect(const std::string& busName);

    // The accessible application of a process: the first of the registry's
    // applications (the desktop's children, in its order) whose bus name the
    // bus says that process owns. Blocks for the answers, as connect() does.
    struct ApplicationSearch {
        bool busReached = false;                  // false: no accessibility bus
        std::optional<AtspiAddress> application;  // none: no application of it
    };
    ApplicationSearch findApplication(int32_t processId);

    // The time limit of requests to the application with this bus name, from the
    // next request on; 0 gives it the transport's own again.
    void setTimeout(const std::string& busName, double seconds);

    void send(const AtspiRequest& request, AtspiReplyHandler handler) override;
    bool pump(bool wait) override;

    // What every transport of this process did, for measurements.
    struct Statistics {
        uint64_t requests = 0;        // method calls sent (application lookups excluded)
        uint64_t directRequests = 0;  // of these, over a direct connection
        uint64_t writes = 0;          // system calls that wrote requests
        uint64_t reads = 0;           // system calls that read answers
        uint64_t blockingWaits = 0;   // times the reader blocked for answers
        uint64_t unanswered = 0;      // timed out, or the connection was lost
        double waitingSeconds = 0;    // blocked waiting for answers
        std::array<uint64_t, kAtspiCallCount> byCall{};  // requests of each kind
    };
    static const Statistics& processStatistics();

  private:
    struct Pending;
    struct Link;

    Link* adopt(DBusConnection* connection, bool direct);
    Link* linkFor(const std::string& busName);
    Link* busLink();
    double timeoutFor(const std::string& busName) const;
    void queue(Link& link, const DBusMethodCall& call, AtspiCall parseAs, double timeoutSeconds,
               AtspiReplyHandler handler);
    void flush(Link& link);
    int deliverArrived(Link& link);
    int expire();

    double timeoutSeconds_;
    std::vector<std::unique_ptr<Link>> links_;  // every connection, kept to the end
    Link* bus_ = nullptr;
    bool busTried_ = false;
    std::map<std::string, double> timeouts_;  // set for one application
    std::map<std::string, Link*> peers_;      // null: the application offers none
    std::vector<AtspiReplyHandler> refused_;  // not sent: answered with a failure
    std::vector<char> readBuffer_;
};

}  // namespace velmora::native::freedesktop
