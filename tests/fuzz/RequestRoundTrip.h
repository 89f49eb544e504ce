#pragma once

#include <string_view>

namespace velmora::fuzz {

// What one input did.
enum class RoundTrip {
    checked,  // run (or refused) and its response checked
    skipped,  // a negative selector index: the mock driver ends the process on those
};

// Feeds `input` to the agent's run path as the agent does, but against an
// in-memory mock desktop with a pinned clock and no real pauses, and checks what
// comes out: exactly one JSON document and a newline that parses back, decodes
// as a response, renders again to the same text, and agrees with the exit
// status. Any broken promise ends the process, so that a fuzzer reports it.
RoundTrip checkRequestRoundTrip(std::string_view input);

}  // namespace velmora::fuzz
