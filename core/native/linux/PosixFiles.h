#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/native/Platform.h"

namespace velmora::native::freedesktop {

// A whole file: mapped read-only when it is a regular file with contents, else
// read (an empty file has no bytes to map; pipes and /proc files cannot be).
// Throws PlatformError "cannot read PATH: REASON" with the system's reason.
FileContents readWholeFile(const std::string& path);

// Writes the bytes to the path, creating or truncating the file; no directory is
// created and the write is not atomic. Throws PlatformError
// "cannot write PATH: REASON" with the system's reason.
void writeWholeFile(const std::string& path, const std::vector<uint8_t>& bytes);

}  // namespace velmora::native::freedesktop
