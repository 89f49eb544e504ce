#include "core/native/macos/MacPlatform.h"

#include <memory>

#include "core/native/SystemPlatform.h"

namespace velmora::native {

std::unique_ptr<Platform> makeSystemPlatform() {
    // Nothing is touched here: every operation talks to the system when called.
    return std::make_unique<MacPlatform>();
}

}  // namespace velmora::native
