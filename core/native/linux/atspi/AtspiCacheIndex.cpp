#include "core/native/linux/atspi/AtspiCacheIndex.h"

namespace velmora::native::freedesktop {

AtspiCacheIndex::AtspiCacheIndex(std::string busName, std::vector<AtspiCacheItem> items)
    : busName_(std::move(busName)), items_(std::move(items)) {
    byPath_.reserve(items_.size());
    for (size_t i = 0; i < items_.size(); ++i) {
        if (items_[i].object.busName == busName_) {
            byPath_.emplace(items_[i].object.path, i);
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

}  // namespace velmora::native::freedesktop
