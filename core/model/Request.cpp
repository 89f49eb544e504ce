#include "core/model/Request.h"

#include <utility>

namespace velmora {

DriverRequest::DriverRequest(std::string sessionId, std::string seatLease,
                             std::string targetBundleId, std::vector<DriverAction> actions,
                             std::optional<std::string> targetAppName,
                             std::optional<std::vector<std::string>> approvedApps,
                             std::vector<std::string> deniedApps,
                             std::optional<ConsentScope> consent,
                             std::optional<std::string> screenshotDir, std::string protocolVersion)
    : protocolVersion(std::move(protocolVersion)),
      sessionId(std::move(sessionId)),
      seatLease(std::move(seatLease)),
      targetBundleId(std::move(targetBundleId)),
      targetAppName(std::move(targetAppName)),
      approvedApps(approvedApps ? std::move(*approvedApps)
                                : std::vector<std::string>{this->targetBundleId}),
      deniedApps(std::move(deniedApps)),
      actions(std::move(actions)),
      consent(std::move(consent)),
      screenshotDir(std::move(screenshotDir)) {}

}  // namespace velmora
