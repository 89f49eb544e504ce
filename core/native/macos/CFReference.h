#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

namespace velmora::native {

// Owns one reference to a CoreFoundation object (CFTypeRef, and the types that
// bridge to it: AXUIElementRef, CGEventRef, CGEventSourceRef, CGImageRef) and
// releases it exactly once with CFRelease.
class CFReference {
  public:
    CFReference() = default;

    // Takes over a reference the caller already owns: the result of a Create or
    // Copy call. A null object gives an empty reference.
    static CFReference adopt(CFTypeRef object) { return CFReference(object); }
    // Takes a reference of its own (CFRetain) to an object the caller only
    // borrows: the result of a Get call, or a value handed to a callback.
    static CFReference retain(CFTypeRef object) {
        return CFReference(object != nullptr ? CFRetain(object) : nullptr);
    }

    CFReference(const CFReference&) = delete;
    CFReference& operator=(const CFReference&) = delete;
    CFReference(CFReference&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    CFReference& operator=(CFReference&& other) noexcept {
        if (this != &other) {
            reset();
            object_ = std::exchange(other.object_, nullptr);
        }
        return *this;
    }
    ~CFReference() { reset(); }

    CFTypeRef get() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }

  private:
    explicit CFReference(CFTypeRef object) : object_(object) {}

    void reset() {
        if (object_ != nullptr) {
            // CFRelease
            CFRelease(object_);
            object_ = nullptr;
        }
    }

    CFTypeRef object_ = nullptr;
};

}  // namespace velmora::native
