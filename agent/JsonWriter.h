#pragma once

#include <cstdio>
#include <optional>
#include <string>

#include "core/model/Json.h"

namespace velmora {

// Renders one document as the agent prints it: pretty-printed, keys sorted at
// every level, every "/" written as "\/", other characters as UTF-8 with only the
// escapes JSON requires, and a trailing newline. Numbers are written as the
// platform's JSON encoder writes them: integers as integers, doubles in their
// shortest round-trip form without a trailing ".0" (10, -0, 12.5, 1e+16; see
// jsonNumberText). Invalid UTF-8 coming from a platform string is replaced,
// never emitted. None when the document holds a number that is not finite: such
// a document is not written at all.
std::optional<std::string> renderDocument(const Json& document);

// Writes renderDocument(document) to `out` and flushes. Writes nothing, quietly,
// when rendering fails. Whether anything was written.
bool writeDocument(const Json& document, std::FILE* out = stdout);

}  // namespace velmora
