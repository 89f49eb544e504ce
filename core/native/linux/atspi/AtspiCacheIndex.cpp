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
    // Counted without children, and named as parent by none of the cached
    // objects: GTK 4 counts none for its application object, whose windows name
    // it as their parent.
    std::vector<bool> named(items_.size(), false);
    for (const AtspiCacheItem& item : items_) {
        if (item.parent.busName == busName_) {
            if (auto parent = byPath_.find(item.parent.path); parent != byPath_.end()) {
                named[parent->second] = true;
            }
        }
    }
    for (size_t i = 0; i < items_.size(); ++i) {
        if (items_[i].childCount == 0 && !named[i]) {
            entries_[i].children.emplace();
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
