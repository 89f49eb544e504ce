// Accessibility over ApplicationServices (HIServices) and CoreFoundation.

#include "core/native/macos/MacPlatform.h"

#include <ApplicationServices/ApplicationServices.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/native/macos/CFReference.h"

namespace velmora::native {

// The result codes and value kinds crossing the platform layer are Apple's own.
static_assert(kAXErrorSuccess == ::kAXErrorSuccess);
static_assert(kAXErrorFailure == ::kAXErrorFailure);
static_assert(kAXErrorCannotComplete == ::kAXErrorCannotComplete);
static_assert(kAXErrorAttributeUnsupported == ::kAXErrorAttributeUnsupported);
static_assert(kAXErrorAPIDisabled == ::kAXErrorAPIDisabled);
static_assert(kAXErrorNoValue == ::kAXErrorNoValue);
static_assert(kAXValueCGPointType == ::kAXValueTypeCGPoint);
static_assert(kAXValueCGSizeType == ::kAXValueTypeCGSize);
static_assert(kAXValueCGRectType == ::kAXValueTypeCGRect);

namespace {

// An AXUIElementRef, owned.
class MacElement final : public AccessibleObject {
  public:
    explicit MacElement(CFReference element) : element_(std::move(element)) {}

    AXUIElementRef get() const { return static_cast<AXUIElementRef>(element_.get()); }

  private:
    CFReference element_;
};

AXElement wrapElement(CFReference element) {
    return std::make_shared<const MacElement>(std::move(element));
}

// CFStringGetBytes as UTF-8; a unit that cannot be converted (a lone surrogate)
// becomes '?' rather than cutting the text short.
std::string utf8Text(CFStringRef text) {
    // CFStringGetLength
    const CFRange all = CFRangeMake(0, CFStringGetLength(text));
    CFIndex size = 0;
    CFStringGetBytes(text, all, kCFStringEncodingUTF8, '?', false, nullptr, 0, &size);
    std::string result(static_cast<size_t>(size), '\0');
    CFStringGetBytes(text, all, kCFStringEncodingUTF8, '?', false,
                     reinterpret_cast<UInt8*>(result.data()), size, &size);
    result.resize(static_cast<size_t>(size));
    return result;
}

// AXValueGetType, then AXValueGetValue for the two kinds the agent reads.
AXBoxedValue unbox(AXValueRef value) {
    AXBoxedValue boxed;
    const AXValueType type = AXValueGetType(value);
    boxed.type = static_cast<int32_t>(type);
    if (type == kAXValueTypeCGPoint) {
        CGPoint point{};
        AXValueGetValue(value, kAXValueTypeCGPoint, &point);
        boxed.point = Point{.x = point.x, .y = point.y};
    } else if (type == kAXValueTypeCGSize) {
        CGSize size{};
        AXValueGetValue(value, kAXValueTypeCGSize, &size);
        boxed.size = Size{.width = size.width, .height = size.height};
    }
    return boxed;
}

// A CFArray whose every item is an AXUIElement is a list of elements; any other
// array is some other value. Array items are borrowed, so each gets its own retain.
AttributeValue fromArray(CFArrayRef array) {
    // CFArrayGetCount, CFArrayGetValueAtIndex
    const CFIndex count = CFArrayGetCount(array);
    std::vector<AXElement> elements;
    elements.reserve(static_cast<size_t>(count));
    for (CFIndex index = 0; index < count; ++index) {
        CFTypeRef item = CFArrayGetValueAtIndex(array, index);
        if (item == nullptr || CFGetTypeID(item) != AXUIElementGetTypeID()) {
            return AttributeValue::ofOther();
        }
        elements.push_back(wrapElement(CFReference::retain(item)));
    }
    return AttributeValue::ofElements(std::move(elements));
}

// Tells the value's kind by CFGetTypeID against each type's CFTypeID.
AttributeValue fromCFValue(CFTypeRef value) {
    const CFTypeID type = CFGetTypeID(value);
    if (type == CFStringGetTypeID()) {
        return AttributeValue::ofText(utf8Text(static_cast<CFStringRef>(value)));
    }
    if (type == CFNumberGetTypeID()) {
        // CFNumberGetValue as a double
        double number = 0;
        CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberDoubleType, &number);
        return AttributeValue::ofNumber(number);
    }
    if (type == CFBooleanGetTypeID()) {
        // CFBooleanGetValue
        return AttributeValue::ofBoolean(CFBooleanGetValue(static_cast<CFBooleanRef>(value)) != 0);
    }
    if (type == AXValueGetTypeID()) {
        return AttributeValue::ofBoxed(unbox(static_cast<AXValueRef>(value)));
    }
    if (type == AXUIElementGetTypeID()) {
        return AttributeValue::ofElement(wrapElement(CFReference::retain(value)));
    }
    if (type == CFArrayGetTypeID()) {
        return fromArray(static_cast<CFArrayRef>(value));
    }
    return AttributeValue::ofOther();
}

}  // namespace

AXElement MacPlatform::applicationElement(int32_t processId) {
    // AXUIElementCreateApplication (the Create rule: the element owns the reference).
    CFReference element = CFReference::adopt(AXUIElementCreateApplication(processId));
    if (!element) {
        return nullptr;
    }
    return wrapElement(std::move(element));
}

AttributeRead MacPlatform::copyAttribute(const AXElement& element, const std::string& name) {
    const auto* mac = dynamic_cast<const MacElement*>(element.get());
    // CFStringCreateWithBytes for the attribute name.
    CFReference attribute = CFReference::adopt(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(name.data()),
                                static_cast<CFIndex>(name.size()), kCFStringEncodingUTF8, false));
    if (mac == nullptr || !attribute) {
        return AttributeRead::failure(::kAXErrorIllegalArgument);
    }
    // AXUIElementCopyAttributeValue: the copied value is released once, when
    // `value` goes, after everything kept from it has taken its own reference.
    CFTypeRef copied = nullptr;
    const AXError code = AXUIElementCopyAttributeValue(
        mac->get(), static_cast<CFStringRef>(attribute.get()), &copied);
    const CFReference value = CFReference::adopt(copied);
    if (code != ::kAXErrorSuccess) {
        return AttributeRead::failure(code);
    }
    if (!value) {
        return AttributeRead::successNull();
    }
    return AttributeRead::success(fromCFValue(value.get()));
}

int32_t MacPlatform::setMessagingTimeout(const AXElement& element, double seconds) {
    const auto* mac = dynamic_cast<const MacElement*>(element.get());
    if (mac == nullptr) {
        return ::kAXErrorIllegalArgument;
    }
    // AXUIElementSetMessagingTimeout: on an application element it bounds every
    // request this process makes of that application.
    return AXUIElementSetMessagingTimeout(mac->get(), static_cast<float>(seconds));
}

bool MacPlatform::isSameElement(const AXElement& a, const AXElement& b) {
    const auto* first = dynamic_cast<const MacElement*>(a.get());
    const auto* second = dynamic_cast<const MacElement*>(b.get());
    // CFEqual: two references to one element of the application compare equal.
    return first != nullptr && second != nullptr && CFEqual(first->get(), second->get());
}

bool MacPlatform::isProcessTrusted() {
    // AXIsProcessTrusted
    return AXIsProcessTrusted() != 0;
}

}  // namespace velmora::native
