#pragma once

#include <memory>

#include "core/native/Platform.h"

namespace velmora::native {

// The provider for the system the agent was built for. Creating it touches
// nothing: connections to the desktop are made on first use.
std::unique_ptr<Platform> makeSystemPlatform();

}  // namespace velmora::native
