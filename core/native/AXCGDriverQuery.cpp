#include <algorithm>
#include <utility>

#include "core/driver/SelectorMatch.h"
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

// What a walk asks of each element besides its children, in one request: all
// that a record holds, or for the structural state only the role.
const std::vector<std::string>& attributesOf(AXCGDriver::WalkReads reads) {
    static const std::vector<std::string> kEverything = {kRole,  kTitle,    kIdentifier,
                                                         kValue, kPosition, kSize};
    static const std::vector<std::string> kStructure = {kRole};
    return reads == AXCGDriver::WalkReads::everything ? kEverything : kStructure;
}

bool readSucceeded(const AttributeRead& read) {
    return read.code == kAXErrorSuccess && read.value.has_value();
}

// A read the application did not answer: it failed the way a time-out fails,
// after waiting at least `patience` seconds.
bool unanswered(const AttributeRead& read, double waited, double patience) {
    return read.code == kAXErrorCannotComplete && waited >= patience;
}

// The read as text: absent unless it succeeded with a text value.
std::optional<std::string> textOf(AttributeRead read) {
    if (!readSucceeded(read) || read.value->type != AttributeValue::Type::text) {
        return std::nullopt;
    }
    return std::move(read.value->text);
}

// The read as a list of elements: empty unless it succeeded with one.
std::vector<AXElement> elementsOf(AttributeRead read) {
    if (!readSucceeded(read) || read.value->type != AttributeValue::Type::elementList) {
        return {};
    }
    return std::move(read.value->elements);
}

// The frame from a position read and a size read. The size counts only when the
// position read succeeded.
std::optional<Rect> frameOf(const AttributeRead& position, const AttributeRead& size) {
    if (position.code != kAXErrorSuccess) {
        return std::nullopt;
    }
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

}  // namespace

void AXCGDriver::beginReading(int32_t processId, const AXElement& application) {
    session_ = ReadSession{processId, application, false, false};
    if (silentApplications_.count(processId) != 0) {
        platform_.setMessagingTimeout(application, kProbeTimeout);
        session_.probing = true;
    }
}

template <typename Request>
auto AXCGDriver::ask(Request request) -> decltype(request()) {
    const double started = platform_.monotonicSeconds();
    auto answer = request();
    const double waited = platform_.monotonicSeconds() - started;
    const AttributeRead& first = firstRead(answer);
    if (session_.probing) {
        session_.probing = false;
        if (unanswered(first, waited, kProbeTimeout)) {
            session_.silent = true;
        } else {
            silentApplications_.erase(session_.processId);
            platform_.setMessagingTimeout(session_.application, 0);
        }
    } else if (unanswered(first, waited, kSilentAfter)) {
        silentApplications_.insert(session_.processId);
        session_.silent = true;
    }
    return answer;
}

const AttributeRead& AXCGDriver::firstRead(const AttributeRead& read) {
    return read;
}

const AttributeRead& AXCGDriver::firstRead(const std::vector<AttributeRead>& reads) {
    static const AttributeRead kNone = AttributeRead::failure(kAXErrorFailure);
    return reads.empty() ? kNone : reads.front();
}

AttributeRead AXCGDriver::read(const AXElement& element, const std::string& name) {
    if (session_.silent) {
        return AttributeRead::failure(kAXErrorCannotComplete);
    }
    return ask([&] { return platform_.copyAttribute(element, name); });
}

std::vector<AttributeRead> AXCGDriver::readAll(const AXElement& element,
                                               const std::vector<std::string>& names) {
    if (session_.silent) {
        return std::vector<AttributeRead>(names.size(),
                                          AttributeRead::failure(kAXErrorCannotComplete));
    }
    return ask([&] { return platform_.copyAttributes(element, names); });
}

std::vector<AXElement> AXCGDriver::attributeElements(const AXElement& element,
                                                     const std::string& name) {
    return elementsOf(read(element, name));
}

std::vector<AXElement> AXCGDriver::firstChildren(const AXElement& element, int64_t count) {
    if (session_.silent) {
        return {};
    }
    return elementsOf(
        ask([&] { return platform_.copyAttributeValues(element, kChildren, 0, count); }));
}

