#include <utility>

#include "core/driver/TextMatch.h"
#include "core/native/AXCGDriver.h"

namespace velmora::native {

namespace {

constexpr const char* kRole = "AXRole";
constexpr const char* kTitle = "AXTitle";
constexpr const char* kIdentifier = "AXIdentifier";
constexpr const char* kValue = "AXValue";
constexpr const char* kPosition = "AXPosition";
constexpr const char* kSize = "AXSize";
constexpr const char* kChildren = "AXChildren";
constexpr const char* kWindows = "AXWindows";

bool readSucceeded(const AttributeRead& read) {
    return read.code == kAXErrorSuccess && read.value.has_value();
}

// A read the application did not answer: it failed the way a time-out fails,
// after waiting at least `patience` seconds.
bool unanswered(const AttributeRead& read, double waited, double patience) {
    return read.code == kAXErrorCannotComplete && waited >= patience;
}

}  // namespace

void AXCGDriver::beginReading(int32_t processId, const AXElement& application) {
    session_ = ReadSession{processId, application, false, false};
    if (silentApplications_.count(processId) != 0) {
        platform_.setMessagingTimeout(application, kProbeTimeout);
        session_.probing = true;
    }
}

AttributeRead AXCGDriver::read(const AXElement& element, const std::string& name) {
    if (session_.silent) {
        return AttributeRead::failure(kAXErrorCannotComplete);
    }
    const double started = platform_.monotonicSeconds();
    AttributeRead result = platform_.copyAttribute(element, name);
    const double waited = platform_.monotonicSeconds() - started;
    if (session_.probing) {
        session_.probing = false;
        if (unanswered(result, waited, kProbeTimeout)) {
            session_.silent = true;
        } else {
            silentApplications_.erase(session_.processId);
            platform_.setMessagingTimeout(session_.application, 0);
        }
    } else if (unanswered(result, waited, kSilentAfter)) {
        silentApplications_.insert(session_.processId);
        session_.silent = true;
    }
    return result;
}

std::optional<std::string> AXCGDriver::stringAttr(const AXElement& element,
                                                  const std::string& name) {
    AttributeRead read = this->read(element, name);
    if (!readSucceeded(read) || read.value->type != AttributeValue::Type::text) {
        return std::nullopt;
    }
    return std::move(read.value->text);
}

std::vector<AXElement> AXCGDriver::attributeElements(const AXElement& element,
                                                     const std::string& name) {
    AttributeRead read = this->read(element, name);
    if (!readSucceeded(read) || read.value->type != AttributeValue::Type::elementList) {
        return {};
    }
    return std::move(read.value->elements);
}

std::optional<Rect> AXCGDriver::frame(const AXElement& element) {
    const AttributeRead position = read(element, kPosition);
    if (position.code != kAXErrorSuccess) {
        return std::nullopt;
    }
    const AttributeRead size = read(element, kSize);
    if (!readSucceeded(position) || !readSucceeded(size) ||
        position.value->type != AttributeValue::Type::boxed ||
        size.value->type != AttributeValue::Type::boxed) {
        return std::nullopt;
    }
    // A box of another kind does not extract and leaves the zeros in place.
    Point origin;
    Size extent;
    if (position.value->boxed.type == kAXValueCGPointType) {
        origin = position.value->boxed.point;
    }
    if (size.value->boxed.type == kAXValueCGSizeType) {
        extent = size.value->boxed.size;
    }
    return Rect{origin.x, origin.y, extent.width, extent.height};
}

void AXCGDriver::walk(const AXElement& element, int depth, std::vector<ElementInfo>& out,
                      int64_t& budget) {
    if (budget < 1 || depth > kMaxDepth) {
        return;
    }
    --budget;

    ElementInfo info;
    info.role = stringAttr(element, kRole).value_or(kUnknownRole);
    info.title = stringAttr(element, kTitle);
    info.identifier = stringAttr(element, kIdentifier);
    // Whether there is a value at all, of any type, is its own raw read; the text
    // form is a second read, so a number value is present without being text.
    info.valuePresent = readSucceeded(read(element, kValue));
    info.value = stringAttr(element, kValue);
    info.frame = frame(element);
    out.push_back(std::move(info));

    for (const AXElement& child : attributeElements(element, kChildren)) {
        if (budget < 1) {
            break;
        }
        walk(child, depth + 1, out, budget);
    }
}

std::vector<ElementInfo> AXCGDriver::query(const std::string& bundleId,
                                           const std::optional<ElementSelector>& selector,
                                           bool includeValues) {
    const RunningApplication app = runningApp(bundleId);
    const AXElement application = platform_.applicationElement(app.processId);
    beginReading(app.processId, application);

    std::vector<ElementInfo> elements;
    int64_t budget = nodeBudget_;
    walk(application, 0, elements, budget);
    // Windows are walked again even when they were reached as children: the
    // duplicates are part of the snapshot and count everywhere.
    for (const AXElement& window : attributeElements(application, kWindows)) {
        walk(window, 1, elements, budget);
    }

    session_ = ReadSession{};

    std::vector<ElementInfo> result =
        selector ? selectIndex(filterBySelector(elements, *selector), selector->index)
                 : std::move(elements);
    if (!includeValues) {
        for (auto& element : result) {
            element.value.reset();
        }
    }
    return result;
}

StructuralState AXCGDriver::structuralState(const std::string& bundleId) {
    const std::vector<ElementInfo> elements = query(bundleId, std::nullopt, false);
    StructuralState state;
    for (const auto& element : elements) {
        ++state.roleHistogram[element.role];
    }
    state.elementCount = static_cast<int64_t>(elements.size());
    state.frontmostBundleId = frontmostBundleId();
    return state;
}

}  // namespace velmora::native
