#include "core/routing/TemporaryDirectory.h"

#include <cstdlib>

namespace velmora {

std::string platformTemporaryDirectory() {
    // The directory is the user's business: one that does not exist (yet) is
    // still the answer, and the screenshot write reports it.
    const char* tmpdir = std::getenv("TMPDIR");
    std::string directory = tmpdir != nullptr ? std::string(tmpdir) : std::string("/tmp");
    if (directory.empty() || directory.back() != '/') {
        directory += '/';
    }
    return directory;
}

}  // namespace velmora
