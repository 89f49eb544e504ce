#pragma once

#include <string>

namespace velmora {

// The platform temporary directory, where screenshots go when a request names
// no directory. On Apple platforms it is Foundation's NSTemporaryDirectory()
// (the per-user temporary folder). Elsewhere it is what the same function
// answers there: the TMPDIR environment variable as given, set but empty
// included and never checked, else "/tmp"; TMP and TEMP are not read. Either
// way the answer ends in "/" (one is added when it lacks one).
std::string platformTemporaryDirectory();

}  // namespace velmora
