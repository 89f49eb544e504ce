#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/native/linux/atspi/AtspiCalls.h"

namespace velmora::native::freedesktop {

// An application's answer to Cache.GetItems, indexed: the cached facts of each
// object, and the children of an object where the cache lists them all.
//
// The cache names each object's parent and its index there, so an object's
// children are the objects naming it as parent, ordered by index - but only
// when they account for exactly the child count it reports (indices 0 to
// count - 1, each once). Toolkits leave some out (GTK: menus, descendants of
// objects that manage their own, objects that are going away); then the cache
// does not know that object's children.
class AtspiCacheIndex {
  public:
    AtspiCacheIndex(std::string busName, std::vector<AtspiCacheItem> items);

    struct Entry {
        const AtspiCacheItem* item = nullptr;
        // Its children in order, when the cache lists them completely.
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
