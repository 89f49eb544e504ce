#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/native/linux/atspi/AtspiCalls.h"

namespace velmora::native::freedesktop {

// An application's answer to Cache.GetItems, indexed: the cached facts of each
// object of that application.
//
// The cache says where each object stands among its parent's children (its own
// index there), but an object's children put in that order are not always the
// order GetChildren gives: GTK 3 counts a window's client-side title bar after
// the window's contents and lists it before them. So the cache gives no child
// lists, except for an object it counts no children for and that no cached
// object names as its parent: that one has none.
class AtspiCacheIndex {
  public:
    AtspiCacheIndex(std::string busName, std::vector<AtspiCacheItem> items);

    struct Entry {
        const AtspiCacheItem* item = nullptr;
        // Empty for an object without children; none when it has some, or the
        // cache does not count them.
        std::optional<std::vector<AtspiAddress>> children;
    };

    // What the cache knows of an object of this application, or null.
    const Entry* find(const AtspiAddress& object) const;

    size_t size() const { return items_.size(); }

  private:
    std::string busName_;
    std::vector<AtspiCacheItem> items_;
    std::vector<Entry> entries_;  // one per item, in the same order
    std::unordered_map<std::string, size_t> byPath_;
};

}  // namespace velmora::native::freedesktop
