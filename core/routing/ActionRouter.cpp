#include "core/routing/ActionRouter.h"

#include <cxxabi.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <thread>
#include <typeinfo>
#include <utility>

#include "core/model/DriverError.h"
#include "core/routing/ApprovedAppPolicy.h"
#include "core/routing/Iso8601.h"
#include "core/routing/TemporaryDirectory.h"
#include "core/text/Text.h"

namespace velmora {

namespace {

std::string typeName(const std::type_info& type) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> demangled(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
    return status == 0 && demangled ? std::string(demangled.get()) : std::string(type.name());
}

// A directory and a file name with exactly one separator between them.
std::string joinPath(std::string directory, const std::string& fileName) {
    if (directory.empty()) {
        return fileName;
    }
    while (directory.size() > 1 && directory.back() == '/') {
        directory.pop_back();
    }
    if (directory.back() != '/') {
        directory += '/';
    }
    return directory + fileName;
}

}  // namespace

std::string describeFailure(std::exception_ptr failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const DriverError& error) {
        return error.description();
    } catch (const PlatformError& error) {
        return error.description();
    } catch (const std::exception& error) {
        return typeName(typeid(error)) + ": " + error.what();
    } catch (...) {
        return "unknown error";
    }
}

void ActionRouter::threadSleep(double seconds) {
    if (!(seconds > 0) || !std::isfinite(seconds)) {
        return;
    }
    // Far beyond any useful pause, and inside the range of the clock's ticks.
    seconds = std::min(seconds, 1e9);
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

ActionRouter::ActionRouter(UIDriver& driver, Clock clock, int64_t assertRetries,
                           double assertRetryDelay, Sleep sleep)
    : driver_(driver),
      clock_(std::move(clock)),
      assertRetries_(std::max<int64_t>(1, assertRetries)),
      assertRetryDelay_(assertRetryDelay),
      sleep_(sleep ? std::move(sleep) : Sleep(threadSleep)) {}

DriverResponse ActionRouter::run(const DriverRequest& request) {
    std::vector<ActionReceipt> receipts;
    try {
        if (request.protocolVersion != kDriverBrokerProtocol) {
            return DriverResponse(
                request.sessionId, false, {},
                DriverError::unsupportedProtocol(request.protocolVersion).description());
        }
        if (trimmedOfWhitespace(request.seatLease).empty()) {
            return DriverResponse(request.sessionId, false, {},
                                  DriverError::missingLease().description());
        }
        ApprovedAppPolicy policy(request.approvedApps, request.deniedApps);
        if (!policy.isAllowed(request.targetBundleId, request.targetAppName)) {
            return DriverResponse(request.sessionId, false, {},
                                  DriverError::consentDenied(request.targetBundleId).description());
        }

        const ConsentScope consent = request.consent.value_or(ConsentScope{true, false});

        // One fingerprint per run; failing to read it must not fail any action.
        std::string sha;
        try {
            sha = driver_.binarySha256(request.targetBundleId);
        } catch (...) {
            sha = "unavailable";
        }

        bool ok = true;
        for (const auto& action : request.actions) {
            receipts.push_back(execute(action, request, sha, consent));
            ok = ok && receipts.back().succeeded;
        }
        return DriverResponse(request.sessionId, ok, std::move(receipts));
    } catch (...) {
        // Only the clock or memory can get here; the response still goes out.
        return DriverResponse(request.sessionId, false, std::move(receipts),
                              describeFailure(std::current_exception()));
    }
}

ActionReceipt ActionRouter::execute(const DriverAction& action, const DriverRequest& request,
                                    const std::string& sha, const ConsentScope& consent) {
    const std::string& target = request.targetBundleId;
    ActionReceipt receipt;
    receipt.action = std::string(rawValue(action.kind));
    receipt.label = action.label;
    receipt.bundleIdentifier = target;
    receipt.binarySha256 = sha;
    receipt.reversible = !isInputKind(action.kind);

    try {
        if (isInputKind(action.kind)) {
            if (!ensureFrontmost(target)) {
                throw DriverError::notFrontmost(target, frontmostOrNone());
            }
            receipt.frontmostTargetMatch = true;
        } else {
            receipt.frontmostTargetMatch = frontmostOrNone() == target;
        }

        switch (action.kind) {
            case ActionKind::launch:
                driver_.launch(target);
                receipt.succeeded = true;
                break;
            case ActionKind::focus:
                // A refusal to come forward is reported by `succeeded` alone.
                receipt.succeeded = driver_.focus(target);
                break;
            case ActionKind::click:
            case ActionKind::doubleClick: {
                Point point;
                if (action.point) {
                    point = *action.point;
                } else if (action.selector) {
                    point = resolveClickPoint(driver_, target, *action.selector);
                } else {
                    throw DriverError::osFailure("click requires point or selector");
                }
                driver_.click(point, action.kind == ActionKind::doubleClick);
                receipt.succeeded = true;
                break;
            }
            case ActionKind::typeText:
                if (!action.text) {
                    throw DriverError::osFailure("typeText requires text");
                }
                driver_.typeText(*action.text);
                receipt.succeeded = true;
                break;
            case ActionKind::keyPress:
                if (!action.keys || action.keys->empty()) {
                    throw DriverError::osFailure("keyPress requires keys");
                }
                driver_.pressKeys(*action.keys);
                receipt.succeeded = true;
                break;
            case ActionKind::scroll:
                if (!action.scroll) {
                    throw DriverError::osFailure("scroll requires spec");
                }
                driver_.scroll(*action.scroll);
                receipt.succeeded = true;
                break;
            case ActionKind::query:
                receipt.queryResult = driver_.query(target, action.selector, false);
                receipt.succeeded = true;
                break;
            case ActionKind::assert_: {
                auto outcome = evaluateAssert(driver_, action, target, assertRetries_,
                                              assertRetryDelay_, sleep_);
                receipt.succeeded = outcome.passed;
                receipt.queryResult = std::move(outcome.elements);
                if (!outcome.passed) {
                    receipt.errorMessage = "assertion failed: " +
                                           describe(action.selector.value_or(ElementSelector{}));
                }
                break;
            }
            case ActionKind::screenshot: {
                if (!consent.allowScreenshots) {
                    // The consent case is reused as it stands for a refused capture.
                    throw DriverError::consentDenied("screenshots not permitted by consent scope");
                }
                std::string path = screenshotDestination(request);
                driver_.screenshot(target, path);
                receipt.screenshotPath = std::move(path);
                receipt.succeeded = true;
                break;
            }
            case ActionKind::frontmost:
            case ActionKind::healthTick:
                receipt.succeeded = true;
                break;
        }
    } catch (...) {
        receipt.succeeded = false;
        receipt.errorMessage = describeFailure(std::current_exception());
        receipt.screenshotPath.reset();
        receipt.queryResult.reset();
    }

    receipt.postActionStructuralState = stateAfterAction(target);
    receipt.ts = iso8601(clock_.now());
    receipt.receiptId = clock_.newId();
    return receipt;
}

bool ActionRouter::ensureFrontmost(const std::string& bundleId) {
    if (frontmostOrNone() == bundleId) {
        return true;
    }
    return driver_.focus(bundleId);
}

std::optional<std::string> ActionRouter::frontmostOrNone() {
    try {
        return driver_.frontmostBundleId();
    } catch (...) {
        return std::nullopt;
    }
}

StructuralState ActionRouter::stateAfterAction(const std::string& target) {
    try {
        return driver_.structuralState(target);
    } catch (...) {
        StructuralState substitute;
        substitute.frontmostBundleId = frontmostOrNone();
        return substitute;
    }
}

std::string ActionRouter::screenshotDestination(const DriverRequest& request) {
    std::string directory =
        request.screenshotDir ? *request.screenshotDir : platformTemporaryDirectory();
    return joinPath(std::move(directory), request.sessionId + "-" + clock_.newId() + ".png");
}

}  // namespace velmora
