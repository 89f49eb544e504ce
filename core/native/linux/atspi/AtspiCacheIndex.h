#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "core/native/linux/atspi/AtspiCalls.h"

namespace velmora::native::freedesktop {

// An application's answer to Cache.GetItems, indexed: the cached facts of each
// object of that application.
//
// The cache's child counts and parents give no child lists that can stand for
// GetChildren's: GTK 3 gives a window's client-side title bar the index after
// the window's contents while GetChildren lists it first, and GTK 4 counts no
// children for its application object, whose windows name it as their parent.
// So an object's children are asked for, unless its toolkit counts them as
// GetChildren lists them and counts none (cachedChildlessMeansNoChildren).
class AtspiCacheIndex {
  public:
    AtspiCacheIndex(std::string busName, std::vector<AtspiCacheItem> items);

    // What the cache knows of an object of this application, or null.
    const AtspiCacheItem* find(const AtspiAddress& object) const;

    size_t size() const { return items_.size(); }

  private:
    std::string busName_;
    std::vector<AtspiCacheItem> items_;
    std::unordered_map<std::string, size_t> byPath_;
};

}  // namespace velmora::native::freedesktop
