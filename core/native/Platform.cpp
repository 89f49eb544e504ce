#include "core/native/Platform.h"

#include <algorithm>
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

std::vector<AttributeRead> Platform::copyAttributes(const AXElement& element,
                                                    const std::vector<std::string>& names) {
    std::vector<AttributeRead> reads;
    reads.reserve(names.size());
    for (const std::string& name : names) {
        if (!reads.empty() && reads.back().code == kAXErrorCannotComplete) {
            reads.push_back(AttributeRead::failure(kAXErrorCannotComplete));
        } else {
            reads.push_back(copyAttribute(element, name));
        }
    }
    return reads;
}

AttributeRead sliceOfElementList(AttributeRead read, int64_t index, int64_t maxValues) {
    if (read.code == kAXErrorSuccess && read.value &&
        read.value->type == AttributeValue::Type::elementList) {
        auto& items = read.value->elements;
        const auto size = static_cast<int64_t>(items.size());
        const int64_t from = std::clamp<int64_t>(index, 0, size);
        const int64_t to = from + std::clamp<int64_t>(maxValues, 0, size - from);
        items = std::vector<AXElement>(items.begin() + from, items.begin() + to);
    }
    return read;
}

AttributeRead Platform::copyAttributeValues(const AXElement& element, const std::string& name,
                                            int64_t index, int64_t maxValues) {
    return sliceOfElementList(copyAttribute(element, name), index, maxValues);
}

}  // namespace velmora::native