void AXCGDriver::walk(const AXElement& element, int depth, std::vector<ElementInfo>& out,
                      int64_t& budget, WalkReads reads, std::vector<WalkedChild>* walkedChildren) {
    if (budget < 1 || depth > kMaxDepth) {
        return;
    }
    --budget;

    // One request for the element's record. The value is read once: whether it
    // is there at all (of any type) and its text come from the same answer.
    const std::vector<std::string>& names = attributesOf(reads);
    std::vector<AttributeRead> answers = readAll(element, names);
    ElementInfo info;
    info.role = textOf(std::move(answers[0])).value_or(kUnknownRole);
    if (reads == WalkReads::everything) {
        info.title = textOf(std::move(answers[1]));
        info.identifier = textOf(std::move(answers[2]));
        info.valuePresent = readSucceeded(answers[3]);
        info.value = textOf(std::move(answers[3]));
        info.frame = frameOf(answers[4], answers[5]);
    }
    out.push_back(std::move(info));

    // Children are recorded only while the budget lasts and above the depth
    // limit, so only as many as could be recorded are asked for: an element
    // with millions of children costs no more than the budget.
    if (budget < 1 || depth >= kMaxDepth) {
        return;
    }
    for (const AXElement& child : firstChildren(element, budget)) {
        if (budget < 1) {
            break;
        }
        const size_t first = out.size();
        walk(child, depth + 1, out, budget, reads);
        if (walkedChildren != nullptr) {
            walkedChildren->push_back(WalkedChild{child, first, out.size()});
        }
    }
}

std::vector<ElementInfo> AXCGDriver::snapshot(const std::string& bundleId, WalkReads reads) {
    const RunningApplication app = runningApp(bundleId);
    const AXElement application = platform_.applicationElement(app.processId);
    beginReading(app.processId, application);

    std::vector<ElementInfo> elements;
    int64_t budget = nodeBudget_;
    std::vector<WalkedChild> applicationChildren;
    walk(application, 0, elements, budget, reads, &applicationChildren);
    // Windows are walked again even when they were reached as children: the
    // duplicates are part of the snapshot and count everywhere. A window the walk
    // has just recorded as a child of the application, at the same depth, is not
    // asked again: its second record is the first one's copy. Budget left means
    // the first walk of that subtree was complete, and a budget running out now
    // cuts the copy where a second walk would have stopped. Once the application
    // has fallen silent the window is walked, as its reads then fail at once.
    for (const AXElement& window : attributeElements(application, kWindows)) {
        auto walked = std::find_if(applicationChildren.begin(), applicationChildren.end(),
                                   [&](const WalkedChild& child) {
                                       return platform_.isSameElement(child.element, window);
                                   });
        if (walked == applicationChildren.end() || session_.silent) {
            walk(window, 1, elements, budget, reads);
            continue;
        }
        const size_t copied = std::min(walked->end - walked->first,
                                       static_cast<size_t>(std::max<int64_t>(budget, 0)));
        for (size_t i = walked->first; i < walked->first + copied; ++i) {
            ElementInfo copy = elements[i];
            elements.push_back(std::move(copy));
        }
        budget -= static_cast<int64_t>(copied);
    }
    session_ = ReadSession{};
    return elements;
}

std::vector<ElementInfo> AXCGDriver::query(const std::string& bundleId,
                                           const std::optional<ElementSelector>& selector,
                                           bool includeValues) {
    std::vector<ElementInfo> elements = snapshot(bundleId, WalkReads::everything);
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
    // The summary of a query without selector: the same walk, budget, depth limit
    // and window walks, and so the same elements, but of each only the role is
    // asked for, since the summary uses nothing else.
    const std::vector<ElementInfo> elements = snapshot(bundleId, WalkReads::structure);
    StructuralState state;
    for (const auto& element : elements) {
        ++state.roleHistogram[element.role];
    }
    state.elementCount = static_cast<int64_t>(elements.size());
    state.frontmostBundleId = frontmostBundleId();
    return state;
}

}  // namespace velmora::native
