#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace velmora::native {

// A reference cell with one optional value, shared between a waiting caller and a
// completion that may run on another thread, possibly after the caller has stopped
// waiting. Held by std::shared_ptr, so it lives as long as whichever side finishes
// last; the lock makes a late write harmless even while the caller is reading.
template <typename T>
class SharedCell {
  public:
    static std::shared_ptr<SharedCell> make() { return std::make_shared<SharedCell>(); }

    void set(T value) {
        std::lock_guard<std::mutex> lock(mutex_);
        value_ = std::move(value);
    }

    std::optional<T> get() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return value_;
    }

  private:
    mutable std::mutex mutex_;
    std::optional<T> value_;
};

}  // namespace velmora::native
