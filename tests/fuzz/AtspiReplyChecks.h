#pragma once

#include <cstddef>
#include <string_view>

// The checks that the AT-SPI reply fuzzer runs on every input, shared with the
// replay of its seeds as a unit test.
//
// The input is what an application on the accessibility bus could write to the
// agent: a stream of D-Bus messages. It is taken apart as the transport takes
// it apart, every message is read as the answer to each AT-SPI call the reader
// makes, the answers are put into a record as the snapshot puts them, and every
// attribute of that record is asked for. Whatever comes back must hold what the
// reader promises: valid UTF-8 texts, valid object paths, bodies inside the
// message, and child lists that account for what the cache reported. A broken
// promise stops the process with a message (libFuzzer counts it as a crash).

namespace velmora::fuzz {

struct AtspiReplyStatistics {
    size_t messages = 0;  // complete messages read from the stream
    size_t answers = 0;   // (message, call) pairs that parsed as an answer
    size_t errors = 0;    // error replies among the messages
};

AtspiReplyStatistics checkAtspiReplies(std::string_view bytes);

}  // namespace velmora::fuzz
