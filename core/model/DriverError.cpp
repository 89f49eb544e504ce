#include "core/model/DriverError.h"

#include <utility>

namespace velmora {

namespace {

std::string describeCase(DriverError::Case errorCase, const std::string& payload,
                         const std::optional<std::string>& actual) {
    using Case = DriverError::Case;
    switch (errorCase) {
        case Case::unsupportedProtocol:
            return "unsupported protocol: " + payload;
        case Case::consentDenied:
            return "consent denied for app: " + payload;
        case Case::appNotRunning:
            return "app not running: " + payload;
        case Case::notFrontmost:
            // "none" is plain text: an app literally called "none" reads the same.
            return "target not frontmost: expected " + payload + ", got " + actual.value_or("none");
        case Case::elementNotFound:
            return "element not found: " + payload;
        case Case::screenshotFailed:
            return "screenshot failed: " + payload;
        case Case::osFailure:
            return "os failure: " + payload;
        case Case::missingLease:
            return "missing GUI-seat lease (RequiresLease)";
    }
    return "os failure: unknown error";
}

}  // namespace

DriverError::DriverError(Case errorCase, std::string payload, std::optional<std::string> actual)
    : case_(errorCase),
      payload_(std::move(payload)),
      actual_(std::move(actual)),
      description_(describeCase(case_, payload_, actual_)) {}

DriverError DriverError::unsupportedProtocol(std::string received) {
    return DriverError(Case::unsupportedProtocol, std::move(received));
}
DriverError DriverError::consentDenied(std::string bundleId) {
    return DriverError(Case::consentDenied, std::move(bundleId));
}
DriverError DriverError::appNotRunning(std::string bundleId) {
    return DriverError(Case::appNotRunning, std::move(bundleId));
}
DriverError DriverError::notFrontmost(std::string expected, std::optional<std::string> actual) {
    return DriverError(Case::notFrontmost, std::move(expected), std::move(actual));
}
DriverError DriverError::elementNotFound(std::string selectorDescription) {
    return DriverError(Case::elementNotFound, std::move(selectorDescription));
}
DriverError DriverError::screenshotFailed(std::string reason) {
    return DriverError(Case::screenshotFailed, std::move(reason));
}
DriverError DriverError::osFailure(std::string reason) {
    return DriverError(Case::osFailure, std::move(reason));
}
DriverError DriverError::missingLease() {
    return DriverError(Case::missingLease, "");
}

}  // namespace velmora
