#include "core/native/linux/SharedLibrary.h"

#include <dlfcn.h>

namespace velmora::native::freedesktop {

bool SharedLibrary::open() {
    std::call_once(opened_, [this] {
        handle_ = dlopen(soname_, RTLD_NOW | RTLD_LOCAL);
        if (handle_ == nullptr) {
            const char* reason = dlerror();
            error_ = reason != nullptr ? reason : std::string(soname_) + " cannot be opened";
        }
    });
    return handle_ != nullptr;
}

void* SharedLibrary::function(const char* name) {
    if (!open()) {
        return nullptr;
    }
    dlerror();
    void* address = dlsym(handle_, name);
    if (address == nullptr) {
        const char* reason = dlerror();
        error_ = reason != nullptr ? reason : std::string(soname_) + " has no " + name;
    }
    return address;
}

}  // namespace velmora::native::freedesktop
