#include "core/native/linux/atspi/AtspiCacheIndex.h"

namespace velmora::native::freedesktop {

AtspiCacheIndex::AtspiCacheIndex(std::string busName, std::vector<AtspiCacheItem> items)
    : busName_(std::move(busName)), items_(std::move(items)), entries_(items_.size()) {
    byPath_.reserve(items_.size());
    for (size_t i = 0; i < items_.size(); ++i) {
        entries_[i].item = &items_[i];
        if (items_[i].object.busName == busName_) {
            byPath_.emplace(items_[i].object.path, i);
        }
    }

    // Each object's children, slotted by the index they give; an object whose
    // slots do not come out exactly filled has no child list here.
    std::vector<std::vector<const AtspiCacheItem*>> slots(items_.size());
    std::vector<bool> broken(items_.size(), false);
    for (size_t i = 0; i < items_.size(); ++i) {
        const AtspiCacheItem& child = items_[i];
        if (child.object.busName != busName_ || child.parent.busName != busName_) {
            continue;
        }
        auto parent = byPath_.find(child.parent.path);
        if (parent == byPath_.end()) {
            continue;
        }
        const AtspiCacheItem& item = items_[parent->second];
        auto& slot = slots[parent->second];
        if (item.childCount < 0 || child.indexInParent < 0 ||
            child.indexInParent >= item.childCount) {
            broken[parent->second] = true;
            continue;
        }
        slot.resize(static_cast<size_t>(item.childCount), nullptr);
        if (slot[child.indexInParent] != nullptr) {
            broken[parent->second] = true;
        }
        slot[child.indexInParent] = &child;
    }
    for (size_t i = 0; i < items_.size(); ++i) {
        if (broken[i] || items_[i].childCount < 0 ||
            slots[i].size() != static_cast<size_t>(items_[i].childCount)) {
            continue;
        }
        std::vector<AtspiAddress> children;
        children.reserve(slots[i].size());
        bool complete = true;
        for (const AtspiCacheItem* child : slots[i]) {
            if (child == nullptr) {
                complete = false;
                break;
            }
            children.push_back(child->object);
        }
        if (complete) {
            entries_[i].children = std::move(children);
        }
    }
}

const AtspiCacheIndex::Entry* AtspiCacheIndex::find(const AtspiAddress& object) const {
    if (object.busName != busName_) {
        return nullptr;
    }
    auto found = byPath_.find(object.path);
    return found == byPath_.end() ? nullptr : &entries_[found->second];
}

}  // namespace velmora::native::freedesktop
