#include "core/native/Platform.h"

#include <utility>

namespace velmora::native {

AttributeValue AttributeValue::ofText(std::string text) {
    AttributeValue value;
    value.type = Type::text;
    value.text = std::move(text);
    return value;
}

AttributeValue AttributeValue::ofNumber(double number) {
    AttributeValue value;
    value.type = Type::number;
    value.number = number;
    return value;
}

AttributeValue AttributeValue::ofBoolean(bool boolean) {
    AttributeValue value;
    value.type = Type::boolean;
    value.boolean = boolean;
    return value;
}

AttributeValue AttributeValue::ofPoint(Point point) {
    return ofBoxed(AXBoxedValue{.type = kAXValueCGPointType, .point = point, .size = {}});
}

AttributeValue AttributeValue::ofSize(Size size) {
    return ofBoxed(AXBoxedValue{.type = kAXValueCGSizeType, .point = {}, .size = size});
}

AttributeValue AttributeValue::ofBoxed(AXBoxedValue boxed) {
    AttributeValue value;
    value.type = Type::boxed;
    value.boxed = boxed;
    return value;
}

AttributeValue AttributeValue::ofElement(AXElement element) {
    AttributeValue value;
    value.type = Type::element;
    value.element = std::move(element);
    return value;
}

AttributeValue AttributeValue::ofElements(std::vector<AXElement> elements) {
    AttributeValue value;
    value.type = Type::elementList;
    value.elements = std::move(elements);
    return value;
}

AttributeValue AttributeValue::ofOther() {
    return AttributeValue{};
}

}  // namespace velmora::native
