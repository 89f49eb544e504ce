#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/native/linux/AtspiCalls.h"

// The AT-SPI transport over libdbus, for the pipelined reader.
//
// Requests to an application go over a direct (peer-to-peer) connection to it
// when it offers one (Application.GetApplicationBusAddress, asked once per
// application over the accessibility bus), so that neither the bus daemon's
// routing nor its round trip is paid; otherwise over a private connection to the
// accessibility bus. Both connections are this transport's own, apart from the
// one libatspi keeps, so that answers are never taken from under it.
//
// The accessibility bus is found as libatspi finds it: AT_SPI_BUS_ADDRESS, else
// the session bus's org.a11y.Bus. A request that is not answered within the time
// limit (2.5 s, as the one-call-at-a-time reader allows) is answered with a
// failure. Nothing connects before the first request.

struct DBusConnection;
struct DBusMessage;

namespace velmora::native::freedesktop {

class DBusAtspiTransport final : public AtspiTransport {
  public:
    explicit DBusAtspiTransport(double timeoutSeconds = 2.5);
    ~DBusAtspiTransport() override;
    DBusAtspiTransport(const DBusAtspiTransport&) = delete;
    DBusAtspiTransport& operator=(const DBusAtspiTransport&) = delete;

    void send(const AtspiRequest& request, AtspiReplyHandler handler) override;
    bool pump(bool wait) override;

    // What the transport did, for measurements.
    struct Statistics {
        uint64_t requests = 0;        // method calls sent (application lookups excluded)
        uint64_t directRequests = 0;  // of these, over a direct connection
        uint64_t unanswered = 0;      // timed out, or the connection was lost
        double waitingSeconds = 0;    // blocked waiting for answers
    };
    const Statistics& statistics() const { return statistics_; }

  private:
    struct Pending;
    struct Link;

    Link* linkFor(const std::string& busName);
    Link* busLink();
    std::optional<std::string> peerAddress(const std::string& busName);
    int deliverArrived(Link& link);
    int expire();

    double timeoutSeconds_;
    std::unique_ptr<Link> bus_;
    bool busTried_ = false;
    std::map<std::string, std::unique_ptr<Link>> peers_;  // null: the application has none
    std::vector<std::unique_ptr<Link>> retired_;
    std::vector<AtspiReplyHandler> refused_;  // not sent: answered with a failure
    Statistics statistics_;
};

}  // namespace velmora::native::freedesktop
