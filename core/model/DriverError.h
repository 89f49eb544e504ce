#pragma once

#include <exception>
#include <optional>
#include <stdexcept>
#include <string>

namespace velmora {

// The one error that drivers and the router throw. Its description is the
// text a broker reads in `errorMessage` and `error`.
class DriverError : public std::exception {
  public:
    enum class Case {
        unsupportedProtocol,
        consentDenied,
        appNotRunning,
        notFrontmost,
        elementNotFound,
        screenshotFailed,
        osFailure,
        missingLease,
    };

    static DriverError unsupportedProtocol(std::string received);
    static DriverError consentDenied(std::string bundleId);
    static DriverError appNotRunning(std::string bundleId);
    static DriverError notFrontmost(std::string expected, std::optional<std::string> actual);
    static DriverError elementNotFound(std::string selectorDescription);
    static DriverError screenshotFailed(std::string reason);
    static DriverError osFailure(std::string reason);
    static DriverError missingLease();

    Case errorCase() const { return case_; }
    const std::string& payload() const { return payload_; }
    const std::optional<std::string>& actual() const { return actual_; }

    // The fixed text of the case with its payload appended verbatim.
    const std::string& description() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

    friend bool operator==(const DriverError& a, const DriverError& b) {
        return a.case_ == b.case_ && a.payload_ == b.payload_ && a.actual_ == b.actual_;
    }

  private:
    DriverError(Case errorCase, std::string payload, std::optional<std::string> actual = {});

    Case case_;
    std::string payload_;
    std::optional<std::string> actual_;
    std::string description_;
};

// A file read or write error of the platform. It is not wrapped in a
// DriverError: its description is the platform's own text.
class PlatformError : public std::runtime_error {
  public:
    explicit PlatformError(const std::string& description) : std::runtime_error(description) {}
    std::string description() const { return what(); }
};

}  // namespace velmora
