#include "core/native/linux/AtspiCacheIndex.h"

namespace velmora::native::freedesktop {

AtspiCacheIndex::AtspiCacheIndex(std::string busName, std::vector<AtspiCacheItem> items)
    : busName_(std::move(busName)), items_(std::move(items)) {
    byPath_.reserve(items_.size());
    for (size_t i = 0; i < items_.size(); ++i) {
        const AtspiCacheItem& item = items_[i];
        if (item.object.busName != busName_) {
            continue;
        }
        byPath_.emplace(item.object.path, i);
        if (item.parent.busName == busName_) {
            byParentPath_[item.parent.path].push_back(i);
        }
    }
}

const AtspiCacheItem* AtspiCacheIndex::find(const AtspiAddress& object) const {
    if (object.busName != busName_) {
        return nullptr;
    }
    auto found = byPath_.find(object.path);
    return found == byPath_.end() ? nullptr : &items_[found->second];
}

std::optional<std::vector<AtspiAddress>> AtspiCacheIndex::children(
    const AtspiAddress& object) const {
    const AtspiCacheItem* item = find(object);
    if (item == nullptr || item->childCount < 0) {
        return std::nullopt;
    }
    const auto count = static_cast<size_t>(item->childCount);
    auto listed = byParentPath_.find(object.path);
    const size_t found = listed == byParentPath_.end() ? 0 : listed->second.size();
    if (found != count) {
        return std::nullopt;
    }
    std::vector<const AtspiCacheItem*> slots(count, nullptr);
    for (size_t i = 0; i < found; ++i) {
        const AtspiCacheItem& child = items_[listed->second[i]];
        if (child.indexInParent < 0 || static_cast<size_t>(child.indexInParent) >= count ||
            slots[child.indexInParent] != nullptr) {
            return std::nullopt;
        }
        slots[child.indexInParent] = &child;
    }
    std::vector<AtspiAddress> children;
    children.reserve(count);
    for (const AtspiCacheItem* child : slots) {
        children.push_back(child->object);
    }
    return children;
}

}  // namespace velmora::native::freedesktop
