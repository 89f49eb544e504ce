#pragma once

namespace velmora::native::freedesktop {

// Drops the messages that GLib, GIO and libatspi would print on standard error
// (a desktop file that does not parse, an accessibility bus that is not there):
// the agent's standard error is reserved, and every failure reaches the caller
// as a result. Fatal errors still end the process. Idempotent.
void quietGLibLogging();

}  // namespace velmora::native::freedesktop
