#pragma once

#include "core/native/linux/atspi/AtspiCalls.h"
#include "core/native/linux/atspi/DBusMessageReader.h"

namespace velmora::native::freedesktop {

// What a method return answers, read by the type the call returns: a failure
// for an error, a malformed body or a body of another signature. The body comes
// from any application on the accessibility bus, so nothing in it is trusted:
// every length, offset, string and object path is checked before use.
AtspiReply parseAtspiReply(AtspiCall call, const DBusMessageView& message);

}  // namespace velmora::native::freedesktop
